#pragma once

// Shows the unit: its chip, its OTP and its calibration.

#include <string>

#include "tools/record.h"

namespace spectralsensorctl {

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
  unsigned int phone_model;         // 1..4, or 0 if unknown
  std::string calibration_problem;  // why there is no calibration; empty for a calibrated unit
  double calibration_factor[6];
};

// Returns why the library does not calibrate the unit. `are_plausible` and `readings` are what its
// GetFATPData has returned. The factory file is read again, but only to name the line at fault.
std::string explain_calibration(unsigned int phone_model, bool are_plausible,
                                const unsigned short (&readings)[6]);

void print_info(Format format, const UnitInfo& unit);

}  // namespace spectralsensorctl
