// The single measurement entry of the service.

#include "driver/status.h"
#include "flicker/result_tracking.h"
#include "platform/android.h"
#include "spectral_sensor_device.h"

int SpectralSensorDevice::Process(int mode, SpectralSensorOutput* output) {
  if (output == nullptr) return spectral::kFailed;
  switch (mode) {
    case SPECTRAL_MODE_ALS:
      output->als.timestamp = static_cast<std::uint64_t>(android::elapsedRealtimeNano());
      return m_alsAeEnable != 0 ? CaptureALSAE(output) : CaptureALSDefault(output);
    case SPECTRAL_MODE_FLICKER:
      m_flkResult = {};
      m_flkResult.freq_a = spectral::kMains50Hz;
      m_flkResult.freq_b = spectral::kMains60Hz;
      FlickerCoreWrapper(&m_flkResult);
      m_flkResult.valid = 1;
      m_flkResult.timestamp_ns = m_flkCaptureTimeNs;
      output->flicker = m_flkResult;
      return spectral::kOk;
    default:
      return spectral::kFailed;
  }
}
