// Numbers written as printf("%.17g") writes them, fast.
#pragma once

namespace kelva::cli {

/// Room a written number needs.
inline constexpr int kNumberRoom = 32;

/// Writes `x` at `out` (kNumberRoom characters of room) exactly as
/// std::printf("%.17g", x) does in the C locale and returns the end.  Most
/// numbers (magnitudes from 1e-16 to 1e17) are rounded with exact 128-bit
/// integer arithmetic; the rest go through std::to_chars.
char* write_g17(char* out, double x) noexcept;

}  // namespace kelva::cli
