#pragma once

#include <locale.h>

namespace kelva::platform {

/// Switches the calling thread to the "C" locale for its lifetime and
/// restores the thread's previous locale afterwards.  Per-thread
/// (newlocale/uselocale), so other threads are not disturbed.
class CLocaleGuard {
 public:
  CLocaleGuard() noexcept;
  ~CLocaleGuard();
  CLocaleGuard(const CLocaleGuard&) = delete;
  CLocaleGuard& operator=(const CLocaleGuard&) = delete;

  /// False when the "C" locale could not be established (the "locale" error).
  bool ok() const noexcept { return previous_ != nullptr; }

 private:
  locale_t previous_ = nullptr;
};

}  // namespace kelva::platform
