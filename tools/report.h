#pragma once

// How readings are shown: as a table for people, as JSON or CSV for programs.

#include <nlohmann/json.hpp>
#include <string>

#include "spectral_sensor.h"

namespace spectralsensorctl {

enum class Format { kTable, kJson, kCsv };

struct AlsReading {
  ALSResult result;
  double gain[6];  // of each channel, as a factor
};

// The head of a table or of CSV; nothing for JSON.
void print_als_head(Format format);
void print_als(Format format, int number, const AlsReading& reading);

void print_flicker_head(Format format);
// `gain` is the flicker channel's, as a factor.
void print_flicker(Format format, int number, const FlickerResult& result, double gain);

}  // namespace spectralsensorctl
