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

// Whether a sample is as large as there are, so that the wave may be cut off.
bool is_saturated(const std::vector<float>& samples);

// The amplitude at each frequency from 0 Hz in steps of `kSampleRateHz / samples`, in counts, under
// a Hann window and without the mean. Even numbers of samples.
std::vector<float> amplitude_spectrum(const std::vector<float>& samples);

// Writes the samples as a WAV file of one channel, 16 bits. Throws std::runtime_error.
void save_wav(const std::string& path, const Waveform& waveform);

// Throws std::runtime_error where there is nothing that could draw into this file.
void require_plotter(const std::string& path);

// Draws the waveform's first tenth of a second and its spectrum, with the peaks marked, by gnuplot:
// a PNG picture, or for a name in ".gp" the script that draws it elsewhere, into a picture of that
// name in the folder it is run in. Throws std::runtime_error.
void plot(const std::string& path, const Waveform& waveform);

}  // namespace spectralsensorctl
