// Taking one ambient-light measurement: configure, start, wait, read, stop.

#include <algorithm>
#include <iterator>

#include "driver/channel.h"
#include "driver/exposure_gain_rule.h"
#include "driver/flag.h"
#include "driver/register_access.h"
#include "driver/state.h"
#include "driver/status.h"
#include "service/als_capture_rule.h"
#include "service/als_flow.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::has_channel;
using spectral::kBadArgument;
using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kNoDevice;
using spectral::kOk;
using spectral::kRefusedAlsRunning;

namespace {

constexpr float kHighestGainCode = 25600.0f;  // that auto-exposure gives

// The first failure of exposure and gains, with what was applied in `working`.
int configure(SpectralSensorDevice* sensor, VD6281_device* dev, const ALSConfig& wanted,
              ALSConfig* working) {
  if (dev == nullptr) return kNoDevice;
  if (spectral::als_runs(dev)) return kRefusedAlsRunning;
  if (int status = sensor->set_exposure(dev, wanted.exposureTime, 1)) return status;
  working->exposureTime = dev->exposure;
  for (int n = 0; n < reg::kChannels; ++n) {
    if (!has_channel(sensor->m_alsChannelMask, n)) continue;
    const auto channel = static_cast<VD6281_Channel_Id_t>(1u << n);
    if (int status = sensor->VD6281_SetGain(channel, wanted.gainCode[n], &working->gainCode[n])) {
      return status;
    }
  }
  return kOk;
}

// Normalises the counts by the gains in force. A calibrated unit takes the raw counts: its factors
// stand in for the slope correction.
void store_measurement(const VD6281_Als_t& values, const SpectralSensorDevice& sensor,
                       ALSResult* result) {
  float gain[reg::kChannels] = {};
  std::copy(std::begin(sensor.m_alsConfig.gainCode), std::end(sensor.m_alsConfig.gainCode), gain);
  const float smallest = spectral::smallest_gain(values.channels, gain, kHighestGainCode);
  const std::uint32_t* count =
      spectral::is_set(sensor.m_calibrationValid) ? values.raw_count : values.count;
  for (int n = 0; n < reg::kChannels; ++n) {
    const std::uint32_t scaled = spectral::scale_count(count[n], gain[n] / smallest);
    result->value[n] = static_cast<float>(scaled) * spectral::kUnitOfLastPlace;
  }
  result->channelMask = values.channels;
  result->exposureMs = static_cast<float>(sensor.m_alsConfig.exposureTime) / 1000.0f;
  result->gain = smallest * spectral::kUnitOfLastPlace;
  result->valid = 1;
}

}  // namespace

int SpectralSensorDevice::StartExpALS() {
  VD6281_device* dev = get_active_device();
  int status = kNoDevice;
  if (dev != nullptr) {
    status = spectral::is_channel_mask(m_alsChannelMask)
                 ? start_als(dev, m_alsChannelMask, VD6281_MODE_ALS_SINGLE_SHOT)
                 : kBadArgument;
  }
  return spectral::answer_start(status, kDriverTag, m_alsChannelMask);
}

int SpectralSensorDevice::StopExpALS() {
  VD6281_device* dev = get_active_device();
  const int status = dev != nullptr ? stop_als(dev, VD6281_MODE_ALS_SINGLE_SHOT) : kNoDevice;
  return spectral::answer_stop(status, kDriverTag);
}

int SpectralSensorDevice::ConfigALS(const ALSConfig* config, ALSConfig* actual) {
  if (config == nullptr || actual == nullptr) return kFailed;
  ALSConfig working;
  const int status = configure(this, get_active_device(), *config, &working);
  if (status == kOk) *actual = working;
  return spectral::answer_config(status, kDriverTag, config->exposureTime);
}

int SpectralSensorDevice::ReadALS(ALSResult* result, bool wait) {
  if (result == nullptr) return kFailed;
  result->valid = 0;
  VD6281_Als_t values = {};
  bool ready = false;
  const int status = spectral::read_when_ready(
      wait, m_alsEnableFlag, kDriverTag, m_alsChannelMask, &ready, [&](bool* is_ready) {
        unsigned char flag = 0;
        const int read = VD6281_GetAlsValues(m_alsChannelMask, &values, &flag);
        *is_ready = flag == 1;
        return read;
      });
  if (ready) store_measurement(values, *this, result);
  return status;
}

int SpectralSensorDevice::CaptureALSDefault(SpectralSensorOutput* output) {
  return spectral::capture_default(this, output);
}
