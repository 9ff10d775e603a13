// Parses the input as NET text.  A domain that parses is written, the text
// read back and written again: the two texts must be identical.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_check.h"
#include "kelva/kelva.h"

namespace {}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  k_domain_t domain = k_net_parse_domain_string(text.c_str(), ignore, nullptr);
  if (domain == nullptr) {
    CHECK(k_error_code() != K_ERROR_NONE);
    return 0;
  }
  char* written = k_domain_to_net_string(domain);
  CHECK(written != nullptr);
  k_domain_t again = k_net_parse_domain_string(written, ignore, nullptr);
  if (again == nullptr) std::fprintf(stderr, "written text does not parse:\n%s\n", written);
  CHECK(again != nullptr);
  char* rewritten = k_domain_to_net_string(again);
  CHECK(rewritten != nullptr);
  if (std::strcmp(written, rewritten) != 0)
    std::fprintf(stderr, "written:\n%s\nrewritten:\n%s\n", written, rewritten);
  CHECK(std::strcmp(written, rewritten) == 0);
  std::free(written);
  std::free(rewritten);
  CHECK(k_domain_delete(domain) == 0);
  CHECK(k_domain_delete(again) == 0);
  return 0;
}
