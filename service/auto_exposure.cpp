// The auto-exposure capture: measure, apply the calibration, propose the next configuration.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>

#include "driver/shared_state.h"
#include "flicker/facade_traits.h"
#include "platform/log.h"
#include "service/als_capture.h"
#include "service/auto_exposure_rule.h"
#include "service/calibration.h"
#include "spectral_status.h"

using spectral::AlsProposal;
using spectral::AlsVerdict;
using spectral::DeviceTraits;
using spectral::FacadeTraits;
using spectral::LayeredTraits;

namespace {

constexpr std::uint32_t kReadOutTimeMs = 12;  // what the chip needs after the exposure
constexpr std::chrono::milliseconds kLongestSleep{20};

// Sleeps until the exposure has ended or the ALS enable flag is cleared. SetEnableFlag takes no
// lock, so that its wake-up may fall between the test of the flag and the sleep and be lost: no
// sleep is longer than a slice, after which the flag is tested again.
template <typename Facade>
void wait_for_exposure(Facade& facade, std::uint32_t exposure_us) {
  const std::chrono::milliseconds duration(exposure_us / 1000 + kReadOutTimeMs);
  std::unique_lock<std::mutex> lock(facade.m_als_mtx);
  auto slept_until = std::chrono::steady_clock::now();
  const auto deadline = slept_until + duration;
  while (spectral::is_set(facade.m_alsEnableFlag) && slept_until < deadline) {
    const auto slice_end = std::min(slept_until + kLongestSleep, deadline);
    if (facade.m_als_cv.wait_until(lock, slice_end) == std::cv_status::timeout) {
      slept_until = slice_end;
    }
  }
}

template <typename Facade>
int capture(Facade& facade, SpectralSensorOutput* output) {
  if (output == nullptr) return SPECTRAL_FAILED;
  wait_for_exposure(facade, spectral::configure_and_start(facade));
  // Looked at once, as the first Init(2) may validate the factors in the middle of a capture.
  const bool calibrated = spectral::is_set(facade.m_calibrationValid);
  ALSResult measured = {};
  int status = spectral::read_als(facade, calibrated, false, &measured);
  facade.StopExpALS();
  if (status == SPECTRAL_OK) {
    spectral::store_result(facade, calibrated, measured);
    ALSConfig proposal = facade.m_alsConfig;
    bool stable = false;
    status = facade.ALSAE(&measured, &proposal, &stable);
    if (status == SPECTRAL_OK) facade.m_alsConfig = proposal;
  }
  output->als = facade.m_alsResult;  // after a failed read this is the previous result
  return status;
}

// The auto-exposure rule as an operation, with the gains in the facade's unit.
template <typename Facade>
int propose(const Facade& facade, const ALSResult* result, ALSConfig* next, bool* stable) {
  using Traits = FacadeTraits<Facade>;
  if (result == nullptr || next == nullptr || stable == nullptr) return SPECTRAL_FAILED;
  if (result->channelMask == 0) return SPECTRAL_FAILED;
  AlsProposal proposal = spectral::propose_exposure(
      {result->channelMask, result->value, result->exposureMs, result->gain});
  *stable = proposal.verdict == AlsVerdict::kInRange || proposal.verdict == AlsVerdict::kSaturated;
  if (proposal.verdict == AlsVerdict::kInRange) {
    *next = facade.m_alsConfig;
    return SPECTRAL_OK;
  }
  if (proposal.verdict == AlsVerdict::kBadExposure) {
    SPECTRAL_LOG_ERROR(Traits::kLogTag, "%s: Wrong EXP config, reset to default", "ALSAE");
    proposal.exposure_us = ALSConfig().exposureTime;
    std::fill(std::begin(proposal.gain), std::end(proposal.gain), Traits::kResetGain);
  }
  next->exposureTime = proposal.exposure_us;
  Traits::set_gains(proposal.gain, next);
  return SPECTRAL_OK;
}

template <typename Facade>
float look_up(const Facade&, float target, int low, int high) {
  if (spectral::is_gain_range(low, high)) return spectral::look_up_gain(target, low, high);
  // "Wroing" is part of the fixed text.
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag, "%s: Wroing input index, return min gain",
                     "LookUpGain");
  return spectral::kMinAlsGain;
}

}  // namespace

void DeviceTraits::set_gains(const float (&gains)[6], ALSConfig* next) {
  std::transform(std::begin(gains), std::end(gains), next->gainCode, spectral::to_gain_q8);
}
void LayeredTraits::set_gains(const float (&gains)[6], ALSConfig* next) {
  std::copy(std::begin(gains), std::end(gains), next->channelGain);
}

int SpectralSensorDevice::CaptureALSAE(SpectralSensorOutput* output) {
  return capture(*this, output);
}
int SpectralSensor::CaptureALSAE(SpectralSensorOutput* output) { return capture(*this, output); }

int SpectralSensorDevice::ALSAE(ALSResult* result, ALSConfig* next, bool* stable) {
  return propose(*this, result, next, stable);
}
int SpectralSensor::ALSAE(ALSResult* result, ALSConfig* next, bool* stable) {
  return propose(*this, result, next, stable);
}

float SpectralSensorDevice::LookUpGain(float target, int low, int high) {
  return look_up(*this, target, low, high);
}
float SpectralSensor::LookUpGain(float target, int low, int high) {
  return look_up(*this, target, low, high);
}
