#pragma once

// The ambient-light auto-exposure rule.
//
// From one measurement the rule proposes the exposure and the six gains of the next one, so that
// the brightest channel comes to 70 % of full scale and each dimmer channel near it. A measurement
// whose brightest channel is at 30..70 % of what its exposure can hold is left alone. The exposure
// stays at 115.2 ms, the shortest that can fill the counter, as long as one of the table's gains
// gives the rest of the brightness; it grows only for what the gains cannot give. All arithmetic is
// single precision; the bounds and the order of operations are part of the rule.

#include <cstdint>

namespace spectral {

constexpr int kAlsGains = 16;
constexpr float kAlsGainTable[kAlsGains] = {0.71f, 0.83f, 1.0f,  1.25f, 1.67f, 2.5f,
                                            3.33f, 5.0f,  7.1f,  10.0f, 16.0f, 25.0f,
                                            33.0f, 50.0f, 66.6f, 100.0f};
constexpr float kMinAlsGain = kAlsGainTable[0];

// Whether low..high are indices of the table, in this order.
constexpr bool is_gain_range(int low, int high) {
  return low <= high && low >= 0 && high < kAlsGains;
}

// The largest gain not above `target` among the table's entries low..high, for which is_gain_range
// holds; the gain at `low` if all of them are above it.
float look_up_gain(float target, int low, int high);

struct AlsMeasurement {
  std::uint8_t channels;  // the channels delivered, bit n = channel index n
  const float* value;     // six, per channel, normalised to `gain`
  float exposure_ms;
  float gain;  // smallest in use, as a factor
};

enum class AlsVerdict {
  kInRange,        // keep the configuration
  kBadExposure,    // the exposure was outside the rule's limits: go back to the default
  kSaturated,      // saturated at the lowest setting already, so there is no better one
  kNotWellPlaced,  // measure again as proposed
};

struct AlsProposal {
  AlsVerdict verdict;
  // Set for kSaturated and kNotWellPlaced only.
  std::uint32_t exposure_us = 0;
  float gain[6] = {};  // per channel, factors
};

AlsProposal propose_exposure(const AlsMeasurement& measured);

}  // namespace spectral
