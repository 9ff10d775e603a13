// The C API of the NET writer: a domain to a file or to a string.
#include <cstdlib>
#include <cstring>
#include <string>

#include "capi/boundary.h"
#include "platform/file.h"
#include "text/net_writer.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::malloc_copy;

extern "C" {

k_status_t k_domain_save_as_net(k_domain_t domain, const char* file_name) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(file_name != nullptr);
    std::string name = file_name;  // copied first: nothing may fail after the write
    std::FILE* file = kelva::platform::open_file(file_name, "w");
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    try {
      kelva::TextSink sink(file);
      kelva::write_net_domain(d, sink);
    } catch (...) {
      std::fclose(file);
      throw;
    }
    if (std::fclose(file) != 0) throw kelva::Error(K_ERROR_IO);
    // The name is kept only once the whole text has been written.
    d.file_name = std::move(name);
  });
}

k_status_t k_domain_set_net_digits(k_domain_t domain, int digits) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(digits >= 0 && digits <= 17);
    d.net_digits = digits;
  });
}

int k_domain_get_net_digits(k_domain_t domain) {
  return guard<int>(-1, [&] { return get(domain).net_digits; });
}

char* k_domain_to_net_string(k_domain_t domain) {
  return guard<char*>(nullptr, [&] {
    kelva::TextSink sink;
    kelva::write_net_domain(get(domain), sink);
    return malloc_copy(sink.text());
  });
}

}  // extern "C"
