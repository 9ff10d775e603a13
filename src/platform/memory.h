#pragma once

#include <cstdint>

namespace kelva::platform {

/// Whether an allocation of `bytes` can be attempted: false for byte counts
/// beyond the machine's physical memory (and for the saturated all-ones
/// count), which could never be used and which some allocators treat as fatal.
bool allocation_possible(std::uint64_t bytes) noexcept;

}  // namespace kelva::platform
