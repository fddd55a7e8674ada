// Flicker measured by the chip's own detector.

#include <algorithm>

#include "driver/register_access.h"
#include "driver/status.h"
#include "flicker/flicker_flow.h"
#include "spectral_sensor_device.h"

using spectral::kDriverTag;
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

}  // namespace

int SpectralSensorDevice::VD6281_GetFlickerFrequency_Ref(VD6281_FlickerInfo_t* info, int polls) {
  if (info == nullptr) return spectral::kArgumentRefused;
  StartExpFLK_AutoGain();
  const int status = poll_detector(this, info, std::clamp(polls, kMinPolls, kMaxPolls));
  StopExpFLK();
  info->channel = static_cast<std::uint8_t>(m_flkChannelMask);
  info->gain = m_flkGain;
  if (status != kOk) {
    spectral::log_flicker_read_failed("VD6281_GetFlickerFrequency_Ref", status, kDriverTag,
                                      m_flkChannelMask);
  }
  return status;
}

int SpectralSensorDevice::ReadFLK(FlickerResult* result) {
  return spectral::read_detector<VD6281_FlickerInfo_t>(
      result, kDriverTag, m_flkChannelMask,
      [this](VD6281_FlickerInfo_t* info) { return poll_detector(this, info, kMinPolls); });
}
