#include "network/names.h"

#include <cctype>

#include "network/error.h"
#include "platform/locale_guard.h"

namespace kelva {

bool is_valid_name(const char* name, bool dotted) {
  platform::CLocaleGuard c_locale;
  if (!c_locale.ok()) throw Error(K_ERROR_LOCALE);
  const char* p = name;
  for (;;) {
    const auto first = static_cast<unsigned char>(*p);
    if (!(std::isalpha(first) || first == '_')) return false;
    ++p;
    while (std::isalnum(static_cast<unsigned char>(*p)) || *p == '_') ++p;
    if (*p == '\0') return true;
    if (!dotted || *p != '.') return false;
    ++p;  // a dot must be followed by another identifier
  }
}

}  // namespace kelva
