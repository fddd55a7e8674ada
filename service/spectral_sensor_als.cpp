// Ambient light of the layered service, in gain factors by the AmbientLightSensor.

#include <algorithm>
#include <iterator>

#include "driver/channel.h"
#include "driver/status.h"
#include "service/als_flow.h"
#include "service/layered_tag.h"
#include "spectral_sensor.h"

using spectral::kFailed;
using spectral::kLayeredTag;
using spectral::kOk;

namespace {

constexpr float kResetGain = 1.0f;

int configure(const SpectralSensor* sensor, const ALSConfig& wanted, ALSConfig* working) {
  AmbientLightSensor* als = sensor->m_als;
  if (int status = als->SetExposureTime(wanted.exposureTime, &working->exposureTime)) return status;
  for (int n = 0; n < spectral::reg::kChannels; ++n) {
    if (!spectral::has_channel(sensor->m_alsChannelMask, n)) continue;
    if (int status = als->SetGain(1u << n, wanted.channelGain[n], &working->channelGain[n])) {
      return status;
    }
  }
  return kOk;
}

}  // namespace

int SpectralSensor::StartExpALS() {
  return spectral::answer_start(m_als->Enable(true, SPECTRAL_ALS_SINGLE_SHOT), kLayeredTag,
                                m_alsChannelMask);
}

int SpectralSensor::StopExpALS() {
  return spectral::answer_stop(m_als->Enable(false, SPECTRAL_ALS_SINGLE_SHOT), kLayeredTag);
}

int SpectralSensor::ConfigALS(const ALSConfig* config, ALSConfig* actual) {
  if (config == nullptr || actual == nullptr) return kFailed;
  ALSConfig working;
  const int status = configure(this, *config, &working);
  if (status == kOk) *actual = working;
  return spectral::answer_config(status, kLayeredTag, config->exposureTime);
}

int SpectralSensor::ReadALS(ALSResult* result, bool wait) {
  if (result == nullptr) return kFailed;
  result->valid = 0;
  bool ready = false;
  return spectral::read_when_ready(wait, m_alsEnableFlag, kLayeredTag, m_alsChannelMask, &ready,
                                   [this, result](bool* is_ready) {
                                     const int status = m_als->GetAlsValues(m_alsConfig, result);
                                     *is_ready = result->valid != 0;
                                     return status;
                                   });
}

int SpectralSensor::CaptureALSDefault(SpectralSensorOutput* output) {
  return spectral::capture_default(this, output);
}

int SpectralSensor::CaptureALSAE(SpectralSensorOutput* output) {
  return spectral::capture_auto_exposure(this, output);
}

int SpectralSensor::ALSAE(ALSResult* result, ALSConfig* next, bool* stable) {
  return spectral::propose_config(result, m_alsConfig, next, stable, kLayeredTag, kResetGain,
                                  [](ALSConfig* proposal, const float(&gains)[6]) {
                                    std::copy(std::begin(gains), std::end(gains),
                                              proposal->channelGain);
                                  });
}

float SpectralSensor::LookUpGain(float target, int low, int high) {
  return spectral::checked_gain(target, low, high, kLayeredTag);
}
