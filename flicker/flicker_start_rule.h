#pragma once

// The search for the highest gain at which the flicker channel does not saturate.
//
// It is a binary search over the chip's fifteen gains (driver/exposure_gain_rule.h, highest first)
// that begins at the lowest gain and goes on in steps of 8, 4, 2 and 1: a trial that saturates
// steps to a lower gain, one that does not steps to a higher gain. When the search comes back to
// the lowest gain on the preferred channel, which the first trial does when it saturates, it begins
// again on the fallback channel. One last trial steps down once more if it saturates.

#include <algorithm>
#include <cstdint>

#include "driver/exposure_gain_rule.h"
#include "driver/flicker_detector_rule.h"

namespace spectral {

constexpr std::uint32_t kPreferredFlickerChannel = 0x20;
constexpr std::uint32_t kFallbackFlickerChannel = 0x04;

struct GainChoice {
  std::uint32_t channel;
  int index;  // of kGainQ8
};

// The sum of the statuses of a search. It wraps rather than overflows, whatever a driver returns.
class ErrorSum {
 public:
  void add(int status) { m_sum += static_cast<std::uint32_t>(status); }
  int value() const { return static_cast<int>(m_sum); }

 private:
  std::uint32_t m_sum = 0;
};

// The saturation counter of the flicker channel (registers 0x33 and 0x34) as it was last read: a
// byte whose read fails keeps its value.
struct SaturationCounter {
  std::uint8_t high = 0;
  std::uint8_t low = 0;

  bool is_saturated() const { return (high << 8 | low) >= kSaturatedCount; }
};

// Runs the search; `saturates(GainChoice)` runs one trial.
template <typename Trial>
GainChoice search_gain(Trial saturates) {
  constexpr int kLowest = kGains - 1;
  constexpr int kSteps = 4;
  GainChoice choice = {kPreferredFlickerChannel, kLowest};
  int steps_left = kSteps;
  while (steps_left > 0) {
    const int step = 1 << (steps_left - 1);
    choice.index = saturates(choice) ? std::min(choice.index + step, kLowest)
                                     : std::max(choice.index - step, 0);
    if (choice.index == kLowest && choice.channel == kPreferredFlickerChannel) {
      choice.channel = kFallbackFlickerChannel;
      steps_left = kSteps;
    } else {
      --steps_left;
    }
  }
  if (saturates(choice)) choice.index = std::min(choice.index + 1, kLowest);
  return choice;
}

}  // namespace spectral
