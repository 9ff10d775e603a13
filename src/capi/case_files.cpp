// The case files of the C API: a single case read into and written from the
// evidence, stored cases read from and written to a data file.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "capi/boundary.h"
#include "platform/file.h"
#include "text/case_file.h"
#include "text/net_writer.h"

using kelva::capi::get;
using kelva::capi::guard_status;

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open(const char* file_name, const char* mode) {
  kelva::require(file_name != nullptr);
  File file(kelva::platform::open_file(file_name, mode), &std::fclose);
  if (file == nullptr) throw kelva::Error(K_ERROR_IO);
  return file;
}

// Writes with `write(sink)` to a new file; a failed write or close is "io".
template <class Write>
void write_file(const char* file_name, Write write) {
  File file = open(file_name, "w");
  kelva::TextSink sink(file.get());
  write(sink);
  if (std::fclose(file.release()) != 0) throw kelva::Error(K_ERROR_IO);
}

}  // namespace

extern "C" {

k_status_t k_domain_parse_case(k_domain_t domain, const char* file_name,
                               k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    File file = open(file_name, "r");
    kelva::read_case(d, file.get(), handler, data);
  });
}

k_status_t k_domain_save_case(k_domain_t domain, const char* file_name) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    write_file(file_name, [&](kelva::TextSink& sink) { kelva::write_case(d, sink); });
  });
}

k_status_t k_domain_parse_cases(k_domain_t domain, const char* file_name,
                                k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    File file = open(file_name, "r");
    kelva::read_cases(d, file.get(), handler, data);
  });
}

k_status_t k_domain_parse_cases_string(k_domain_t domain, const char* text,
                                       k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(text != nullptr);
    kelva::read_cases(d, text, handler, data);
  });
}

k_status_t k_domain_save_cases(k_domain_t domain, const char* file_name, k_node_t* nodes,
                               const int64_t* cases, k_bool_t include_counts, const char* separator,
                               const char* missing) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(file_name != nullptr && include_counts >= 0 && include_counts <= 1);
    kelva::CaseSelection selection;
    selection.nodes = kelva::capi::node_list(nodes);
    if (cases != nullptr) {
      selection.all_cases = false;
      for (const int64_t* c = cases; *c >= 0; ++c)
        selection.cases.push_back(static_cast<std::size_t>(*c));
    }
    selection.counts = include_counts == 1;
    selection.separator = separator;
    selection.missing = missing;
    // Checked before the file is made: a refused call leaves no file.
    kelva::verify_case_selection(d, selection);
    write_file(file_name, [&](kelva::TextSink& sink) { kelva::write_cases(d, selection, sink); });
  });
}

}  // extern "C"
