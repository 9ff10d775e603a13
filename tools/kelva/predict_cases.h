// The text of a multi-case data file cut into chunks of lines, so that
// `kelva predict`'s workers read their own chunks at the same time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::cli {

/// A data file mapped into memory: its first line (the header of node
/// names) and the rest, cut every `lines` lines.
class CutCases {
 public:
  /// The file `name` cut into chunks of `lines` lines, or null when it is
  /// better read whole: it cannot be mapped, it is empty, holds a NUL
  /// character or has no case line, or its first line holds no name.
  static std::unique_ptr<CutCases> cut(const std::string& name, std::size_t lines);
  ~CutCases();
  CutCases(const CutCases&) = delete;
  CutCases& operator=(const CutCases&) = delete;

  std::size_t chunks() const noexcept { return starts_.size() - 1; }
  /// The case lines of chunk `c`: those holding anything but blanks and a
  /// comment.  read() gives as many cases when the file has one case a line.
  std::size_t cases(std::size_t c) const noexcept { return cases_[c]; }

  /// Appends the cases of chunks `c` to `end` (not included) to the stored
  /// cases of `domain`, read as the whole file would read them (the header,
  /// then the chunks' lines) with `text` as room.  False when the reader
  /// reported anything, an error or a warning: the file is then read whole,
  /// so that messages name its lines.
  bool read(k_domain_t domain, std::size_t c, std::size_t end, std::string& text) const;

 private:
  CutCases(const char* data, std::size_t size) : data_(data), size_(size) {}
  const char* data_;
  std::size_t size_;
  std::string_view header_;
  /// Chunk c is the text from starts_[c] to starts_[c + 1].
  std::vector<std::size_t> starts_;
  std::vector<std::size_t> cases_;
};

}  // namespace kelva::cli
