#pragma once

// What the ALS result registers hold: counts of 24 bits, and their correction by the OTP's slopes.

#include <algorithm>
#include <cstdint>

namespace spectral {

constexpr std::uint32_t kMaxCount = 0xFFFFFF;
constexpr std::uint8_t kUnitSlope = 128;

// A count from the three registers of its channel.
constexpr std::uint32_t count_of(std::uint8_t high, std::uint8_t middle, std::uint8_t low) {
  return static_cast<std::uint32_t>(high << 16 | middle << 8 | low);
}

// A raw count corrected by a slope in units of 1/128: the fraction is cut off, and the result
// saturates at the 24 bits of a count.
constexpr std::uint32_t correct_slope(std::uint8_t slope, std::uint32_t raw_count) {
  return std::min((slope * raw_count) >> 7, kMaxCount);
}

}  // namespace spectral
