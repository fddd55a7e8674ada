// From the analysis's frequencies to a flicker result.

#include "flicker/facade_traits.h"
#include "flicker/result_tracking_rule.h"

namespace {

template <typename Facade>
float process(Facade& facade, const float* frequencies, const float* amplitudes,
              FlickerResult* result) {
  result->channel = static_cast<std::uint8_t>(facade.m_flkChannelMask);
  result->gain = static_cast<float>(facade.m_flkGain);
  return spectral::track_result(frequencies, amplitudes, &facade.m_flkTrack, result);
}

}  // namespace

float SpectralSensorDevice::FlickerResultProcessing(float* freqs, float* amps,
                                                    FlickerResult* result) {
  return process(*this, freqs, amps, result);
}
float SpectralSensor::FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result) {
  return process(*this, freqs, amps, result);
}

float SpectralSensorDevice::ComputeHarmonicContribution(int f, int g) {
  return spectral::harmonic_weight(f, g);
}
float SpectralSensor::ComputeHarmonicContribution(int f, int g) {
  return spectral::harmonic_weight(f, g);
}
