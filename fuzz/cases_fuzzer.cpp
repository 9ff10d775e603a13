// Reads the input as a multi-case data file into a fixed domain that holds
// a stored case already.  A failed read must leave the stored cases as they
// were; cases that read are written with counts, and the text written, read
// and written again, must reach a fixed point after one round (the first
// write may round numbers with "%G").
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "case_fuzz_domain.h"
#include "network/node.h"
#include "text/case_file.h"
#include "text/net_writer.h"

namespace {

std::string written(k_domain_t d, bool counts) {
  kelva::Domain& domain = case_fuzz::engine(d);
  kelva::CaseSelection selection;
  for (const char* name : {"L", "D", "B", "N", "I", "X", "F"})
    selection.nodes.push_back(domain.find(name));
  selection.counts = counts;
  selection.separator = counts ? "," : " ";
  selection.missing = counts ? "*" : "?";
  kelva::verify_case_selection(domain, selection);
  kelva::TextSink sink;
  kelva::write_cases(domain, selection, sink);
  return sink.text();
}

bool read(k_domain_t d, const std::string& text) {
  return case_fuzz::read_text(text, [&](std::FILE* stream) {
    kelva::read_cases(case_fuzz::engine(d), stream, ignore, nullptr);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static k_domain_t d = case_fuzz::make_domain();
  CHECK(k_domain_set_number_of_cases(d, 1) == 0);
  CHECK(k_node_set_case_state(k_domain_get_node_by_name(d, "N"), 0, 1) == 0);
  const std::string before = written(d, true);
  const bool counts_set = case_fuzz::engine(d).cases.counts_set();

  const std::string text(reinterpret_cast<const char*>(data), size);
  // Read from memory (when no NUL ends the text early), the same cases or
  // the same refusal as from a stream.
  std::string from_memory;
  bool memory_read = false;
  if (text.find('\0') == std::string::npos) {
    try {
      kelva::read_cases(case_fuzz::engine(d), text.c_str(), ignore, nullptr);
      memory_read = true;
      from_memory = written(d, true);
    } catch (const kelva::Error& e) {
      CHECK(e.code() != K_ERROR_NONE);
    }
    CHECK(k_domain_set_number_of_cases(d, 1) == 0);
    case_fuzz::engine(d).cases.set_counts_set(counts_set);
  }
  if (!read(d, text)) {
    CHECK(!memory_read);
    CHECK(written(d, true) == before);
    CHECK(case_fuzz::engine(d).cases.counts_set() == counts_set);
    return 0;
  }
  CHECK(k_domain_get_number_of_cases(d) >= 1);
  const std::string first = written(d, true);
  CHECK(text.find('\0') != std::string::npos || (memory_read && from_memory == first));
  CHECK(k_domain_set_number_of_cases(d, 0) == 0);
  if (!read(d, first)) {
    CHECK(first.find("E+308") != std::string::npos);
    return 0;
  }
  const std::string second = written(d, true);
  CHECK(k_domain_set_number_of_cases(d, 0) == 0);
  CHECK(read(d, second));
  const std::string third = written(d, true);
  if (second != third)
    std::fprintf(stderr, "second:\n%s\nthird:\n%s\n", second.c_str(), third.c_str());
  CHECK(second == third);

  // Without counts, when the counts are small whole numbers, each case is
  // written as that many equal lines.
  double total = 0;
  bool small = true;
  for (k_size_t c = 0; c < k_domain_get_number_of_cases(d); ++c) {
    const double count = k_domain_get_case_count(d, c);
    small = small && count >= 0 && count <= 3 && count == std::floor(count);
    total += count;
  }
  if (small) {
    const std::string plain = written(d, false);
    CHECK(k_domain_set_number_of_cases(d, 0) == 0);
    CHECK(read(d, plain));
    CHECK(static_cast<double>(k_domain_get_number_of_cases(d)) == total);
  }
  return 0;
}
