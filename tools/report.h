#pragma once

// How readings are shown: as a table for people, as JSON or CSV for programs.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "spectral_sensor.h"

namespace spectralsensorctl {

enum class Format { kTable, kJson, kCsv };

struct AlsReading {
  ALSResult result;
  double gain[6];        // of each channel, as a factor
  const char* color[6];  // of each channel's filter
  bool saturated[6];     // the counter of each channel was full
};

// Whether a channel's counts, at its own gain and without any correction, are as many as its
// counter takes in this time: 910 in each 1.6 ms, and 65535 at most.
bool is_saturated(double counts, double exposure_ms);

// What the unit is.
struct UnitInfo {
  unsigned int chip_id;
  unsigned int revision;
  std::string uid;
  unsigned int driver_major;
  unsigned int driver_minor;
  unsigned int oscillator_trim;
  unsigned int oscillator_2_trim;
  unsigned int color_map;
  double slope[6];  // 1 is neutral
  const char* color[6];
  unsigned int phone_model;  // 1..4, 0 unknown
  bool calibrated;
  double calibration_factor[6];
};

const char* color_name(VD6281_Color_Id_t color);

// Where the analysis finds no tone, its -1 or a 0 comes through.
inline bool is_frequency(std::uint32_t hz) { return hz != 0 && hz != 0xFFFFFFFF; }

void print_info(Format format, const UnitInfo& unit);

// The head of a table or of CSV; nothing for JSON.
void print_als_head(Format format);
void print_als(Format format, int number, const AlsReading& reading);
// One reading with a row a channel; where `columns` is not 0, each with a bar that fills these.
std::string als_panel(const AlsReading& reading, int columns);

void print_flicker_head(Format format);
struct FlickerReading {
  FlickerResult result;
  double gain;     // of the flicker channel, as a factor
  bool saturated;  // so that what flickers may be cut off
};
void print_flicker(Format format, int number, const FlickerReading& reading);

void print_detector_head(Format format);
void print_detector(Format format, int number, const VD6281_FlickerInfo_t& info);

}  // namespace spectralsensorctl
