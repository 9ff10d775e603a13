// The KB file functions of the C API: a domain to a file or to memory, and
// back.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "capi/boundary.h"
#include "network/class.h"
#include "network/domain.h"
#include "platform/file.h"
#include "text/kb_file.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

/// The whole content of a file (Error(io) when it cannot be read).
std::vector<unsigned char> read_file(const char* file_name) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(kelva::platform::open_file(file_name, "rb"),
                                                       &std::fclose);
  if (file == nullptr) throw kelva::Error(K_ERROR_IO);
  std::vector<unsigned char> bytes;
  unsigned char buffer[1 << 16];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;)
    bytes.insert(bytes.end(), buffer, buffer + n);
  if (std::ferror(file.get())) throw kelva::Error(K_ERROR_IO);
  return bytes;
}

/// Writes `bytes` to a new file (Error(io) when it cannot be written).
void write_file(const char* file_name, const std::vector<unsigned char>& bytes) {
  std::FILE* file = kelva::platform::open_file(file_name, "wb");
  if (file == nullptr) throw kelva::Error(K_ERROR_IO);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (std::fclose(file) != 0 || !written) throw kelva::Error(K_ERROR_IO);
}

/// `bytes` copied into a malloc'ed block, its size in `*size`.
unsigned char* malloc_bytes(const std::vector<unsigned char>& bytes, size_t* size) {
  auto* copy = static_cast<unsigned char*>(std::malloc(bytes.size()));
  if (copy == nullptr) throw kelva::Error(K_ERROR_NO_MEMORY);
  std::memcpy(copy, bytes.data(), bytes.size());
  *size = bytes.size();
  return copy;
}

kelva::ClassCollection& get_cc(k_class_collection_t h) {
  auto* p = reinterpret_cast<kelva::ClassCollection*>(h);
  kelva::require(p != nullptr && p->is(kelva::ObjectTag::class_collection));
  return *p;
}

}  // namespace

extern "C" {

k_status_t k_domain_save_as_kb(k_domain_t domain, const char* file_name, const char* password) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(file_name != nullptr);
    std::string name = file_name;
    write_file(file_name, kelva::write_kb_domain(d, password));
    d.file_name = std::move(name);
  });
}

unsigned char* k_domain_save_to_memory(k_domain_t domain, const char* password, size_t* size) {
  return guard<unsigned char*>(nullptr, [&] {
    kelva::Domain& d = get(domain);
    kelva::require(size != nullptr);
    return malloc_bytes(kelva::write_kb_domain(d, password), size);
  });
}

k_domain_t k_kb_load_domain(const char* file_name, const char* password) {
  return guard<k_domain_t>(nullptr, [&] {
    kelva::require(file_name != nullptr);
    const std::vector<unsigned char> bytes = read_file(file_name);
    std::unique_ptr<kelva::Domain> d(kelva::read_kb_domain(bytes.data(), bytes.size(), password));
    d->file_name = file_name;
    return handle(d.release());
  });
}

k_domain_t k_kb_load_domain_from_memory(const unsigned char* data, size_t size,
                                        const char* password) {
  return guard<k_domain_t>(nullptr, [&] {
    kelva::require(data != nullptr || size == 0);
    return handle(kelva::read_kb_domain(data, size, password));
  });
}

k_status_t k_cc_save_as_kb(k_class_collection_t cc, const char* file_name, const char* password) {
  return guard_status([&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::require(file_name != nullptr);
    write_file(file_name, kelva::write_kb_classes(c, password));
  });
}

unsigned char* k_cc_save_to_memory(k_class_collection_t cc, const char* password, size_t* size) {
  return guard<unsigned char*>(nullptr, [&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::require(size != nullptr);
    return malloc_bytes(kelva::write_kb_classes(c, password), size);
  });
}

k_class_collection_t k_kb_load_class_collection(const char* file_name, const char* password) {
  return guard<k_class_collection_t>(nullptr, [&] {
    kelva::require(file_name != nullptr);
    const std::vector<unsigned char> bytes = read_file(file_name);
    return reinterpret_cast<k_class_collection_t>(
        kelva::read_kb_classes(bytes.data(), bytes.size(), password));
  });
}

k_class_collection_t k_kb_load_class_collection_from_memory(const unsigned char* data, size_t size,
                                                            const char* password) {
  return guard<k_class_collection_t>(nullptr, [&] {
    kelva::require(data != nullptr || size == 0);
    return reinterpret_cast<k_class_collection_t>(kelva::read_kb_classes(data, size, password));
  });
}

}  // extern "C"
