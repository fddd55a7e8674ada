// Flicker of the layered service, by the FlickerSensor.

#include <algorithm>
#include <limits>
#include <mutex>

#include "driver/exposure_gain_rule.h"
#include "driver/status.h"
#include "flicker/flicker_flow.h"
#include "flicker/flicker_start_rule.h"
#include "flicker/tunnel_stream_rule.h"
#include "platform/log.h"
#include "service/layered_tag.h"
#include "spectral_sensor.h"

using spectral::binding_of;
using spectral::kFailed;
using spectral::kLayeredTag;
using spectral::kOk;

namespace {

constexpr int kMostPayloads =
    std::numeric_limits<int>::max() / static_cast<int>(spectral::kFlickerPayloadSize);

// The gain search's trials through the FlickerSensor. None ends the search: their results are
// summed.
class Trials {
 public:
  explicit Trials(SpectralSensor* sensor) : m_sensor(sensor) {}

  int errors() const { return m_errors.value(); }

  bool saturates(const spectral::GainChoice& choice) {
    float applied = 0.0f;
    start(choice, &applied);
    const bool saturated = spectral::poll_saturation(m_sensor, [this](int* value) {
      unsigned short counter = 0;
      const int status = m_sensor->m_flicker->GetSaturationValue(&counter);
      m_errors.add(status);
      *value = counter;
      return status == kOk;
    });
    m_errors.add(m_sensor->m_flicker->Enable(false));
    return saturated;
  }

  // `applied` keeps its value where the gain is refused.
  void start(const spectral::GainChoice& choice, float* applied) {
    FlickerSensor* flicker = m_sensor->m_flicker;
    m_sensor->m_flkChannelMask = choice.channel;
    m_errors.add(flicker->SetFlickerChannelMask(choice.channel));
    m_errors.add(flicker->SetGain(choice.channel,
                                  spectral::gain_factor(spectral::kGainQ8[choice.index]), applied));
    m_errors.add(flicker->Enable(true));
  }

 private:
  SpectralSensor* m_sensor;
  spectral::ErrorSum m_errors;
};

}  // namespace

int SpectralSensor::StartExpFLK_AutoGain() {
  Trials trials(this);
  if (spectral::search_and_start(&trials, &m_flkGain) == 0) return kOk;
  SPECTRAL_LOG_ERROR(kLayeredTag, "%s: Cannot start FLK  retVal=%d, channel=0x%x, gain=%f",
                     "StartExpFLK_AutoGain", trials.errors(), m_flkChannelMask,
                     static_cast<double>(m_flkGain));
  return kFailed;
}

int SpectralSensor::StartExpFLK() {
  float applied = m_flkGain;
  m_flicker->SetFlickerChannelMask(m_flkChannelMask);
  m_flicker->SetGain(m_flkChannelMask, m_flkGain, &applied);
  const int status = m_flicker->Enable(true);
  if (status == kOk) m_flkGain = applied;
  return spectral::answer_flicker_start(status, kLayeredTag, m_flkChannelMask);
}

int SpectralSensor::StopExpFLK() {
  return spectral::answer_flicker_stop(m_flicker->Enable(false), kLayeredTag);
}

int SpectralSensor::ReadFLKData(int len_ms, unsigned char* out) {
  const std::lock_guard<std::mutex> lock(m_flk_data_mtx);
  // More than a capture can be is refused below; as many bytes it would not fit an int.
  const int payloads = std::clamp(len_ms / spectral::kMsPerPayload, 0, kMostPayloads);
  const int size = payloads * static_cast<int>(spectral::kFlickerPayloadSize);
  return m_flicker->GetFlickerData(size, out) == kOk ? kOk : kFailed;
}

int SpectralSensor::FlickerCoreWrapper(FlickerResult* result) {
  return spectral::measure_flicker(this, kLayeredTag, result);
}

float SpectralSensor::FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result) {
  return spectral::process_result(this, freqs, amps, result);
}

float SpectralSensor::ComputeHarmonicContribution(int f, int g) {
  return spectral::harmonic_weight(f, g);
}

int SpectralSensor::ReadFLK(FlickerResult* result) {
  return spectral::read_detector<Spectral_FlickerInfo_t>(
      result, kLayeredTag, m_flkChannelMask,
      [this](Spectral_FlickerInfo_t* info) { return m_flicker->GetFlickerFrequency(info); });
}

int SpectralSensor::LoadFlickerLibrary() {
  return spectral::load_analysis(binding_of(this, kLayeredTag), pVendorLibPath);
}

void SpectralSensor::UnloadFlickerLibrary() {
  spectral::unload_analysis(binding_of(this, kLayeredTag));
}

int SpectralSensor::check_dl_error() {
  return spectral::check_dl_error(binding_of(this, kLayeredTag));
}
