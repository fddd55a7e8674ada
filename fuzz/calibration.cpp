// Fuzzes the factory file and the phone's model with any content, and with reads of the file that
// fail or come short.
//
// An input is text. Its first line is the phone's model, which may be preceded by '!' (the first
// read of the file fails) or '~' (every read returns at most eight bytes). The other lines are the
// factory file.

#include <cmath>
#include <iterator>

#include "fuzz/support.h"
#include "service/calibration_rule.h"

using fuzz::Bench;
using fuzz::require;
using spectralsim::Fault;
using spectralsim::Node;

namespace {

constexpr char kFailing = '!';
constexpr char kShort = '~';
// A factor is a reading of the reference unit divided by one of this unit.
constexpr float kSmallestFactor = 483.0f / 50000.0f;
constexpr float kLargestFactor = 8821.0f / 100.0f;

template <typename Service>
void calibrate(Service* service, const std::string& model) {
  const int calibrated = service->PrepareCalibrationData();
  require(calibrated == service->m_calibrationValid && calibrated <= 1,
          "PrepareCalibrationData returns m_calibrationValid, 0 or 1");
  require(service->m_deviceType == spectral::model_of(model.c_str()), "the model is found by name");
  require(service->GetDeviceType() == static_cast<int>(service->m_deviceType),
          "GetDeviceType returns the same model");
  unsigned short readings[6] = {};
  const bool plausible = service->GetFATPData(readings);
  require(calibrated == 0 || plausible, "a calibrated unit's readings are plausible again");
  for (int n = 0; n < 6; ++n) {
    const float factor = service->m_calibrationFactor[n];
    if (calibrated != 0) {
      require(factor >= kSmallestFactor && factor <= kLargestFactor,
              "a factor is one that plausible readings give");
      require(readings[n] >= 100 && readings[n] <= 50000, "a reading is within its bounds");
    } else {
      require(factor == 1.0f, "without calibration a factor is 1");
    }
  }
  require(!service->GetFATPData(nullptr), "GetFATPData refuses a null pointer");
}

template <typename Service>
void measure(Service* service) {
  SpectralSensorOutput output = {};
  require(service->Init(SPECTRAL_MODE_ALS) == 0, "the sensor comes up");
  for (int i = 0; i < 2; ++i) {
    require(service->Process(SPECTRAL_MODE_ALS, &output) == 0 && output.als.valid == 1,
            "a measurement succeeds");
    fuzz::check(output.als);
    for (const float value : output.als.value) {
      require(service->m_calibrationValid == 0 || value <= 65535.0f,
              "calibrated values are capped");
    }
  }
  service->Uninit(SPECTRAL_MODE_ALS);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string text(bytes, bytes + size);
  const std::size_t line_end = std::min(text.find('\n'), text.size());
  std::string model = text.substr(0, line_end);
  const char reads = model.empty() ? '\0' : model[0];
  if (reads == kFailing || reads == kShort) model.erase(0, 1);

  Bench bench;
  bench.phone.model(model).factory_file(text.substr(std::min(line_end + 1, text.size())));
  if (reads == kShort) bench.phone.fail(Fault::read(Node::kFactoryFile).every().returning(8));
  model.resize(std::min<std::size_t>(model.size(), 91));  // the most that a property holds
  if (reads == kFailing) bench.phone.fail(Fault::read(Node::kFactoryFile));
  calibrate(bench.device, model);
  calibrate(bench.layered, model);
  measure(bench.device);
  measure(bench.layered);
  Bench::check_record();
  return 0;
}
