// Class files on the command line: telling them from domain files, reading
// the class collection, and unfolding one class into the domain that the
// commands work on.

#include "class_source.h"

#include <cctype>
#include <cstdio>
#include <memory>
#include <string>

#include "cli_error.h"

namespace kelva::cli {

bool holds_classes(const std::string& path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"), &std::fclose);
  if (file == nullptr) return false;  // the reader reports the failure
  int c = std::fgetc(file.get());
  // Spaces and `%` comments may come before the first word.
  for (;;) {
    while (c != EOF && std::isspace(c)) c = std::fgetc(file.get());
    if (c != '%') break;
    while (c != EOF && c != '\n') c = std::fgetc(file.get());
  }
  std::string word;
  while (c != EOF && (std::isalnum(c) || c == '_') && word.size() < 6) {
    word += static_cast<char>(c);
    c = std::fgetc(file.get());
  }
  return word == "class" && (c == EOF || !(std::isalnum(c) || c == '_'));
}

ClassCollectionHandle read_classes(const std::string& path) {
  ClassCollectionHandle cc(k_new_class_collection());
  if (!cc) throw ApiError(k_error_code());
  take_reader_messages();
  if (k_net_parse_classes(path.c_str(), cc.get(), nullptr, nullptr, print_parse_error,
                          const_cast<char*>(path.c_str())) != 0)
    throw file_error(path, FileUse::read);
  return cc;
}

k_class_t choose_class(k_class_collection_t cc, const std::string& path, const std::string& name) {
  k_class_t* members = checked(k_cc_get_members(cc));
  k_class_t chosen = nullptr;
  if (name.empty()) {
    for (k_class_t* c = members; *c != nullptr; ++c) chosen = *c;
    if (chosen == nullptr) throw ApiError(K_ERROR_USAGE, path + " holds no class");
  } else {
    chosen = checked(k_cc_get_class_by_name(cc, name.c_str()));
    if (chosen == nullptr) throw ApiError(K_ERROR_USAGE, path + " has no class '" + name + "'");
  }
  return chosen;
}

DomainHandle unfold_class(const std::string& path, const std::string& name) {
  ClassCollectionHandle cc = read_classes(path);
  DomainHandle domain(k_class_create_domain(choose_class(cc.get(), path, name)));
  if (!domain) throw ApiError(k_error_code());
  return domain;
}

}  // namespace kelva::cli
