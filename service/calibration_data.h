#pragma once

// Finding the phone model and the unit's factory readings, and keeping the factors they give in a
// service's fields.

#include <cstdint>

#include "service/calibration_rule.h"
#include "spectral_types.h"

namespace spectral {

struct CalibrationFields {
  std::uint32_t& model;
  std::uint8_t& valid;
  float (&factor)[6];
};

template <typename Service>
CalibrationFields calibration_of(Service* service) {
  return {service->m_deviceType, service->m_calibrationValid, service->m_calibrationFactor};
}

// The phone model by the property "ro.product.device": 1..4, or 0 for any other.
std::uint32_t find_model();

// Reads the six channel readings of the factory file "/mnt/vendor/persist/camera/ials_fac_test".
// True when all are plausible; what cannot be read is left as it is.
bool read_factory_file(unsigned short* readings);

// Finds model and readings and computes the factors. 1 when the unit is calibrated now, else 0.
int prepare_calibration(const CalibrationFields& calibration);

// Computes the factors from these readings; without them, or a model, there is no calibration.
void compute_factors(const unsigned short* readings, const CalibrationFields& calibration);

// `raw` with the factors applied, where there are any.
ALSResult calibrated(const ALSResult& raw, const CalibrationFields& calibration);

}  // namespace spectral
