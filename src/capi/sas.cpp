// The SAS node and link file functions of the C API.
#include <cstdio>
#include <memory>

#include "capi/boundary.h"
#include "platform/file.h"
#include "text/sas_reader.h"

using kelva::capi::get;
using kelva::capi::guard_status;

namespace {

// Opens `file_name` for reading and runs `read` on it.
template <class Read>
void read_file(const char* file_name, Read read) {
  kelva::require(file_name != nullptr);
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(kelva::platform::open_file(file_name, "r"),
                                                       &std::fclose);
  if (file == nullptr) throw kelva::Error(K_ERROR_IO);
  read(file.get());
}

}  // namespace

extern "C" {

k_status_t k_domain_parse_sas_nodes(k_domain_t domain, const char* file_name,
                                    k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    read_file(file_name, [&](std::FILE* f) { kelva::read_sas_nodes(d, f, handler, data); });
  });
}

k_status_t k_domain_parse_sas_links(k_domain_t domain, const char* file_name,
                                    k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    read_file(file_name, [&](std::FILE* f) { kelva::read_sas_links(d, f, handler, data); });
  });
}

k_status_t k_domain_parse_sas_table(k_domain_t domain, const char* file_name,
                                    k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    read_file(file_name, [&](std::FILE* f) { kelva::read_sas_table(d, f, handler, data); });
  });
}

}  // extern "C"
