// The C API of other tools' network files: BIF, XMLBIF and UAI readers, BIF
// and XMLBIF writers.
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "capi/boundary.h"
#include "platform/file.h"
#include "platform/mapped_file.h"
#include "text/foreign_net.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

using FilePtr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

template <class Read>
k_domain_t parse_file(const char* file_name, k_parse_error_handler_t handler, void* data,
                      Read read) {
  return guard<k_domain_t>(nullptr, [&] {
    kelva::require(file_name != nullptr);
    FilePtr file(kelva::platform::open_file(file_name, "rb"), &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    // Mapped where possible; read into memory otherwise (a pipe, an empty file).
    kelva::platform::MappedFile mapped;
    std::string copy;
    std::string_view text;
    if (mapped.map(file.get())) {
      text = mapped.text();
    } else {
      copy = kelva::read_whole_file(file.get());
      text = copy;
    }
    return handle(read(text, file_name, handler, data));
  });
}

template <class Write>
k_status_t save_file(k_domain_t domain, const char* file_name, Write write) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(file_name != nullptr);
    // The whole text is made before the file is opened: a domain that cannot
    // be written leaves no file behind.
    const std::string text = write(d);
    FilePtr file(kelva::platform::open_file(file_name, "wb"), &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
        std::fclose(file.release()) != 0)
      throw kelva::Error(K_ERROR_IO);
  });
}

}  // namespace

extern "C" {

k_domain_t k_bif_parse_domain(const char* file_name, k_parse_error_handler_t handler, void* data) {
  return parse_file(file_name, handler, data, &kelva::read_bif_domain);
}

k_domain_t k_xmlbif_parse_domain(const char* file_name, k_parse_error_handler_t handler,
                                 void* data) {
  return parse_file(file_name, handler, data, &kelva::read_xmlbif_domain);
}

k_domain_t k_uai_parse_domain(const char* file_name, k_parse_error_handler_t handler, void* data) {
  return parse_file(file_name, handler, data, &kelva::read_uai_domain);
}

k_status_t k_domain_save_as_bif(k_domain_t domain, const char* file_name) {
  return save_file(domain, file_name, &kelva::write_bif_domain);
}

k_status_t k_domain_save_as_xmlbif(k_domain_t domain, const char* file_name) {
  return save_file(domain, file_name, &kelva::write_xmlbif_domain);
}

}  // extern "C"
