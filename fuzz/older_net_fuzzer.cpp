// Reads the input in the older network format from memory: a whole file
// through the NET reader's look-ahead (first byte even), whose domain must
// write NET text that reads back, or node entries into a fixed domain (odd),
// whose NET text a failed parse must leave as it was.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_check.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "text/net_reader.h"
#include "text/older_net_reader.h"

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
  if (size < 2) return 0;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::FILE* stream = fmemopen(text.data(), text.size(), "r");
  CHECK(stream != nullptr);
  k_domain_t d = k_net_parse_domain_string(
      "node P { states = (\"p0\" \"p1\"); } node Q { }\n"
      "continuous node X { } potential (P | Q) { }",
      ignore, nullptr);
  const std::string before = net_text(d);
  try {
    if (data[0] % 2 == 0) {
      k_domain_delete(d);
      d = reinterpret_cast<k_domain_t>(kelva::read_net_domain(stream, nullptr, ignore, nullptr));
    } else {
      kelva::read_older_nodes(*reinterpret_cast<kelva::Domain*>(d), stream, ignore, nullptr);
    }
    k_domain_t again = k_net_parse_domain_string(net_text(d).c_str(), ignore, nullptr);
    CHECK(again != nullptr);
    k_domain_delete(again);
  } catch (...) {
    if (data[0] % 2 != 0) CHECK(net_text(d) == before);
    if (data[0] % 2 == 0) d = nullptr;
  }
  std::fclose(stream);
  k_domain_delete(d);
  return 0;
}
