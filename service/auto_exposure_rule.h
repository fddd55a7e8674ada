#pragma once

// The ambient-light auto-exposure rule.
//
// From one measurement it proposes the exposure and the six gains of the next, so that the
// brightest channel lands at 70 % of full scale and each dimmer one near it; a measurement whose
// brightest channel is already at 30..70 % of what its exposure can hold is left alone. The common
// gain and the exposure trade against each other: the exposure stays at 115.2 ms, the shortest that
// can fill the counter, as long as a table gain does, and grows only for what the gain cannot give.
// All arithmetic is single precision; the bounds and the order of operations are part of the rule.

#include <cstdint>

namespace spectral {

constexpr int kAlsGains = 16;
constexpr float kAlsGainTable[kAlsGains] = {0.71f, 0.83f, 1.0f,  1.25f, 1.67f, 2.5f,
                                            3.33f, 5.0f,  7.1f,  10.0f, 16.0f, 25.0f,
                                            33.0f, 50.0f, 66.6f, 100.0f};
constexpr float kMinAlsGain = kAlsGainTable[0];

// Whether low..high are indices of the table in order.
constexpr bool is_gain_range(int low, int high) {
  return low <= high && low >= 0 && high < kAlsGains;
}

// The largest gain of the table's entries low..high (is_gain_range) not above `target`; the one at
// `low` if all are.
float look_up_gain(float target, int low, int high);

struct AlsMeasurement {
  std::uint8_t channels;  // delivered, bit n = channel n
  const float* value;     // per channel, six, normalised to `gain`
  float exposure_ms;
  float gain;  // smallest in use, as a factor
};

enum class AlsVerdict {
  kInRange,        // keep the configuration
  kBadExposure,    // measured outside the rule's limits: back to the default
  kSaturated,      // at the shortest exposure and smallest gain already: nothing better there is
  kNotWellPlaced,  // measure again as proposed
};

struct AlsProposal {
  AlsVerdict verdict;
  std::uint32_t exposure_us = 0;  // kSaturated and kNotWellPlaced only
  float gain[6] = {};             // likewise, per channel
};

AlsProposal propose_exposure(const AlsMeasurement& measured);

}  // namespace spectral
