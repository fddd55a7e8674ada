#include "driver/exposure_gain_rule.h"

#include <algorithm>
#include <limits>

namespace spectral {

namespace {

// value / step to the nearest, for values too close to the top to add half a step as well.
std::uint32_t nearest_multiple(std::uint32_t value, std::uint32_t step) {
  const std::uint32_t half = step / 2;
  const std::uint32_t top = std::numeric_limits<std::uint32_t>::max();
  return (value > top - half ? top : value + half) / step;
}

}  // namespace

std::uint32_t exposure_count(std::uint32_t exposure_us) {
  const std::uint32_t count = nearest_multiple(exposure_us, kExposureStepUs);
  return std::clamp(count, kMinExposureCount, kMaxExposureCount);
}

std::uint8_t period_count(std::uint32_t period_us) {
  const std::uint32_t count = nearest_multiple(period_us, kPeriodStepUs);
  return static_cast<std::uint8_t>(std::min(count, kMaxPeriodCount));
}

int gain_index(std::uint16_t gain_q8) {
  int index = 0;
  while (index < kGains - 1 && 2 * gain_q8 <= kGainQ8[index] + kGainQ8[index + 1]) ++index;
  return index;
}

}  // namespace spectral
