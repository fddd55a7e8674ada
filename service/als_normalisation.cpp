#include "service/als_normalisation.h"

#include <limits>

#include "driver/channel.h"

namespace spectral {

namespace {

constexpr float kTwoToThe32 = 4294967296.0f;

std::uint32_t truncate(float value) {
  if (!(value > 0.0f)) return 0;  // NaN too
  if (value >= kTwoToThe32) return std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(value);
}

}  // namespace

float smallest_gain(std::uint8_t delivered, const float* gain, float start) {
  float smallest = start;
  for (int n = 0; n < reg::kChannels; ++n) {
    if (has_channel(delivered, n) && gain[n] < smallest) smallest = gain[n];
  }
  return smallest;
}

std::uint32_t scale_count(std::uint32_t count, float ratio) {
  return truncate(static_cast<float>(count) / ratio);
}

}  // namespace spectral
