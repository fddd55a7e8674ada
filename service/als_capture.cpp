// Taking one ambient-light measurement: configure, start, wait, read, stop.

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>

#include "driver/channel.h"
#include "driver/register_access.h"
#include "driver/state.h"
#include "driver/status.h"
#include "platform/log.h"
#include "service/als_normalisation.h"
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

constexpr int kReadyPolls = 8192;
constexpr auto kPollPause = std::chrono::milliseconds(1);
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
  const std::uint32_t* count = sensor.m_calibrationValid != 0 ? values.raw_count : values.count;
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
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Cannot start ALS exposure  %d, channel=0x%x", "StartExpALS",
                     status, m_alsChannelMask);
  return kFailed;
}

int SpectralSensorDevice::StopExpALS() {
  VD6281_device* dev = get_active_device();
  const int status = dev != nullptr ? stop_als(dev, VD6281_MODE_ALS_SINGLE_SHOT) : kNoDevice;
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Cannot stop ALS exposure  %d", "StopExpALS", status);
  return kFailed;
}

int SpectralSensorDevice::ConfigALS(const ALSConfig* config, ALSConfig* actual) {
  if (config == nullptr || actual == nullptr) return kFailed;
  ALSConfig working;
  const int status = configure(this, get_active_device(), *config, &working);
  if (status == kOk) {
    *actual = working;
    return kOk;
  }
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to config ALS %d,%u", "ConfigALS", status,
                     config->exposureTime);
  return kFailed;
}

int SpectralSensorDevice::ReadALS(ALSResult* result, bool wait) {
  if (result == nullptr) return kFailed;
  result->valid = 0;
  VD6281_Als_t values = {};
  unsigned char ready = 0;
  int passes = wait ? kReadyPolls : 1;
  for (; passes > 0; --passes) {
    if (int status = VD6281_GetAlsValues(m_alsChannelMask, &values, &ready)) {
      if (!wait) {
        SPECTRAL_LOG_ERROR(kDriverTag, "%s: ALS read failed, error code %d, channel=0x%x",
                           "ReadALS", status, m_alsChannelMask);
      }
      return kFailed;
    }
    if (ready != 0 || !wait) break;
    std::this_thread::sleep_for(kPollPause);
    if (m_alsEnableFlag.load(std::memory_order_relaxed) == 0) break;
  }
  if (ready != 1) return wait ? kOk : kFailed;  // a time-out or an abort is not an error
  store_measurement(values, *this, result);
  return kOk;
}

int SpectralSensorDevice::CaptureALSDefault(SpectralSensorOutput* output) {
  ALSConfig working;
  if (ConfigALS(&m_alsConfig, &working) == kOk) {
    m_alsConfig = working;
    StartExpALS();
  }
  const int status = ReadALS(output != nullptr ? &output->als : nullptr, true);
  StopExpALS();
  return status;
}
