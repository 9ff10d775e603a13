#include "predict_cases.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace kelva::cli {

namespace {

/// Counts the messages of a reader.
void count_message(k_size_t, const char*, void* data) { ++*static_cast<int*>(data); }

}  // namespace

std::unique_ptr<CutCases> CutCases::cut(const std::string& name, std::size_t lines) {
  const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st {};
  void* map = MAP_FAILED;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0)
    map = ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
  ::close(fd);
  if (map == MAP_FAILED) return nullptr;
  std::unique_ptr<CutCases> cut(
      new CutCases(static_cast<const char*>(map), static_cast<std::size_t>(st.st_size)));
  const char* data = cut->data_;
  const std::size_t size = cut->size_;
  if (std::memchr(data, '\0', size) != nullptr) return nullptr;
  const auto* newline = static_cast<const char*>(std::memchr(data, '\n', size));
  if (newline == nullptr) return nullptr;
  // The header must be the first line: one that is blank or a comment
  // leaves the names to a later line.
  const std::size_t name_at = std::strspn(data, " \t\r\f\v");
  if (data + name_at >= newline || data[name_at] == '%') return nullptr;
  cut->header_ = std::string_view(data, static_cast<std::size_t>(newline - data) + 1);
  std::size_t at = cut->header_.size();
  if (at == size) return nullptr;
  while (at < size) {
    cut->starts_.push_back(at);
    std::size_t cases = 0;
    for (std::size_t l = 0; l < lines && at < size; ++l) {
      const auto* end = static_cast<const char*>(std::memchr(data + at, '\n', size - at));
      const std::size_t next = end == nullptr ? size : static_cast<std::size_t>(end - data) + 1;
      // The reader's blanks; a line of blanks and a comment holds no case.
      while (at < next &&
             (data[at] == ' ' || (data[at] >= '\t' && data[at] <= '\r' && data[at] != '\n')))
        ++at;
      cases += at < next && data[at] != '\n' && data[at] != '%';
      at = next;
    }
    cut->cases_.push_back(cases);
  }
  cut->starts_.push_back(size);
  return cut;
}

CutCases::~CutCases() { ::munmap(const_cast<char*>(data_), size_); }

bool CutCases::read(k_domain_t domain, std::size_t c, std::size_t end, std::string& text) const {
  text.assign(header_);
  text.append(data_ + starts_[c], starts_[end] - starts_[c]);
  int messages = 0;
  return k_domain_parse_cases_string(domain, text.c_str(), count_message, &messages) == 0 &&
         messages == 0;
}

}  // namespace kelva::cli
