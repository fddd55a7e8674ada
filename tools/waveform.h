#pragma once

// The samples of a flicker measurement: their spectrum, and the sound file as which they are saved.

#include <cstddef>
#include <string>
#include <vector>

#include "spectral_types.h"

namespace spectralsensorctl {

constexpr int kSampleRateHz = 2000;

// The samples of the light, in counts, and what the measurement found in them.
struct Waveform {
  std::vector<float> samples;
  FlickerResult verdict;
  double gain = 0.0;     // of the flicker channel, as a factor
  std::string time_utc;  // when the samples were taken
  std::string scene;     // of the simulated phone; empty on a phone
};

// A frequency that the verdict reports.
struct Peak {
  enum class Role { kMains50Hz, kMains60Hz, kDominant, kSecondary };
  Role role;
  unsigned int frequency_hz;
  // A weighted sum of amplitudes: that of this frequency and, in part, those of its harmonics.
  unsigned int strength;
};
std::vector<Peak> peaks_of(const FlickerResult& verdict);

// Whether a sample has the largest possible value, so that the wave may be cut off.
bool is_saturated_sample(float sample);
bool is_saturated(const std::vector<float>& samples);
std::size_t saturated_count(const std::vector<float>& samples);

// The amplitude spectrum in counts, from 0 Hz in steps of kSampleRateHz divided by the number of
// samples, which must be even. The mean is subtracted first, and a Hann window is applied.
std::vector<float> amplitude_spectrum(const std::vector<float>& samples);

// Whether this build has libsndfile, which save_wav needs. The build for Android has none.
bool can_save_wav();

// Writes the samples as a 16-bit WAV file with one channel. Throws std::runtime_error on failure.
void save_wav(const std::string& path, const Waveform& waveform);

}  // namespace spectralsensorctl
