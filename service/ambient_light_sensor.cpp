#include "ambient_light_sensor.h"

#include "driver/channel.h"
#include "driver/fixed_point.h"
#include "driver/single_channel.h"
#include "service/als_capture_rule.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace {

constexpr char kTag[] = "ambient-light-sensor";

VD6281_Mode_t driver_mode(Spectral_AlsMode_t mode) { return static_cast<VD6281_Mode_t>(mode); }

}  // namespace

AmbientLightSensor::AmbientLightSensor() : m_device(SpectralSensorDevice::Create()) {}

AmbientLightSensor::~AmbientLightSensor() = default;

int AmbientLightSensor::Enable(bool enable, Spectral_AlsMode_t mode) {
  return enable ? EnableAmbientLightSensor(mode) : DisableAmbientLightSensor(mode);
}

int AmbientLightSensor::EnableAmbientLightSensor(Spectral_AlsMode_t mode) {
  return m_device->VD6281_Start(driver_mode(mode), static_cast<unsigned char>(m_channelMask));
}

int AmbientLightSensor::DisableAmbientLightSensor(Spectral_AlsMode_t mode) {
  return m_device->VD6281_Stop(driver_mode(mode));
}

int AmbientLightSensor::GetAlsValues(const ALSConfig& config, ALSResult* result) {
  if (result == nullptr) return SPECTRAL_ARGUMENT_REFUSED;
  VD6281_Als_t raw = {};
  unsigned char ready = 0;
  if (int status =
          m_device->VD6281_GetAlsValues(static_cast<unsigned char>(m_channelMask), &raw, &ready)) {
    return status;
  }
  result->valid = ready != 0 ? 1 : 0;
  return ready != 0 ? ConvertRawAlsValueToAlsResult(config, &raw, result) : SPECTRAL_OK;
}

int AmbientLightSensor::ConvertRawAlsValueToAlsResult(const ALSConfig& config, VD6281_Als_t* raw,
                                                      ALSResult* result) {
  const float smallest =
      spectral::smallest_gain(raw->channels, config.channelGain, spectral::kHighestAlsGain);
  for (int n = 0; n < spectral::kChannels; ++n) {
    const float ratio = config.channelGain[n] / smallest;
    raw->raw_count[n] = spectral::scale_count(raw->raw_count[n], ratio);
    raw->count[n] = spectral::scale_count(raw->count[n], ratio);
    result->value[n] = spectral::value_of(raw->raw_count[n]);
  }
  result->channelMask = raw->channels;
  result->exposureMs = static_cast<float>(config.exposureTime) / spectral::kUsPerMs;
  result->gain = smallest;
  return SPECTRAL_OK;
}

int AmbientLightSensor::SetExposureTime(unsigned int exposure, unsigned int* actual) {
  return m_device->VD6281_SetExposureTime(exposure, actual);
}

int AmbientLightSensor::SetGain(unsigned int channel, float gain, float* actual) {
  if (actual == nullptr) return SPECTRAL_ARGUMENT_REFUSED;
  if (IsValidSingleChannel(channel, m_channelMask) == 0) return SPECTRAL_ARGUMENT_REFUSED;
  unsigned short applied = 0;
  if (int status = m_device->VD6281_SetGain(static_cast<VD6281_Channel_Id_t>(channel),
                                            spectral::to_gain_q8(gain), &applied)) {
    return status;
  }
  *actual = spectral::gain_factor(applied);
  return SPECTRAL_OK;
}

int AmbientLightSensor::IsValidSingleChannel(unsigned int channel, unsigned int supported) {
  return spectral::is_single_channel_of(channel, supported, kTag) ? 1 : 0;
}

int AmbientLightSensor::SetSamplingPeriod(unsigned int period, unsigned int* actual) {
  return m_device->VD6281_SetInterMeasurementTime(period, actual);
}
