// Taking one ambient-light measurement: configure, start, wait, read, stop.

#include "service/als_capture.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>

#include "driver/channel.h"
#include "driver/shared_state.h"
#include "flicker/facade_traits.h"
#include "platform/log.h"
#include "service/als_capture_rule.h"
#include "spectral_status.h"

using spectral::DeviceTraits;
using spectral::FacadeTraits;
using spectral::kChannels;
using spectral::LayeredTraits;

namespace {

constexpr int kReadyPolls = 8192;
constexpr std::chrono::milliseconds kPollPause{1};

// The flows of both facades. Each turns a driver's status into 0 or -22 and logs a failure. The
// texts of the messages are fixed, with the doubled blanks in two of them.

template <typename Facade>
int start(Facade& facade) {
  const int status = FacadeTraits<Facade>::start_als(facade);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag,
                     "%s: Cannot start ALS exposure  %d, channel=0x%x", "StartExpALS", status,
                     facade.m_alsChannelMask);
  return SPECTRAL_FAILED;
}

template <typename Facade>
int stop(Facade& facade) {
  const int status = FacadeTraits<Facade>::stop_als(facade);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag, "%s: Cannot stop ALS exposure  %d",
                     "StopExpALS", status);
  return SPECTRAL_FAILED;
}

// `actual` is written on success only.
template <typename Facade>
int configure(Facade& facade, const ALSConfig* config, ALSConfig* actual) {
  if (config == nullptr || actual == nullptr) return SPECTRAL_FAILED;
  ALSConfig working;
  const int status = FacadeTraits<Facade>::configure_als(facade, *config, &working);
  if (status == SPECTRAL_OK) {
    *actual = working;
    return SPECTRAL_OK;
  }
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag, "%s: Failed to config ALS %d,%u", "ConfigALS",
                     status, config->exposureTime);
  return SPECTRAL_FAILED;
}

// A failed read is logged only where there is no waiting.
template <typename Facade>
int read_once(Facade& facade, bool calibrated, bool wait, ALSResult* result) {
  const int status = FacadeTraits<Facade>::read_als(facade, calibrated, result);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  result->valid = 0;
  if (!wait) {
    SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag,
                       "%s: ALS read failed, error code %d, channel=0x%x", "ReadALS", status,
                       facade.m_alsChannelMask);
  }
  return SPECTRAL_FAILED;
}

template <typename Facade>
int read(Facade& facade, ALSResult* result, bool wait) {
  return spectral::read_als(facade, spectral::is_set(facade.m_calibrationValid), wait, result);
}

template <typename Facade>
int capture(Facade& facade, SpectralSensorOutput* output) {
  spectral::configure_and_start(facade);
  const int status = facade.ReadALS(output != nullptr ? &output->als : nullptr, true);
  facade.StopExpALS();
  return status;
}

// Normalises the counts by the gain codes in force. A calibrated unit takes the raw counts, as its
// factors stand in for the slope correction.
void store_measurement(const VD6281_Als_t& values, const SpectralSensorDevice& sensor,
                       bool calibrated, ALSResult* result) {
  float code[kChannels] = {};
  std::copy(std::begin(sensor.m_alsConfig.gainCode), std::end(sensor.m_alsConfig.gainCode), code);
  const float smallest = spectral::smallest_gain(
      values.channels, code, spectral::kHighestAlsGain / spectral::kFixedPointStep);
  const std::uint32_t* count = calibrated ? values.raw_count : values.count;
  for (int n = 0; n < kChannels; ++n) {
    result->value[n] = spectral::value_of(spectral::scale_count(count[n], code[n] / smallest));
  }
  result->channelMask = values.channels;
  result->exposureMs = static_cast<float>(sensor.m_alsConfig.exposureTime) / spectral::kUsPerMs;
  result->gain = smallest * spectral::kFixedPointStep;
  result->valid = 1;
}

}  // namespace

template <typename Facade>
std::uint32_t spectral::configure_and_start(Facade& facade) {
  ALSConfig working;
  if (facade.ConfigALS(&facade.m_alsConfig, &working) == SPECTRAL_OK) {
    facade.m_alsConfig = working;
    facade.StartExpALS();
  }
  return working.exposureTime;
}

// With `wait`, reads each millisecond until a result is ready; a time-out and an abort by the ALS
// enable flag are not errors. Without it, reads once, and a result that is not ready is an error.
template <typename Facade>
int spectral::read_als(Facade& facade, bool calibrated, bool wait, ALSResult* result) {
  if (result == nullptr) return SPECTRAL_FAILED;
  result->valid = 0;
  for (int passes = wait ? kReadyPolls : 1; passes > 0; --passes) {
    if (int status = read_once(facade, calibrated, wait, result)) return status;
    if (result->valid != 0) return SPECTRAL_OK;
    if (!wait) return SPECTRAL_FAILED;
    std::this_thread::sleep_for(kPollPause);
    if (!is_set(facade.m_alsEnableFlag)) break;
  }
  return SPECTRAL_OK;
}

template std::uint32_t spectral::configure_and_start(SpectralSensorDevice&);
template std::uint32_t spectral::configure_and_start(SpectralSensor&);
template int spectral::read_als(SpectralSensorDevice&, bool, bool, ALSResult*);
template int spectral::read_als(SpectralSensor&, bool, bool, ALSResult*);

int DeviceTraits::configure_als(Facade& facade, const ALSConfig& wanted, ALSConfig* actual) {
  VD6281_device* dev = facade.get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (spectral::als_runs(dev)) return SPECTRAL_ALS_RUNNING;
  if (int status = facade.set_exposure(dev, wanted.exposureTime, 1)) return status;
  actual->exposureTime = dev->exposure;
  for (int n = 0; n < kChannels; ++n) {
    if (!has_channel(facade.m_alsChannelMask, n)) continue;
    const auto channel = static_cast<VD6281_Channel_Id_t>(1u << n);
    if (int status = facade.VD6281_SetGain(channel, wanted.gainCode[n], &actual->gainCode[n])) {
      return status;
    }
  }
  return SPECTRAL_OK;
}
int LayeredTraits::configure_als(Facade& facade, const ALSConfig& wanted, ALSConfig* actual) {
  AmbientLightSensor* als = facade.m_als;
  if (int status = als->SetExposureTime(wanted.exposureTime, &actual->exposureTime)) return status;
  for (int n = 0; n < kChannels; ++n) {
    if (!has_channel(facade.m_alsChannelMask, n)) continue;
    if (int status = als->SetGain(1u << n, wanted.channelGain[n], &actual->channelGain[n])) {
      return status;
    }
  }
  return SPECTRAL_OK;
}

int DeviceTraits::start_als(Facade& facade) {
  VD6281_device* dev = facade.get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (!spectral::is_channel_mask(facade.m_alsChannelMask)) return SPECTRAL_BAD_ARGUMENT;
  return facade.start_als(dev, facade.m_alsChannelMask, VD6281_MODE_ALS_SINGLE_SHOT);
}
int LayeredTraits::start_als(Facade& facade) {
  return facade.m_als->Enable(true, SPECTRAL_ALS_SINGLE_SHOT);
}

int DeviceTraits::stop_als(Facade& facade) {
  VD6281_device* dev = facade.get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  return facade.stop_als(dev, VD6281_MODE_ALS_SINGLE_SHOT);
}
int LayeredTraits::stop_als(Facade& facade) {
  return facade.m_als->Enable(false, SPECTRAL_ALS_SINGLE_SHOT);
}

int DeviceTraits::read_als(Facade& facade, bool calibrated, ALSResult* result) {
  VD6281_Als_t values = {};
  unsigned char ready = 0;
  const int status = facade.VD6281_GetAlsValues(facade.m_alsChannelMask, &values, &ready);
  if (status == SPECTRAL_OK && ready != 0) store_measurement(values, facade, calibrated, result);
  return status;
}
int LayeredTraits::read_als(Facade& facade, bool, ALSResult* result) {
  return facade.m_als->GetAlsValues(facade.m_alsConfig, result);
}

int SpectralSensorDevice::StartExpALS() { return start(*this); }
int SpectralSensor::StartExpALS() { return start(*this); }

int SpectralSensorDevice::StopExpALS() { return stop(*this); }
int SpectralSensor::StopExpALS() { return stop(*this); }

int SpectralSensorDevice::ConfigALS(const ALSConfig* config, ALSConfig* actual) {
  return configure(*this, config, actual);
}
int SpectralSensor::ConfigALS(const ALSConfig* config, ALSConfig* actual) {
  return configure(*this, config, actual);
}

int SpectralSensorDevice::ReadALS(ALSResult* result, bool wait) {
  return read(*this, result, wait);
}
int SpectralSensor::ReadALS(ALSResult* result, bool wait) { return read(*this, result, wait); }

int SpectralSensorDevice::CaptureALSDefault(SpectralSensorOutput* output) {
  return capture(*this, output);
}
int SpectralSensor::CaptureALSDefault(SpectralSensorOutput* output) {
  return capture(*this, output);
}
