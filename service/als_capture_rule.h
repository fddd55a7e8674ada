#pragma once

// Bringing channels measured with different gains to one scale: that of the smallest gain in use.

#include <cstdint>

namespace spectral {

// The smallest of `start` and the gains (six) of the channels in `delivered`.
float smallest_gain(std::uint8_t delivered, const float* gain, float start);

// count / ratio without its fraction; 0 for NaN, all ones for what does not fit.
std::uint32_t scale_count(std::uint32_t count, float ratio);

}  // namespace spectral
