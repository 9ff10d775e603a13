// Reads the input as a KB file (bit 0 of the first byte clear), or as the
// sections of an unprotected file wrapped in a valid header and CRC (set),
// so that mutations reach the section readers past the checksum; bit 1
// picks the kind, a class collection instead of a domain.  What loads must
// save and load again with the same NET text.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "text/kb_file.h"
#include "text/kb_secret.h"

namespace {

std::string net_text(k_domain_t d) {
  char* text = k_domain_to_net_string(d);
  CHECK(text != nullptr);
  std::string s = text;
  std::free(text);
  return s;
}

std::string classes_text(k_class_collection_t cc) {
  char* text = k_cc_to_net_string(cc);
  CHECK(text != nullptr);
  std::string s = text;
  std::free(text);
  return s;
}

// A failed load gives one of the loader's codes.
void check_failure() {
  const k_error_t code = k_error_code();
  CHECK(code == K_ERROR_BAD_KB_FORMAT || code == K_ERROR_BAD_KB_VERSION ||
        code == K_ERROR_BAD_KB_TYPE || code == K_ERROR_BAD_KB_PASSWORD ||
        code == K_ERROR_NO_MEMORY);
}

// A class collection from `bytes`, saved and loaded again.
void check_classes(const std::vector<unsigned char>& bytes) {
  k_class_collection_t cc =
      k_kb_load_class_collection_from_memory(bytes.data(), bytes.size(), nullptr);
  if (cc == nullptr) {
    check_failure();
    return;
  }
  const std::string text = classes_text(cc);
  std::size_t saved_size = 0;
  unsigned char* saved = k_cc_save_to_memory(cc, nullptr, &saved_size);
  CHECK(saved != nullptr);
  k_class_collection_t again = k_kb_load_class_collection_from_memory(saved, saved_size, nullptr);
  CHECK(again != nullptr);
  CHECK(classes_text(again) == text);
  std::free(saved);
  k_cc_delete(again);
  k_cc_delete(cc);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::vector<unsigned char> bytes(data + 1, data + size);
  const bool classes = (data[0] & 2) != 0;
  if ((data[0] & 1) != 0)
    bytes = kelva::kb::seal(classes ? kelva::kb::Kind::class_collection : kelva::kb::Kind::domain,
                            bytes, nullptr);
  if (classes) {
    check_classes(bytes);
    return 0;
  }
  k_domain_t d = k_kb_load_domain_from_memory(bytes.data(), bytes.size(), nullptr);
  if (d == nullptr) {
    check_failure();
    return 0;
  }
  const std::string text = net_text(d);
  std::size_t saved_size = 0;
  unsigned char* saved = k_domain_save_to_memory(d, nullptr, &saved_size);
  CHECK(saved != nullptr);
  k_domain_t again = k_kb_load_domain_from_memory(saved, saved_size, nullptr);
  CHECK(again != nullptr);
  CHECK(net_text(again) == text);
  std::free(saved);
  k_domain_delete(again);
  k_domain_delete(d);
  return 0;
}
