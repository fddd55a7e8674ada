#pragma once

// Saves the samples of a flicker measurement as a sound file and as a plot.

#include <string>
#include <vector>

#include "spectral_types.h"

namespace spectralsensorctl {

constexpr int kSampleRateHz = 2000;

// The samples of the light, in counts, and what the measurement found in them.
struct Waveform {
  std::vector<float> samples;
  FlickerResult verdict;
};

// A frequency that the verdict reports, with a name for it.
struct Peak {
  std::string name;
  unsigned int frequency_hz;
};
std::vector<Peak> peaks_of(const FlickerResult& verdict);

// Whether a sample has the largest possible value, so that the wave may be cut off.
bool is_saturated(const std::vector<float>& samples);

// The amplitude spectrum in counts, from 0 Hz in steps of kSampleRateHz divided by the number of
// samples, which must be even. The mean is subtracted first, and a Hann window is applied.
std::vector<float> amplitude_spectrum(const std::vector<float>& samples);

// Writes the samples as a 16-bit WAV file with one channel. Throws std::runtime_error on failure.
void save_wav(const std::string& path, const Waveform& waveform);

// Throws std::runtime_error if this file needs gnuplot and gnuplot is not installed.
void require_plotter(const std::string& path);

// Draws the first tenth of a second of the waveform, and its spectrum with the peaks marked, as a
// PNG picture by gnuplot. If the path ends in ".gp", it writes the gnuplot script instead, which
// draws a picture of the same name in the folder in which it is run. Throws std::runtime_error on
// failure.
void plot(const std::string& path, const Waveform& waveform);

}  // namespace spectralsensorctl
