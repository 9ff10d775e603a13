// Reads the input as BIF: one message and nothing made, or a domain whose
// BIF text reads back as itself.
#include "foreign_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_foreign(data, size, kelva::read_bif_domain, kelva::read_bif_domain, kelva::write_bif_domain);
  return 0;
}
