#include "platform/locale_guard.h"

namespace kelva::platform {

namespace {

// One "C" locale object for the whole process, created on first use.
locale_t c_locale() noexcept {
  static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return c;
}

}  // namespace

CLocaleGuard::CLocaleGuard() noexcept {
  const locale_t c = c_locale();
  if (c != static_cast<locale_t>(nullptr)) previous_ = uselocale(c);
}

CLocaleGuard::~CLocaleGuard() {
  if (previous_ != nullptr) uselocale(previous_);
}

}  // namespace kelva::platform
