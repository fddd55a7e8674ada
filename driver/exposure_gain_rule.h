#pragma once

// What the chip can do with a requested exposure, period or gain.

#include <cstdint>

#include "driver/truncate.h"

namespace spectral {

// Exposure: a count of 1..1023 steps of 1.6 ms, nearest to the request, halves upward.
constexpr std::uint32_t kExposureStepUs = 1600;
constexpr std::uint32_t kMinExposureCount = 1;
constexpr std::uint32_t kMaxExposureCount = 1023;
std::uint32_t exposure_count(std::uint32_t exposure_us);

// Inter-measurement period: a count of 0..255 steps of 20.5 ms, nearest, halves upward.
constexpr std::uint32_t kPeriodStepUs = 20500;
constexpr std::uint32_t kMaxPeriodCount = 255;
std::uint8_t period_count(std::uint32_t period_us);

// Gain: fifteen of them in 8.8 fixed point, highest first; entry i is the chip's code i + 1.
constexpr int kGains = 15;
constexpr std::uint16_t kGainQ8[kGains] = {17067, 12800, 8532, 6400, 4267, 2560, 1827, 1280,
                                           852,   640,   427,  320,  256,  212,  181};

// Between an 8.8 gain and the factor it stands for; a factor beyond the code's range saturates.
constexpr float kUnitOfLastPlace = 0.00390625f;  // 1/256, of 8.8 gains and of 24-bit counts
constexpr float gain_factor(std::uint16_t gain_q8) {
  return static_cast<float>(gain_q8) * kUnitOfLastPlace;
}
constexpr std::uint16_t to_gain_q8(float factor) {
  return truncate_to<std::uint16_t>(factor / kUnitOfLastPlace);
}

// Index of the gain nearest to the request; half-way the smaller gain.
int gain_index(std::uint16_t gain_q8);
constexpr std::uint8_t gain_code(int index) { return static_cast<std::uint8_t>(index + 1); }

}  // namespace spectral
