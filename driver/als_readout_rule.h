#pragma once

// Correcting a channel's count by its slope from the OTP, in units of 1/128.

#include <algorithm>
#include <cstdint>

namespace spectral {

constexpr std::uint32_t kMaxCount = 0xFFFFFF;
constexpr std::uint8_t kUnitSlope = 128;

// Truncates, and saturates at the 24 bits of a count.
constexpr std::uint32_t correct_slope(std::uint8_t slope, std::uint32_t raw_count) {
  return std::min((slope * raw_count) >> 7, kMaxCount);
}

}  // namespace spectral
