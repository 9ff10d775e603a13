#pragma once
// The body of the fuzz targets of other tools' formats: a read either fails
// with one message and nothing made, or gives a domain whose written text
// reads back as the same text.
#include <memory>
#include <string>
#include <string_view>

#include "fuzz_check.h"
#include "network/domain.h"
#include "network/error.h"
#include "text/foreign_net.h"

using ForeignRead = kelva::Domain* (*)(std::string_view, const char*, k_parse_error_handler_t,
                                       void*);
using ForeignWrite = std::string (*)(const kelva::Domain&);

inline void count_message(std::uint64_t, const char*, void* data) { ++*static_cast<int*>(data); }

inline void fuzz_foreign(const std::uint8_t* data, std::size_t size, ForeignRead read,
                         ForeignRead read_written, ForeignWrite write) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  int messages = 0;
  std::unique_ptr<kelva::Domain> domain;
  try {
    domain.reset(read(text, nullptr, count_message, &messages));
  } catch (const kelva::Error& e) {
    CHECK(e.code() == K_ERROR_PARSE && messages == 1);
    return;
  }
  CHECK(messages == 0);
  const std::string written = write(*domain);
  const std::unique_ptr<kelva::Domain> again(read_written(written, nullptr, ignore, nullptr));
  CHECK(write(*again) == written);
}
