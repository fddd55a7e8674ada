#include "service/calibration_data.h"

#include <fstream>
#include <limits>
#include <string>

#include "driver/flag.h"
#include "driver/nodes.h"
#include "driver/register_map.h"
#include "platform/android.h"

namespace spectral {

namespace {

constexpr char kModelProperty[] = "ro.product.device";

}  // namespace

std::uint32_t find_model() {
  char name[kPropertyValueMax] = {};
  if (property_get(kModelProperty, name, "unknown") < 1) return kUnknownModel;
  return model_of(name);
}

bool read_factory_file(unsigned short* readings) {
  std::ifstream file(kFactoryFilePath);
  if (!file.is_open() || readings == nullptr) return false;
  std::string text;
  for (std::int64_t line = 1; file.good(); ++line) {
    const int channel = channel_on_line(line);
    if (channel < 0) {
      file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
      continue;
    }
    if (!std::getline(file, text)) break;
    const auto reading = parse_reading(text);
    if (!reading) return false;
    readings[channel] = *reading;
  }
  return are_plausible(readings);
}

int prepare_calibration(const CalibrationFields& calibration) {
  set_flag(&calibration.valid, false);
  calibration.model = find_model();
  if (calibration.model == kUnknownModel) return 0;
  unsigned short readings[reg::kChannels] = {};
  if (!read_factory_file(readings)) return 0;
  compute_factors(readings, calibration);
  return 1;
}

void compute_factors(const unsigned short* readings, const CalibrationFields& calibration) {
  if (readings == nullptr || !is_model(calibration.model)) {
    set_flag(&calibration.valid, false);
    return;
  }
  for (int n = 0; n < reg::kChannels; ++n) {
    calibration.factor[n] = calibration_factor(calibration.model, n, readings[n]);
  }
  set_flag(&calibration.valid,
           true);  // last: a capture of the other mode's client may run meanwhile
}

ALSResult calibrated(const ALSResult& raw, const CalibrationFields& calibration) {
  ALSResult result = raw;
  if (!is_set(calibration.valid)) return result;
  for (int n = 0; n < reg::kChannels; ++n) {
    result.value[n] = calibrate(raw.value[n], calibration.factor[n]);
  }
  return result;
}

}  // namespace spectral
