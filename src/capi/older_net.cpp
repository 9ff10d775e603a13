// Node entries of the older network format read into a domain.  (Whole
// files of that format come in through k_net_parse_domain.)
#include <cstdio>
#include <memory>

#include "capi/boundary.h"
#include "platform/file.h"
#include "text/older_net_reader.h"

using kelva::capi::get;
using kelva::capi::guard_status;

extern "C" {

k_status_t k_domain_parse_nodes(k_domain_t domain, const char* file_name,
                                k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(file_name != nullptr);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(kelva::platform::open_file(file_name, "r"),
                                                         &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    kelva::read_older_nodes(d, file.get(), handler, data);
  });
}

}  // extern "C"
