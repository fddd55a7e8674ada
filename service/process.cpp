// The single measurement entry of the device service.

#include "driver/status.h"
#include "flicker/flicker_flow.h"
#include "platform/android.h"
#include "spectral_sensor_device.h"

int SpectralSensorDevice::Process(int mode, SpectralSensorOutput* output) {
  if (output == nullptr) return spectral::kFailed;
  switch (mode) {
    case SPECTRAL_MODE_ALS:
      output->als.timestamp = static_cast<std::uint64_t>(android::elapsedRealtimeNano());
      return m_alsAeEnable != 0 ? CaptureALSAE(output) : CaptureALSDefault(output);
    case SPECTRAL_MODE_FLICKER:
      return spectral::process_flicker(this, output, [this] { return m_flkCaptureTimeNs; });
    default:
      return spectral::kFailed;
  }
}
