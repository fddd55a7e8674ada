// The unit's calibration: finding the phone model and the factory readings, computing the factors,
// and applying them.

#include <fstream>
#include <limits>
#include <string>

#include "driver/channel.h"
#include "driver/nodes.h"
#include "driver/shared_state.h"
#include "flicker/facade_traits.h"
#include "platform/android.h"
#include "service/calibration_rule.h"

namespace {

constexpr char kModelProperty[] = "ro.product.device";

std::uint32_t find_model() {
  char name[spectral::kPropertyValueMax] = {};
  if (property_get(kModelProperty, name, "unknown") < 1) return spectral::kUnknownModel;
  return spectral::model_of(name);
}

// Whether all six readings of the factory file are plausible. A channel whose line is missing keeps
// the reading that the caller gave.
bool read_factory_file(unsigned short* readings) {
  std::ifstream file(spectral::kFactoryFilePath);
  if (!file.is_open() || readings == nullptr) return false;
  std::string text;
  for (std::int64_t line = 1; file.good(); ++line) {
    const int channel = spectral::channel_on_line(line);
    if (channel < 0) {
      file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
      continue;
    }
    if (!std::getline(file, text)) break;
    const auto reading = spectral::parse_reading(text);
    if (!reading) return false;
    readings[channel] = *reading;
  }
  return spectral::are_plausible(readings);
}

// Without readings, or for an unknown model, the unit counts as not calibrated.
template <typename Facade>
void compute_factors(Facade& facade, const unsigned short* readings) {
  if (readings == nullptr || !spectral::is_model(facade.m_deviceType)) {
    spectral::set_flag(&facade.m_calibrationValid, false);
    return;
  }
  for (int n = 0; n < spectral::kChannels; ++n) {
    facade.m_calibrationFactor[n] =
        spectral::calibration_factor(facade.m_deviceType, n, readings[n]);
  }
  // The flag is set last, since a capture of the other mode's client may run meanwhile.
  spectral::set_flag(&facade.m_calibrationValid, true);
}

template <typename Facade>
int prepare(Facade& facade) {
  spectral::set_flag(&facade.m_calibrationValid, false);
  facade.m_deviceType = find_model();
  if (facade.m_deviceType == spectral::kUnknownModel) return 0;
  unsigned short readings[spectral::kChannels] = {};
  if (!read_factory_file(readings)) return 0;
  compute_factors(facade, readings);
  return 1;
}

template <typename Facade>
void correct(Facade& facade, const ALSResult* raw) {
  if (raw == nullptr) return;
  facade.m_alsResult = *raw;
  if (!spectral::is_set(facade.m_calibrationValid)) return;
  for (int n = 0; n < spectral::kChannels; ++n) {
    facade.m_alsResult.value[n] = spectral::calibrate(raw->value[n], facade.m_calibrationFactor[n]);
  }
}

}  // namespace

int SpectralSensorDevice::GetDeviceType() { return static_cast<int>(find_model()); }
int SpectralSensor::GetDeviceType() { return static_cast<int>(find_model()); }

bool SpectralSensorDevice::GetFATPData(unsigned short* fatp) { return read_factory_file(fatp); }
bool SpectralSensor::GetFATPData(unsigned short* fatp) { return read_factory_file(fatp); }

int SpectralSensorDevice::PrepareCalibrationData() { return prepare(*this); }
int SpectralSensor::PrepareCalibrationData() { return prepare(*this); }

void SpectralSensorDevice::ComputeCalData(unsigned short* fatp) { compute_factors(*this, fatp); }
void SpectralSensor::ComputeCalData(unsigned short* fatp) { compute_factors(*this, fatp); }

void SpectralSensorDevice::CorrectALSRAW(const ALSResult* raw) { correct(*this, raw); }
void SpectralSensor::CorrectALSRAW(const ALSResult* raw) { correct(*this, raw); }
