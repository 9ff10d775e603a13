// Reads the input as XMLBIF: one message and nothing made, or a domain whose
// XMLBIF text reads back as itself.
#include "foreign_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz_foreign(data, size, kelva::read_xmlbif_domain, kelva::read_xmlbif_domain,
               kelva::write_xmlbif_domain);
  return 0;
}
