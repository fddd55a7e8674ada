// The single measurement entry of the service.

#include "driver/status.h"
#include "platform/android.h"
#include "spectral_sensor_device.h"

int SpectralSensorDevice::Process(int mode, SpectralSensorOutput* output) {
  if (output == nullptr || mode != SPECTRAL_MODE_ALS) return spectral::kFailed;
  output->als.timestamp = static_cast<std::uint64_t>(android::elapsedRealtimeNano());
  return m_alsAeEnable != 0 ? CaptureALSAE(output) : CaptureALSDefault(output);
}
