// Auto-exposure in gain codes. The rule is in auto_exposure.h, the capture in als_flow.h.

#include <algorithm>
#include <iterator>

#include "driver/exposure_gain_rule.h"
#include "driver/register_access.h"
#include "service/als_flow.h"
#include "spectral_sensor_device.h"

namespace {

constexpr float kGainOfCode1 =
    spectral::gain_factor(1);  // a reset really programs code 1, not unity

void set_gain_codes(ALSConfig* next, const float (&gains)[6]) {
  std::transform(std::begin(gains), std::end(gains), next->gainCode,
                 [](float gain) { return spectral::to_gain_q8(gain); });
}

}  // namespace

float SpectralSensorDevice::LookUpGain(float target, int low, int high) {
  return spectral::checked_gain(target, low, high, spectral::kDriverTag);
}

int SpectralSensorDevice::ALSAE(ALSResult* result, ALSConfig* next, bool* stable) {
  return spectral::propose_config(result, m_alsConfig, next, stable, spectral::kDriverTag,
                                  kGainOfCode1, set_gain_codes);
}

int SpectralSensorDevice::CaptureALSAE(SpectralSensorOutput* output) {
  return spectral::capture_auto_exposure(this, output);
}
