// Where `kelva predict` writes its text: a file named by -o, or a stream.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

namespace kelva::cli {

/// The output of `kelva predict`.  A regular file is written in aligned
/// blocks past the page cache (O_DIRECT), which spares the kernel's copy of
/// every byte, and its tail through the cache; where the system refuses
/// that (the open flag, or the first block), and for any other file, the
/// text is written as it comes.
class PredictOutput {
 public:
  /// Creates or truncates the file `path`, written past the cache when
  /// `direct`; throws an error naming it.
  PredictOutput(const std::string& path, bool direct);
  /// Writes to `stream`, which stays open.
  explicit PredictOutput(std::FILE* stream) : stream_(stream) {}
  ~PredictOutput();
  PredictOutput(const PredictOutput&) = delete;
  PredictOutput& operator=(const PredictOutput&) = delete;

  void write(const char* data, std::size_t size);
  /// Writes what is held and closes the file; throws on failure.
  void finish();

 private:
  /// Writes the held block whole, past the cache while allowed.
  void write_block();
  /// Writes `size` bytes through the page cache.
  void write_all(const char* data, std::size_t size);
  /// Stops writing past the cache; the block held is then written as text.
  void stop_direct();
  [[noreturn]] void fail() const;

  std::FILE* stream_ = nullptr;
  std::string path_;
  int fd_ = -1;
  bool direct_ = false;
  /// The block being filled, aligned for O_DIRECT.
  struct Free {
    void operator()(char* p) const noexcept;
  };
  std::unique_ptr<char, Free> block_;
  std::size_t held_ = 0;
};

}  // namespace kelva::cli
