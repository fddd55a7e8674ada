// Process, the single measurement entry of both facades.

#include "flicker/facade_traits.h"
#include "flicker/result_tracking_rule.h"
#include "platform/android.h"
#include "spectral_status.h"

using spectral::DeviceTraits;
using spectral::FacadeTraits;
using spectral::LayeredTraits;

namespace {

std::uint64_t now_ns() { return static_cast<std::uint64_t>(android::elapsedRealtimeNano()); }

template <typename Facade>
int process_als(Facade& facade, SpectralSensorOutput* output) {
  return facade.m_alsAeEnable != 0 ? facade.CaptureALSAE(output) : facade.CaptureALSDefault(output);
}

template <typename Facade>
int process_flicker(Facade& facade, SpectralSensorOutput* output) {
  FlickerResult& result = facade.m_flkResult;
  result = {};
  result.freq_a = spectral::kMains50Hz;
  result.freq_b = spectral::kMains60Hz;
  facade.FlickerCoreWrapper(&result);
  result.valid = 1;
  result.timestamp_ns = FacadeTraits<Facade>::flicker_time_ns(facade);
  output->flicker = result;
  return SPECTRAL_OK;
}

}  // namespace

std::uint64_t DeviceTraits::flicker_time_ns(const Facade& facade) {
  return facade.m_flkCaptureTimeNs;
}
std::uint64_t LayeredTraits::flicker_time_ns(const Facade&) { return now_ns(); }

int SpectralSensorDevice::Process(int mode, SpectralSensorOutput* output) {
  if (output == nullptr) return SPECTRAL_FAILED;
  if (mode == SPECTRAL_MODE_FLICKER) return process_flicker(*this, output);
  if (mode != SPECTRAL_MODE_ALS) return SPECTRAL_FAILED;
  output->als.timestamp = now_ns();
  return process_als(*this, output);
}

int SpectralSensor::Process(int mode, SpectralSensorOutput* output) {
  if (output == nullptr) return SPECTRAL_FAILED;
  if (mode == SPECTRAL_MODE_FLICKER) return process_flicker(*this, output);
  if (mode != SPECTRAL_MODE_ALS) return SPECTRAL_FAILED;
  const int status = process_als(*this, output);
  output->als.timestamp = now_ns();
  return status;
}
