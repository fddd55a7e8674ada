#pragma once

// What the chip makes of a requested exposure, measurement period or gain, and which colour is
// behind a channel.

#include <cstdint>

#include "driver/fixed_point.h"
#include "vd6281.h"

namespace spectral {

// The exposure is a count of 1..1023 steps of 1.6 ms: the nearest to the request, halves upward.
constexpr std::uint32_t kExposureStepUs = 1600;
constexpr std::uint32_t kMinExposureCount = 1;
constexpr std::uint32_t kMaxExposureCount = 1023;
std::uint32_t exposure_count(std::uint32_t exposure_us);

// The inter-measurement period is a count of 0..255 steps of 20.5 ms: the nearest to the request,
// halves upward.
constexpr std::uint32_t kPeriodStepUs = 20500;
constexpr std::uint32_t kMaxPeriodCount = 255;
std::uint8_t period_count(std::uint32_t period_us);

// The chip has fifteen gains, here in 8.8 fixed point and highest first; entry i is gain code
// i + 1.
constexpr int kGains = 15;
constexpr std::uint16_t kGainQ8[kGains] = {17067, 12800, 8532, 6400, 4267,         2560, 1827, 1280,
                                           852,   640,   427,  320,  kUnityGainQ8, 212,  181};

constexpr int kUnityGainIndex = 12;
static_assert(kGainQ8[kUnityGainIndex] == kUnityGainQ8);

// The index of the gain that is nearest to the request; half-way the smaller gain.
int gain_index(std::uint16_t gain_q8);
constexpr std::uint8_t gain_code(int index) { return static_cast<std::uint8_t>(index + 1); }

// The colour of the channel index 0..5 by the color map code of the OTP (0..7; a larger code counts
// modulo 8).
VD6281_Color_Id_t channel_color(int color_map, int index);

}  // namespace spectral
