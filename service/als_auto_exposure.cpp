// The auto-exposure capture: measures with the configuration that the previous one proposed, and
// proposes the next. The rule is in auto_exposure.h.

#include <algorithm>
#include <chrono>
#include <iterator>
#include <mutex>

#include "driver/register_access.h"
#include "driver/status.h"
#include "driver/truncate.h"
#include "platform/log.h"
#include "service/auto_exposure.h"
#include "spectral_sensor_device.h"

using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kOk;

namespace {

constexpr std::uint32_t kDefaultExposureUs = 320000;
constexpr std::uint16_t kResetGainCode = 1;  // the reset really programs code 1, not unity
constexpr std::uint32_t kReadOutTimeMs = 12;

// Sleeps until the exposure has ended or `flag` is cleared.
void wait_for_exposure(std::uint32_t exposure_us, const SpectralFlag& flag, std::mutex* mutex,
                       std::condition_variable* wake) {
  const auto aborted = [&flag] { return flag.load(std::memory_order_relaxed) == 0; };
  std::unique_lock<std::mutex> lock(*mutex);
  if (aborted()) return;
  const std::chrono::milliseconds duration(exposure_us / 1000 + kReadOutTimeMs);
  wake->wait_until(lock, std::chrono::steady_clock::now() + duration, aborted);
}

}  // namespace

float SpectralSensorDevice::LookUpGain(float target, int low, int high) {
  if (spectral::is_gain_range(low, high)) return spectral::look_up_gain(target, low, high);
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Wroing input index, return min gain", "LookUpGain");
  return spectral::kMinAlsGain;
}

int SpectralSensorDevice::ALSAE(ALSResult* result, ALSConfig* next, bool* stable) {
  if (result == nullptr || next == nullptr || stable == nullptr) return kFailed;
  if (result->channelMask == 0) return kFailed;
  const spectral::AlsProposal proposal = spectral::propose_exposure(
      {result->channelMask, result->value, result->exposureMs, result->gain});
  *stable = proposal.verdict == spectral::AlsVerdict::kInRange ||
            proposal.verdict == spectral::AlsVerdict::kSaturated;
  switch (proposal.verdict) {
    case spectral::AlsVerdict::kInRange:
      *next = m_alsConfig;
      break;
    case spectral::AlsVerdict::kBadExposure:
      SPECTRAL_LOG_ERROR(kDriverTag, "%s: Wrong EXP config, reset to default", "ALSAE");
      next->exposureTime = kDefaultExposureUs;
      std::fill(std::begin(next->gainCode), std::end(next->gainCode), kResetGainCode);
      break;
    case spectral::AlsVerdict::kSaturated:
    case spectral::AlsVerdict::kNotWellPlaced:
      next->exposureTime = proposal.exposure_us;
      std::transform(
          std::begin(proposal.gain), std::end(proposal.gain), next->gainCode,
          [](float gain) { return spectral::truncate_to<std::uint16_t>(gain * 256.0f); });
      break;
  }
  return kOk;
}

int SpectralSensorDevice::CaptureALSAE(SpectralSensorOutput* output) {
  if (output == nullptr) return kFailed;
  ALSConfig working;
  if (ConfigALS(&m_alsConfig, &working) == kOk) {
    m_alsConfig = working;
    StartExpALS();
  }
  wait_for_exposure(working.exposureTime, m_alsEnableFlag, &m_als_mtx, &m_als_cv);
  ALSResult measured = {};
  int status = ReadALS(&measured, false);
  StopExpALS();
  if (status == kOk) {
    CorrectALSRAW(&measured);
    ALSConfig proposal = m_alsConfig;
    bool stable = false;
    status = ALSAE(&measured, &proposal, &stable);
    if (status == kOk) m_alsConfig = proposal;
  }
  output->als = m_alsResult;  // after a failed read the previous result
  return status;
}
