#pragma once

// Bringing the counts of channels that were measured with different gains to one scale, that of the
// smallest gain in use, and the values that they become.

#include <cstdint>

#include "driver/fixed_point.h"

namespace spectral {

// What a value can be at most: the full scale of a channel's counter.
constexpr float kFullScale = 65535.0f;

// The highest gain of the auto-exposure, where the search for the smallest gain in use begins.
constexpr float kHighestAlsGain = 100.0f;

constexpr float kUsPerMs = 1000.0f;

// The smallest of `start` and the gains (six) of the channels in `delivered`.
float smallest_gain(std::uint8_t delivered, const float* gain, float start);

// A count divided by `ratio`, its fraction cut off: NaN gives 0, and what does not fit saturates.
std::uint32_t scale_count(std::uint32_t count, float ratio);

// A scaled count as a value: a count has eight bits of fraction.
constexpr float value_of(std::uint32_t scaled_count) {
  return static_cast<float>(scaled_count) * kFixedPointStep;
}

}  // namespace spectral
