#pragma once

// What a flicker measurement sampled, as files: sound and plot.

#include <string>
#include <vector>

#include "spectral_types.h"

namespace spectralsensorctl {

constexpr int kSampleRateHz = 2000;

// The light as it was sampled, in counts, and what was found in it.
struct Waveform {
  std::vector<float> samples;
  FlickerResult verdict;
};

// A frequency that the verdict reports, with its name.
struct Peak {
  std::string name;
  unsigned int frequency_hz;
};
std::vector<Peak> peaks_of(const FlickerResult& verdict);

// The amplitude at each frequency from 0 Hz in steps of `kSampleRateHz / samples`, in counts, under
// a Hann window and without the mean. Even numbers of samples.
std::vector<float> amplitude_spectrum(const std::vector<float>& samples);

// Writes the samples as a WAV file of one channel, 16 bits. Throws std::runtime_error.
void save_wav(const std::string& path, const Waveform& waveform);

// Draws the waveform's first tenth of a second and its spectrum, with the peaks marked, by gnuplot:
// a PNG picture, or for a name in ".gp" the script that draws it elsewhere. Throws
// std::runtime_error.
void plot(const std::string& path, const Waveform& waveform);

}  // namespace spectralsensorctl
