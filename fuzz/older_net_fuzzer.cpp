// Reads the input in the older network format from memory through a
// stream: a whole file through the NET reader's look-ahead (first byte
// even), or node entries into a fixed domain (odd).  A domain that parses is
// written as NET text, which must read back and write the same text; a
// failed entry parse must leave the fixed domain's NET text as it was.
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

std::FILE* open_text(const std::string& text) {
  // An empty buffer is no stream for fmemopen.
  std::FILE* stream = text.empty() ? std::fopen("/dev/null", "r")
                                   : fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  CHECK(stream != nullptr);
  return stream;
}

std::string net_text(k_domain_t d) {
  char* text = k_domain_to_net_string(d);
  CHECK(text != nullptr);
  std::string s = text;
  std::free(text);
  return s;
}

// NET text of `d` reads back and writes the same text.
void round_trip(k_domain_t d) {
  const std::string written = net_text(d);
  k_domain_t again = k_net_parse_domain_string(written.c_str(), ignore, nullptr);
  if (again == nullptr) std::fprintf(stderr, "written text does not parse:\n%s\n", written.c_str());
  CHECK(again != nullptr);
  CHECK(net_text(again) == written);
  k_domain_delete(again);
}

void fuzz_file(const std::string& text) {
  std::FILE* stream = open_text(text);
  kelva::Domain* d = nullptr;
  try {
    d = kelva::read_net_domain(stream, nullptr, ignore, nullptr);
  } catch (...) {
  }
  std::fclose(stream);
  if (d == nullptr) return;
  round_trip(reinterpret_cast<k_domain_t>(d));
  k_domain_delete(reinterpret_cast<k_domain_t>(d));
}

void fuzz_entries(const std::string& text) {
  k_domain_t d = k_net_parse_domain_string(
      "node P { states = (\"p0\" \"p1\"); } node Q { states = (\"q\"); }\n"
      "continuous node X { } potential (P | Q) { data = (0.3 0.7); }",
      ignore, nullptr);
  CHECK(d != nullptr);
  const std::string before = net_text(d);
  std::FILE* stream = open_text(text);
  bool ok = true;
  try {
    kelva::read_older_nodes(*reinterpret_cast<kelva::Domain*>(d), stream, ignore, nullptr);
  } catch (...) {
    ok = false;
  }
  std::fclose(stream);
  if (ok) round_trip(d);
  else CHECK(net_text(d) == before);
  k_domain_delete(d);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] % 2 == 0) fuzz_file(text);
  else fuzz_entries(text);
  return 0;
}
