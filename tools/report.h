#pragma once

// Shows readings as a table for people, or as JSON or CSV for programs.

#include <cstdint>
#include <optional>
#include <string>

#include "spectral_sensor.h"
#include "tools/record.h"

namespace spectralsensorctl {

struct AlsReading {
  ALSResult result;
  Moment time;                  // when the tool had the result
  std::optional<bool> settled;  // whether the auto-exposure keeps the setting; none without it
  double gain[6];               // of each channel, as a factor
  const char* color[6];         // of each channel's filter
  bool saturated[6];            // whether the counter of each channel was full
};

// Whether a channel's counter was full. `counts` is the value at the channel's own gain and without
// any correction. The counter's limit is 910 for each 1.6 ms of exposure, and at most 65535.
bool is_saturated(double counts, double exposure_ms);

const char* color_name(VD6281_Color_Id_t color);

// A frequency of -1 or 0 means that the measurement reports none.
inline bool is_frequency(std::uint32_t hz) { return hz != 0 && hz != 0xFFFFFFFF; }

// Prints the head of a table or of CSV, and nothing for JSON.
void print_als_head(Format format);
void print_als(Format format, int number, const AlsReading& reading);
// One reading with a row for each channel. If `columns` is not 0, each row has a bar and fills that
// many columns.
std::string als_panel(const AlsReading& reading, int columns);

void print_flicker_head(Format format);
struct FlickerReading {
  FlickerResult result;
  Moment time;     // when the tool had the result
  double gain;     // of the flicker channel, as a factor
  bool saturated;  // whether a sample was saturated, so that peaks may be cut off
};
void print_flicker(Format format, int number, const FlickerReading& reading);

struct DetectorReading {
  VD6281_FlickerInfo_t info;
  Moment time;     // when the detector had an answer
  bool saturated;  // whether the light saturates the flicker channel
};
void print_detector_head(Format format);
void print_detector(Format format, int number, const DetectorReading& reading);

}  // namespace spectralsensorctl
