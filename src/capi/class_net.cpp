// NET class files through the C API: reading classes into a collection and
// writing a collection.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "capi/boundary.h"
#include "network/class.h"
#include "platform/file.h"
#include "text/net_reader.h"
#include "text/net_writer.h"

using kelva::capi::guard_status;

namespace {

kelva::ClassCollection& get_cc(k_class_collection_t h) {
  auto* p = reinterpret_cast<kelva::ClassCollection*>(h);
  kelva::require(p != nullptr && p->is(kelva::ObjectTag::class_collection));
  return *p;
}

}  // namespace

extern "C" {

k_status_t k_net_parse_classes(const char* file_name, k_class_collection_t cc,
                               k_insert_class_t insert, void* insert_data,
                               k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::require(file_name != nullptr);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(kelva::platform::open_file(file_name, "r"),
                                                         &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    kelva::read_net_classes(file.get(), c, {insert, insert_data}, handler, data);
  });
}

k_status_t k_net_parse_classes_string(const char* text, k_class_collection_t cc,
                                      k_insert_class_t insert, void* insert_data,
                                      k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::require(text != nullptr);
    kelva::read_net_classes(text, c, {insert, insert_data}, handler, data);
  });
}

k_status_t k_cc_save_as_net(k_class_collection_t cc, const char* file_name) {
  return guard_status([&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::require(file_name != nullptr);
    std::FILE* file = kelva::platform::open_file(file_name, "w");
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    try {
      kelva::TextSink sink(file);
      kelva::write_net_classes(c, sink);
    } catch (...) {
      std::fclose(file);
      throw;
    }
    if (std::fclose(file) != 0) throw kelva::Error(K_ERROR_IO);
  });
}

char* k_cc_to_net_string(k_class_collection_t cc) {
  return kelva::capi::guard<char*>(nullptr, [&] {
    kelva::TextSink sink;
    kelva::write_net_classes(get_cc(cc), sink);
    return kelva::capi::malloc_copy(sink.text());
  });
}

}  // extern "C"
