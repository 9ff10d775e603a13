// Reads the input as a KB file (first byte even), or as the sections of an
// unprotected domain file wrapped in a valid header and CRC (odd), so that
// mutations reach the section readers past the checksum.  A domain that
// loads must save and load again with the same NET text.
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::vector<unsigned char> bytes(data + 1, data + size);
  if (data[0] % 2 == 1) bytes = kelva::kb::seal(kelva::kb::Kind::domain, bytes, nullptr);
  k_domain_t d = k_kb_load_domain_from_memory(bytes.data(), bytes.size(), nullptr);
  if (d == nullptr) {
    const k_error_t code = k_error_code();
    CHECK(code == K_ERROR_BAD_KB_FORMAT || code == K_ERROR_BAD_KB_VERSION ||
          code == K_ERROR_BAD_KB_TYPE || code == K_ERROR_BAD_KB_PASSWORD ||
          code == K_ERROR_NO_MEMORY);
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
