#include "spectral_sensor.h"

SpectralSensor* SpectralSensor::m_pInstance = nullptr;

SpectralSensor::SpectralSensor() { m_flkResult.gain = 1.0f; }

SpectralSensor::~SpectralSensor() {
  delete m_flicker;
  delete m_als;
}
