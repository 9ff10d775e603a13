// Where `kelva predict` writes its text: a file named by -o, or a stream.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace kelva::cli {

/// The output of `kelva predict`: the text goes to the file or stream as it
/// comes, in the writer thread's chunks.  A file named by -o is unbuffered,
/// so that each chunk goes out with one write(2) straight from its slot,
/// through the page cache (writes past the cache, O_DIRECT, wait for the
/// device, and the workers then wait for the writer).
class PredictOutput {
 public:
  /// Creates or truncates the file `path`; throws an error naming it.
  explicit PredictOutput(const std::string& path);
  /// Writes to `stream`, which stays open.
  explicit PredictOutput(std::FILE* stream) : stream_(stream) {}
  ~PredictOutput();
  PredictOutput(const PredictOutput&) = delete;
  PredictOutput& operator=(const PredictOutput&) = delete;

  void write(const char* data, std::size_t size);
  /// Closes the file opened here; throws on failure.
  void finish();

 private:
  [[noreturn]] void fail() const;

  std::FILE* stream_ = nullptr;
  std::string path_;  ///< empty for a stream not opened here
};

}  // namespace kelva::cli
