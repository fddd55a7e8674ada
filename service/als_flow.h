#pragma once

// What both services do alike for ambient light: each has the fields and operations used here, in
// its own units and by its own way to the chip.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "driver/flag.h"
#include "driver/status.h"
#include "platform/log.h"
#include "service/auto_exposure_rule.h"
#include "spectral_sensor_device.h"
#include "spectral_types.h"

namespace spectral {

constexpr int kReadyPolls = 8192;
constexpr std::chrono::milliseconds kPollPause{1};
constexpr std::uint32_t kReadOutTimeMs = 12;  // of the chip, behind the exposure
constexpr std::uint32_t kDefaultExposureUs = 320000;

// The service's answer to a step's status: 0, or -22 with the step's message in the log.

inline int answer_config(int status, const char* log_tag, std::uint32_t exposure_us) {
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(log_tag, "%s: Failed to config ALS %d,%u", "ConfigALS", status, exposure_us);
  return kFailed;
}

inline int answer_start(int status, const char* log_tag, std::uint32_t channels) {
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(log_tag, "%s: Cannot start ALS exposure  %d, channel=0x%x", "StartExpALS",
                     status, channels);
  return kFailed;
}

inline int answer_stop(int status, const char* log_tag) {
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(log_tag, "%s: Cannot stop ALS exposure  %d", "StopExpALS", status);
  return kFailed;
}

// Reads until a result is ready: once, or with `wait` each millisecond up to 8192 times or until
// `enabled` is cleared, which is not an error. `read(&ready)` reads once; a failure of it is logged
// where there is no waiting. Returns 0 or -22.
template <typename Read>
int read_when_ready(bool wait, const std::uint8_t& enabled, const char* log_tag,
                    std::uint32_t channels, bool* ready, Read read) {
  for (int passes = wait ? kReadyPolls : 1; passes > 0; --passes) {
    if (int status = read(ready)) {
      *ready = false;
      if (!wait) {
        SPECTRAL_LOG_ERROR(log_tag, "%s: ALS read failed, error code %d, channel=0x%x", "ReadALS",
                           status, channels);
      }
      return kFailed;
    }
    if (*ready || !wait) break;
    std::this_thread::sleep_for(kPollPause);
    if (!is_set(enabled)) break;
  }
  return *ready || wait ? kOk : kFailed;
}

// Sleeps until the exposure has ended or `enabled` is cleared.
inline void wait_for_exposure(std::uint32_t exposure_us, const std::uint8_t& enabled,
                              std::mutex* mutex, std::condition_variable* wake) {
  const auto aborted = [&enabled] { return !is_set(enabled); };
  std::unique_lock<std::mutex> lock(*mutex);
  if (aborted()) return;
  const std::chrono::milliseconds duration(exposure_us / 1000 + kReadOutTimeMs);
  wake->wait_until(lock, std::chrono::steady_clock::now() + duration, aborted);
}

// Configures and, if that worked, starts. Returns the exposure to wait for, microseconds.
template <typename Service>
std::uint32_t configure_and_start(Service* service) {
  ALSConfig working;
  if (service->ConfigALS(&service->m_alsConfig, &working) == kOk) {
    service->m_alsConfig = working;
    service->StartExpALS();
  }
  return working.exposureTime;
}

template <typename Service>
int capture_default(Service* service, SpectralSensorOutput* output) {
  configure_and_start(service);
  const int status = service->ReadALS(output != nullptr ? &output->als : nullptr, true);
  service->StopExpALS();
  return status;
}

template <typename Service>
int capture_auto_exposure(Service* service, SpectralSensorOutput* output) {
  if (output == nullptr) return kFailed;
  const std::uint32_t exposure_us = configure_and_start(service);
  wait_for_exposure(exposure_us, service->m_alsEnableFlag, &service->m_als_mtx, &service->m_als_cv);
  ALSResult measured = {};
  int status = service->ReadALS(&measured, false);
  service->StopExpALS();
  if (status == kOk) {
    service->CorrectALSRAW(&measured);
    ALSConfig proposal = service->m_alsConfig;
    bool stable = false;
    status = service->ALSAE(&measured, &proposal, &stable);
    if (status == kOk) service->m_alsConfig = proposal;
  }
  output->als = service->m_alsResult;  // after a failed read the previous result
  return status;
}

// The auto-exposure rule as an operation. `set_gains(next, gains)` writes a proposal's six gains in
// the service's unit; `reset_gain` is what a reset after a bad exposure gives every channel, as a
// gain.
template <typename SetGains>
int propose_config(const ALSResult* result, const ALSConfig& in_force, ALSConfig* next,
                   bool* stable, const char* log_tag, float reset_gain, SetGains set_gains) {
  if (result == nullptr || next == nullptr || stable == nullptr) return kFailed;
  if (result->channelMask == 0) return kFailed;
  AlsProposal proposal =
      propose_exposure({result->channelMask, result->value, result->exposureMs, result->gain});
  *stable = proposal.verdict == AlsVerdict::kInRange || proposal.verdict == AlsVerdict::kSaturated;
  if (proposal.verdict == AlsVerdict::kInRange) {
    *next = in_force;
    return kOk;
  }
  if (proposal.verdict == AlsVerdict::kBadExposure) {
    SPECTRAL_LOG_ERROR(log_tag, "%s: Wrong EXP config, reset to default", "ALSAE");
    proposal.exposure_us = kDefaultExposureUs;
    for (float& gain : proposal.gain) gain = reset_gain;
  }
  next->exposureTime = proposal.exposure_us;
  set_gains(next, proposal.gain);
  return kOk;
}

inline float checked_gain(float target, int low, int high, const char* log_tag) {
  if (is_gain_range(low, high)) return look_up_gain(target, low, high);
  SPECTRAL_LOG_ERROR(log_tag, "%s: Wroing input index, return min gain", "LookUpGain");
  return kMinAlsGain;
}

}  // namespace spectral
