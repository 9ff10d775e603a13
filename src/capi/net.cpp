// The NET functions of the C API.
#include <cstdio>
#include <memory>

#include "capi/boundary.h"
#include "platform/file.h"
#include "text/net_reader.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::handle;

extern "C" {

k_domain_t k_net_parse_domain(const char* file_name, k_parse_error_handler_t handler, void* data) {
  return guard<k_domain_t>(nullptr, [&] {
    kelva::require(file_name != nullptr);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(kelva::platform::open_file(file_name, "r"),
                                                         &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    return handle(kelva::read_net_domain(file.get(), file_name, handler, data));
  });
}

k_domain_t k_net_parse_domain_string(const char* text, k_parse_error_handler_t handler,
                                     void* data) {
  return guard<k_domain_t>(nullptr, [&] {
    kelva::require(text != nullptr);
    return handle(kelva::read_net_domain(text, handler, data));
  });
}

const char* k_domain_get_file_name(k_domain_t domain) {
  return guard<const char*>(nullptr, [&]() -> const char* {
    const kelva::Domain& d = get(domain);
    return d.file_name ? d.file_name->c_str() : nullptr;
  });
}

}  // extern "C"
