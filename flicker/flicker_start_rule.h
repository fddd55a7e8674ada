#pragma once

// The search for the highest gain at which the flicker channel does not saturate.
//
// A binary search over the ladder of the chip's fifteen gains (driver/exposure_gain_rule.h, highest
// first) from the lowest on, with steps of 8, 4, 2 and 1: a trial that saturates steps to less
// gain, one that does not to more. Where the search comes back to the lowest gain on the preferred
// channel, which the first trial does when it saturates, it begins again on the fallback channel. A
// last trial steps back once more if it saturates.

#include <algorithm>
#include <cstdint>

#include "driver/exposure_gain_rule.h"

namespace spectral {

constexpr std::uint32_t kPreferredFlickerChannel = 0x20;
constexpr std::uint32_t kFallbackFlickerChannel = 0x04;

struct GainChoice {
  std::uint32_t channel;
  int index;  // of the ladder
};

// The sum of the trials' results; it wraps rather than overflows, whatever a driver returns.
class ErrorSum {
 public:
  void add(int status) { m_sum += static_cast<std::uint32_t>(status); }
  int value() const { return static_cast<int>(m_sum); }

 private:
  std::uint32_t m_sum = 0;
};

// `saturates(GainChoice)` runs one trial.
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

// Searches by a facade's trials and leaves the measurement running at the gain found, which
// `applied` gets. Returns the sum of all results.
template <typename Trials, typename Gain>
int search_and_start(Trials* trials, Gain* applied) {
  const GainChoice choice =
      search_gain([trials](const GainChoice& trial) { return trials->saturates(trial); });
  trials->start(choice, applied);
  return trials->errors();
}

}  // namespace spectral
