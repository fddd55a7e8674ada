// Flicker measured by the chip's own detector.

#include <algorithm>

#include "driver/register_access.h"
#include "driver/status.h"
#include "flicker/result_tracking.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kOk;

namespace {

constexpr int kMinPolls = 8192;
constexpr int kMaxPolls = 81920;

// Polls the detector, without a pause, until it fails or has an answer; at most `polls` times.
int poll_detector(SpectralSensorDevice* sensor, VD6281_FlickerInfo_t* info, int polls) {
  int status = kOk;
  do {
    status = sensor->VD6281_GetFlickerFrequency(info);
  } while (status == kOk && info->confidence == 0 && --polls > 0);
  return status;
}

void log_read_failed(const char* operation, int status, std::uint32_t channel) {
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: FLK read failed, error code %d, channel=0x%x", operation,
                     status, channel);
}

}  // namespace

int SpectralSensorDevice::VD6281_GetFlickerFrequency_Ref(VD6281_FlickerInfo_t* info, int polls) {
  if (info == nullptr) return spectral::kArgumentRefused;
  StartExpFLK_AutoGain();
  const int status = poll_detector(this, info, std::clamp(polls, kMinPolls, kMaxPolls));
  StopExpFLK();
  info->channel = static_cast<std::uint8_t>(m_flkChannelMask);
  info->gain = m_flkGain;
  if (status != kOk) {
    log_read_failed("VD6281_GetFlickerFrequency_Ref", status, m_flkChannelMask);
  }
  return status;
}

int SpectralSensorDevice::ReadFLK(FlickerResult* result) {
  if (result == nullptr) return kFailed;
  VD6281_FlickerInfo_t info = {};
  info.frequency = 50;
  info.confidence = 3;
  const int status = poll_detector(this, &info, kMinPolls);
  *result = {};
  result->freq_a = spectral::kMains50Hz;
  result->freq_b = spectral::kMains60Hz;
  if (status != kOk) {
    log_read_failed("ReadFLK", status, m_flkChannelMask);
    return kFailed;
  }
  if (info.frequency == spectral::kMains60Hz) {
    result->strength_b = info.confidence;
  } else if (info.frequency == spectral::kMains50Hz) {
    result->strength_a = info.confidence;
  } else {
    result->dominant_freq = info.frequency;
    result->dominant_strength = info.confidence;
  }
  result->channel = info.channel;  // the detector's answer names neither
  result->gain = static_cast<float>(info.gain);
  return kOk;
}
