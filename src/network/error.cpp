#include "network/error.h"

#include <array>

namespace kelva {

namespace {

constexpr int kLastCode = 48;

constexpr ErrorEntry kRows[] = {
#define KELVA_ERROR(code, name, upper, description) {code, #name, description},
#include "network/error_codes.def"
#undef KELVA_ERROR
};

// Indexed by code; the reserved codes hold a null name.
constexpr std::array<ErrorEntry, kLastCode + 1> make_table() {
  std::array<ErrorEntry, kLastCode + 1> table{};
  for (const ErrorEntry& row : kRows) table[row.code] = row;
  return table;
}

constexpr std::array<ErrorEntry, kLastCode + 1> kTable = make_table();

#define KELVA_ERROR(code, name, upper, description) \
  static_assert(K_ERROR_##upper == (code), "C header and error table disagree");
#include "network/error_codes.def"
#undef KELVA_ERROR

}  // namespace

const ErrorEntry* find_error(int code) noexcept {
  // Compared as unsigned so that negative codes are out of range too.
  if (static_cast<unsigned>(code) > static_cast<unsigned>(kLastCode)) return nullptr;
  const ErrorEntry& e = kTable[code];
  return e.name != nullptr ? &e : nullptr;
}

const char* error_name(int code) noexcept {
  const ErrorEntry* e = find_error(code);
  return e != nullptr ? e->name : "no_such_error";
}

const char* error_description(int code) noexcept {
  const ErrorEntry* e = find_error(code);
  return e != nullptr ? e->description : "No such error.";
}

const char* Error::what() const noexcept {
  return message_.empty() ? error_name(code_) : message_.c_str();
}

}  // namespace kelva
