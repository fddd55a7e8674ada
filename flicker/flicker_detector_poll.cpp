// Flicker as the chip's own detector finds it: asking the detector until it has an answer.

#include <algorithm>

#include "flicker/facade_traits.h"
#include "flicker/result_tracking_rule.h"
#include "platform/log.h"
#include "spectral_status.h"

using spectral::DeviceTraits;
using spectral::FacadeTraits;
using spectral::LayeredTraits;

namespace {

constexpr int kMinPolls = 8192;
constexpr int kMaxPolls = 81920;

// Asks the detector, without a pause, until it fails or has an answer; at most `polls` times.
int poll_at_most(int polls, SpectralSensorDevice& sensor, VD6281_FlickerInfo_t* info) {
  int status = SPECTRAL_OK;
  do {
    status = sensor.VD6281_GetFlickerFrequency(info);
  } while (status == SPECTRAL_OK && info->confidence == 0 && --polls > 0);
  return status;
}

template <typename Facade>
void log_read_failed(const Facade& facade, const char* operation, int status) {
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag,
                     "%s: FLK read failed, error code %d, channel=0x%x", operation, status,
                     facade.m_flkChannelMask);
}

// The detector's frequency goes into the result as one of the mains or as the dominant one, its
// confidence as the strength.
template <typename Info>
void fill_result(const Info& info, FlickerResult* result) {
  if (info.frequency == spectral::kMains60Hz) {
    result->strength_b = info.confidence;
  } else if (info.frequency == spectral::kMains50Hz) {
    result->strength_a = info.confidence;
  } else {
    result->dominant_freq = info.frequency;
    result->dominant_strength = info.confidence;
  }
  result->channel = info.channel;
  result->gain = static_cast<float>(info.gain);
}

template <typename Facade>
int read_detector(Facade& facade, FlickerResult* result) {
  if (result == nullptr) return SPECTRAL_FAILED;
  typename FacadeTraits<Facade>::DetectorInfo info = {};
  const int status = FacadeTraits<Facade>::poll_detector(facade, &info);
  *result = {};
  result->freq_a = spectral::kMains50Hz;
  result->freq_b = spectral::kMains60Hz;
  if (status != SPECTRAL_OK) {
    log_read_failed(facade, "ReadFLK", status);
    return SPECTRAL_FAILED;
  }
  fill_result(info, result);
  return SPECTRAL_OK;
}

}  // namespace

int DeviceTraits::poll_detector(Facade& facade, DetectorInfo* info) {
  return poll_at_most(kMinPolls, facade, info);
}
int LayeredTraits::poll_detector(Facade& facade, DetectorInfo* info) {
  return facade.m_flicker->GetFlickerFrequency(info);
}

int SpectralSensorDevice::ReadFLK(FlickerResult* result) { return read_detector(*this, result); }
int SpectralSensor::ReadFLK(FlickerResult* result) { return read_detector(*this, result); }

int SpectralSensorDevice::VD6281_GetFlickerFrequency_Ref(VD6281_FlickerInfo_t* info, int polls) {
  if (info == nullptr) return SPECTRAL_ARGUMENT_REFUSED;
  StartExpFLK_AutoGain();
  const int status = poll_at_most(std::clamp(polls, kMinPolls, kMaxPolls), *this, info);
  StopExpFLK();
  info->channel = static_cast<std::uint8_t>(m_flkChannelMask);
  info->gain = m_flkGain;
  if (status != SPECTRAL_OK) log_read_failed(*this, "VD6281_GetFlickerFrequency_Ref", status);
  return status;
}
