#include "service/auto_exposure_rule.h"

#include <algorithm>

#include "driver/channel.h"
#include "service/als_capture_rule.h"

namespace spectral {

namespace {

constexpr float kMinExposureMs = 1.6f;
constexpr float kBaseExposureMs = 115.2f;
constexpr float kMaxExposureMs = 1638.4f;
constexpr std::uint32_t kBaseExposureUs = 115200;

// What a channel's counter takes in each step of exposure.
constexpr float kCountsPerStep = 910.0f;
constexpr float kStepUs = 1600.0f;

constexpr float kInRangeLow = 0.3f;
constexpr float kInRangeHigh = 0.7f;
constexpr float kTarget = 45874.5f;  // 70 % of full scale

// Beyond these the brightest channel is clipped, or too dark, to scale by; the next measurement is
// made darker or brighter by a fixed step.
constexpr float kClipped = 65534.0f;
constexpr float kClippedStep = 0.5f;
constexpr float kDark = 1.0f;
constexpr float kDarkStep = 100.0f;

constexpr int kHighestCommonGain = 12;  // 33.0; only single channels go above
constexpr int kHighestGain = kAlsGains - 1;

// What a channel can count at most in this exposure.
float saturation_level(float exposure_ms) {
  if (!(exposure_ms < kBaseExposureMs)) return kFullScale;
  const float level = exposure_ms * 1000.0f / kStepUs * kCountsPerStep;
  return static_cast<float>(
      static_cast<std::uint32_t>(std::clamp(level, kCountsPerStep, kFullScale)));
}

// How much brighter the next measurement should come out.
float step_towards_target(float brightest) {
  if (brightest >= kClipped) return kClippedStep;
  if (brightest <= kDark) return kDarkStep;
  return kTarget / brightest;
}

// A gain and an exposure for all channels, whose product is as near to the wanted one as it can be.
struct Setting {
  float gain;
  float exposure_ms;
};

Setting split_into_gain_and_exposure(float product) {
  Setting setting = {look_up_gain(product, 0, kHighestCommonGain), kBaseExposureMs};
  const float missing = product / setting.gain;
  if (!(missing > 1.0f)) return setting;
  setting.exposure_ms = missing * kBaseExposureMs;
  if (setting.exposure_ms > kMaxExposureMs) {
    const float wanted = setting.gain * (setting.exposure_ms / kMaxExposureMs);
    setting = {look_up_gain(wanted, 0, kHighestGain), kMaxExposureMs};
  }
  return setting;
}

}  // namespace

float look_up_gain(float target, int low, int high) {
  while (low + 1 < high) {
    const int middle = (low + high) / 2;
    (kAlsGainTable[middle] <= target ? low : high) = middle;
  }
  return kAlsGainTable[kAlsGainTable[high] <= target ? high : low];
}

AlsProposal propose_exposure(const AlsMeasurement& measured) {
  const float exposure_ms = measured.exposure_ms;
  if (exposure_ms < kMinExposureMs || exposure_ms > kMaxExposureMs) {
    return {AlsVerdict::kBadExposure};
  }
  float brightest = 0.0f;
  for (int n = 0; n < kChannels; ++n) {
    if (has_channel(measured.channels, n)) brightest = std::max(brightest, measured.value[n]);
  }

  const float saturation = saturation_level(exposure_ms);
  if (kInRangeLow * saturation <= brightest && brightest <= kInRangeHigh * saturation) {
    return {AlsVerdict::kInRange};
  }
  if (brightest >= saturation && exposure_ms <= kBaseExposureMs && measured.gain <= kMinAlsGain) {
    AlsProposal proposal = {AlsVerdict::kSaturated, kBaseExposureUs};
    std::fill_n(proposal.gain, kChannels, kMinAlsGain);
    return proposal;
  }

  const float step = step_towards_target(brightest);
  const Setting common =
      split_into_gain_and_exposure(exposure_ms * measured.gain * step / kBaseExposureMs);
  AlsProposal proposal = {AlsVerdict::kNotWellPlaced,
                          static_cast<std::uint32_t>(common.exposure_ms * 1000.0f)};
  for (int n = 0; n < kChannels; ++n) {
    proposal.gain[n] = common.gain;
    if (!has_channel(measured.channels, n)) continue;
    const float dimmer_by = brightest / std::max(measured.value[n], 1.0f);
    proposal.gain[n] = look_up_gain(common.gain * dimmer_by, 0, kHighestGain);
  }
  return proposal;
}

}  // namespace spectral
