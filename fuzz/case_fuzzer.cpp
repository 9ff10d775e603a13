// Reads the input as a single-case file into a fixed domain.  A failed read
// must leave the evidence untouched; a case that reads is written, and the
// text written, read and written again, must reach a fixed point after one
// round (the first write may round numbers with "%G").
#include <cstdint>
#include <string>

#include "case_fuzz_domain.h"
#include "text/case_file.h"
#include "text/net_writer.h"

namespace {

std::string written(k_domain_t d) {
  kelva::TextSink sink;
  kelva::write_case(case_fuzz::engine(d), sink);
  return sink.text();
}

bool read(k_domain_t d, const std::string& text) {
  return case_fuzz::read_text(text, [&](std::FILE* stream) {
    kelva::read_case(case_fuzz::engine(d), stream, ignore, nullptr);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static k_domain_t d = case_fuzz::make_domain();
  CHECK(k_domain_retract_findings(d) == 0);
  // Evidence that a failed read must keep.
  CHECK(k_node_select_state(k_domain_get_node_by_name(d, "L"), 2) == 0);
  CHECK(k_node_enter_value(k_domain_get_node_by_name(d, "X"), 0.5) == 0);
  const std::string before = written(d);

  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!read(d, text)) {
    CHECK(written(d) == before);
    return 0;
  }
  const std::string first = written(d);
  CHECK(k_domain_retract_findings(d) == 0);
  // Values that "%G" rounds beyond the largest double no longer read.
  if (!read(d, first)) {
    CHECK(first.find("E+308") != std::string::npos);
    return 0;
  }
  const std::string second = written(d);
  CHECK(k_domain_retract_findings(d) == 0);
  CHECK(read(d, second));
  const std::string third = written(d);
  if (second != third)
    std::fprintf(stderr, "second:\n%s\nthird:\n%s\n", second.c_str(), third.c_str());
  CHECK(second == third);
  return 0;
}
