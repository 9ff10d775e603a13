#include "cli_error.h"

namespace kelva::cli {

ApiError::ApiError(k_error_t code)
    : std::runtime_error(std::string(k_error_name(code)) + ": " + k_error_description(code)),
      code_(code) {}

}  // namespace kelva::cli
