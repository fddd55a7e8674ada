// Finding the phone model and the unit's factory readings, and keeping the factors they give.

#include <fstream>
#include <limits>
#include <string>

#include "driver/register_map.h"
#include "platform/android.h"
#include "service/calibration_factors.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;

namespace {

constexpr char kModelProperty[] = "ro.product.device";
constexpr char kFactoryFile[] = "/mnt/vendor/persist/camera/ials_fac_test";

}  // namespace

int SpectralSensorDevice::GetDeviceType() {
  char name[spectral::kPropertyValueMax] = {};
  if (property_get(kModelProperty, name, "unknown") < 1) return spectral::kUnknownModel;
  return static_cast<int>(spectral::model_of(name));
}

bool SpectralSensorDevice::GetFATPData(unsigned short* fatp) {
  std::ifstream file(kFactoryFile);
  if (!file.is_open() || fatp == nullptr) return false;
  std::string text;
  for (int line = 1; line <= spectral::kLastReadingLine; ++line) {
    const int channel = spectral::channel_on_line(line);
    if (channel < 0) {
      file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
      continue;
    }
    if (!std::getline(file, text)) break;
    const auto reading = spectral::parse_reading(text);
    if (!reading) return false;
    fatp[channel] = *reading;
  }
  return spectral::are_plausible(fatp);
}

int SpectralSensorDevice::PrepareCalibrationData() {
  m_calibrationValid = 0;
  m_deviceType = static_cast<std::uint32_t>(GetDeviceType());
  if (m_deviceType == spectral::kUnknownModel) return 0;
  unsigned short reading[reg::kChannels] = {};
  if (!GetFATPData(reading)) return 0;
  ComputeCalData(reading);
  return 1;
}

void SpectralSensorDevice::ComputeCalData(unsigned short* fatp) {
  m_calibrationValid = fatp != nullptr && spectral::is_model(m_deviceType) ? 1 : 0;
  if (m_calibrationValid == 0) return;
  for (int n = 0; n < reg::kChannels; ++n) {
    m_calibrationFactor[n] = spectral::calibration_factor(m_deviceType, n, fatp[n]);
  }
}

void SpectralSensorDevice::CorrectALSRAW(const ALSResult* raw) {
  if (raw == nullptr) return;
  m_alsResult = *raw;
  if (m_calibrationValid == 0) return;
  for (int n = 0; n < reg::kChannels; ++n) {
    m_alsResult.value[n] = spectral::calibrate(m_alsResult.value[n], m_calibrationFactor[n]);
  }
}
