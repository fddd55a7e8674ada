#pragma once

// Draws a flicker measurement.

#include <string>

#include "tools/waveform.h"

namespace spectralsensorctl {

// Throws std::runtime_error if this file needs gnuplot and gnuplot is not installed.
void require_plotter(const std::string& path);

// Draws the first tenth of a second of the waveform, and its spectrum with the peaks marked, as a
// PNG picture by gnuplot. If the path ends in ".gp", it writes the gnuplot script instead, which
// draws a picture of the same name in the folder in which it is run. Throws std::runtime_error on
// failure.
void plot(const std::string& path, const Waveform& waveform);

}  // namespace spectralsensorctl
