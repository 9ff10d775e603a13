// Parses the input as a NET class file.  A collection that parses is
// written, read back and written again (the texts must be identical), and
// each class is unfolded into a domain.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_check.h"
#include "kelva/kelva.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  k_class_collection_t cc = k_new_class_collection();
  if (k_net_parse_classes_string(text.c_str(), cc, nullptr, nullptr, ignore, nullptr) != 0) {
    CHECK(k_error_code() != K_ERROR_NONE);
    CHECK(k_cc_get_members(cc)[0] == nullptr);  // a failed parse adds nothing
    CHECK(k_cc_delete(cc) == 0);
    return 0;
  }
  char* written = k_cc_to_net_string(cc);
  CHECK(written != nullptr);
  k_class_collection_t again = k_new_class_collection();
  const int status = k_net_parse_classes_string(written, again, nullptr, nullptr, ignore, nullptr);
  if (status != 0) std::fprintf(stderr, "written text does not parse:\n%s\n", written);
  CHECK(status == 0);
  char* rewritten = k_cc_to_net_string(again);
  CHECK(rewritten != nullptr && std::strcmp(written, rewritten) == 0);
  std::free(written);
  std::free(rewritten);
  for (k_class_t* c = k_cc_get_members(cc); *c != nullptr; ++c) {
    k_domain_t d = k_class_create_domain(*c);
    if (d != nullptr) CHECK(k_domain_delete(d) == 0);
  }
  CHECK(k_cc_delete(cc) == 0);
  CHECK(k_cc_delete(again) == 0);
  return 0;
}
