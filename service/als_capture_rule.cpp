#include "service/als_capture_rule.h"

#include "driver/channel.h"

namespace spectral {

float smallest_gain(std::uint8_t delivered, const float* gain, float start) {
  float smallest = start;
  for (int n = 0; n < kChannels; ++n) {
    if (has_channel(delivered, n) && gain[n] < smallest) smallest = gain[n];
  }
  return smallest;
}

std::uint32_t scale_count(std::uint32_t count, float ratio) {
  return truncate_to<std::uint32_t>(static_cast<float>(count) / ratio);
}

}  // namespace spectral
