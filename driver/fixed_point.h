#pragma once

// Conversions between floats and the integers and 8.8 fixed-point codes of the chip.

#include <cstdint>
#include <limits>

namespace spectral {

// The integer part of a float: a value that does not fit saturates, NaN gives 0.
template <typename Integer>
constexpr Integer truncate_to(float value) {
  if (value != value) return 0;
  if (value <= static_cast<float>(std::numeric_limits<Integer>::min())) {
    return std::numeric_limits<Integer>::min();
  }
  if (value >= static_cast<float>(std::numeric_limits<Integer>::max())) {
    return std::numeric_limits<Integer>::max();
  }
  return static_cast<Integer>(value);
}

// The weight of the lowest bit of an 8.8 gain, and of a 24-bit count.
constexpr float kFixedPointStep = 0.00390625f;  // 1/256

constexpr std::uint16_t kUnityGainQ8 = 256;

// The factor that an 8.8 gain code stands for.
constexpr float gain_factor(std::uint16_t gain_q8) {
  return static_cast<float>(gain_q8) * kFixedPointStep;
}

// The 8.8 code of a gain factor, its fraction cut off; a factor beyond the code's range saturates.
constexpr std::uint16_t to_gain_q8(float factor) {
  return truncate_to<std::uint16_t>(factor / kFixedPointStep);
}

}  // namespace spectral
