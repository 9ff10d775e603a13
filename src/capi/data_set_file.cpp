// The C API of data set files: a data set read from a file or from text,
// and written to a file or to text.
#include "text/data_set_file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "capi/boundary.h"
#include "platform/file.h"
#include "text/net_writer.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;
using kelva::capi::malloc_copy;

namespace {

int separator_byte(char separator) noexcept { return static_cast<unsigned char>(separator); }

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

}  // namespace

extern "C" {

k_data_set_t k_parse_data_set(const char* file_name, char separator,
                              k_parse_error_handler_t handler, void* data) {
  return guard<k_data_set_t>(nullptr, [&] {
    kelva::require(file_name != nullptr && kelva::is_data_set_separator(separator_byte(separator)));
    File file(kelva::platform::open_file(file_name, "r"), &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    auto data_set = kelva::read_data_set(file.get(), separator_byte(separator), handler, data);
    return handle(data_set.release());
  });
}

k_data_set_t k_parse_data_set_string(const char* text, char separator,
                                     k_parse_error_handler_t handler, void* data) {
  return guard<k_data_set_t>(nullptr, [&] {
    auto data_set = kelva::read_data_set(text, separator_byte(separator), handler, data);
    return handle(data_set.release());
  });
}

k_status_t k_ds_save(k_data_set_t data_set, const char* file_name, char separator) {
  return guard_status([&] {
    const kelva::DataSet& ds = get(data_set);
    // Checked before the file is opened, so that a refused call leaves an
    // existing file as it was.
    kelva::require(file_name != nullptr && kelva::is_data_set_separator(separator_byte(separator)));
    File file(kelva::platform::open_file(file_name, "w"), &std::fclose);
    if (file == nullptr) throw kelva::Error(K_ERROR_IO);
    kelva::TextSink sink(file.get());
    kelva::write_data_set(ds, separator_byte(separator), sink);
    if (std::fclose(file.release()) != 0) throw kelva::Error(K_ERROR_IO);
  });
}

char* k_ds_to_csv_string(k_data_set_t data_set, char separator) {
  return guard<char*>(nullptr, [&] {
    kelva::TextSink sink;
    kelva::write_data_set(get(data_set), separator_byte(separator), sink);
    return malloc_copy(sink.text());
  });
}

}  // extern "C"
