#include "predict_output.h"

#include "cli_error.h"

namespace kelva::cli {

PredictOutput::PredictOutput(const std::string& path) : path_(path) {
  stream_ = std::fopen(path.c_str(), "wbe");
  if (stream_ == nullptr) fail();
  std::setvbuf(stream_, nullptr, _IONBF, 0);
}

PredictOutput::~PredictOutput() {
  if (!path_.empty() && stream_ != nullptr) std::fclose(stream_);
}

void PredictOutput::fail() const {
  if (!path_.empty()) throw io_error(path_, FileUse::write);
  throw ApiError(K_ERROR_IO, "cannot write the output");
}

void PredictOutput::write(const char* data, std::size_t size) {
  if (std::fwrite(data, 1, size, stream_) != size) fail();
}

void PredictOutput::finish() {
  if (path_.empty()) return;
  std::FILE* const stream = stream_;
  stream_ = nullptr;
  if (std::fclose(stream) != 0) fail();
}

}  // namespace kelva::cli
