#include "driver/exposure_gain_rule.h"

#include <algorithm>
#include <limits>

#include "driver/channel.h"

namespace spectral {

namespace {

// The maps that name the colours; every other one leaves them unknown.
constexpr int kColorMaps = 8;
constexpr int kFirstKnownColorMap = 2;
constexpr int kSecondKnownColorMap = 5;
constexpr VD6281_Color_Id_t kColors[kChannels] = {VD6281_COLOR_RED,   VD6281_COLOR_GREEN,
                                                  VD6281_COLOR_BLUE,  VD6281_COLOR_INFRARED,
                                                  VD6281_COLOR_CLEAR, VD6281_COLOR_UNKNOWN};

// `value` / `step`, rounded to the nearest. A value to which half a step cannot be added without an
// overflow is rounded down.
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

VD6281_Color_Id_t channel_color(int color_map, int index) {
  const int row = color_map % kColorMaps;
  const bool known = row == kFirstKnownColorMap || row == kSecondKnownColorMap;
  return known ? kColors[index] : VD6281_COLOR_UNKNOWN;
}

}  // namespace spectral
