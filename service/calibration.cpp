// The calibration operations of both services. What they do is in calibration_data.h.

#include "service/calibration_data.h"
#include "spectral_sensor.h"
#include "spectral_sensor_device.h"

using spectral::calibration_of;

int SpectralSensorDevice::GetDeviceType() { return static_cast<int>(spectral::find_model()); }
int SpectralSensor::GetDeviceType() { return static_cast<int>(spectral::find_model()); }

bool SpectralSensorDevice::GetFATPData(unsigned short* fatp) {
  return spectral::read_factory_file(fatp);
}
bool SpectralSensor::GetFATPData(unsigned short* fatp) { return spectral::read_factory_file(fatp); }

int SpectralSensorDevice::PrepareCalibrationData() {
  return spectral::prepare_calibration(calibration_of(this));
}
int SpectralSensor::PrepareCalibrationData() {
  return spectral::prepare_calibration(calibration_of(this));
}

void SpectralSensorDevice::ComputeCalData(unsigned short* fatp) {
  spectral::compute_factors(fatp, calibration_of(this));
}
void SpectralSensor::ComputeCalData(unsigned short* fatp) {
  spectral::compute_factors(fatp, calibration_of(this));
}

void SpectralSensorDevice::CorrectALSRAW(const ALSResult* raw) {
  if (raw != nullptr) m_alsResult = spectral::calibrated(*raw, calibration_of(this));
}
void SpectralSensor::CorrectALSRAW(const ALSResult* raw) {
  if (raw != nullptr) m_alsResult = spectral::calibrated(*raw, calibration_of(this));
}
