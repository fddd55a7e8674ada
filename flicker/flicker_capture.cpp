// One flicker measurement of the device service: capture through the tunnel, and what
// flicker_flow.h makes of it.

#include <cstring>
#include <mutex>

#include "driver/register_access.h"
#include "driver/status.h"
#include "flicker/analysis_library.h"
#include "flicker/flicker_flow.h"
#include "flicker/tunnel_stream_rule.h"
#include "platform/android.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

using spectral::binding_of;
using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kOk;

int SpectralSensorDevice::ReadFLKData(int len_ms, unsigned char* out) {
  const std::lock_guard<std::mutex> lock(m_flk_data_mtx);
  // The messages carry the service's code, not the failing call's.
  if (VD6281_QuilInit() != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to Init Quillon Sensor, error code %d",
                       "ReadFLKData", kFailed);
    return kFailed;
  }
  if (VD6281_QuilTunnelSetup() != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to setup Quillon Sensor, error code %d",
                       "ReadFLKData", kFailed);
    return kFailed;
  }
  if (VD6281_QuilResetRdBuf() != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s, failed to reset buffer to get flicker raw data",
                       "ReadFLKData");
  } else {
    m_flkCaptureTimeNs = static_cast<std::uint64_t>(android::elapsedRealtimeNano());
    const unsigned char* payloads = VD6281_GetFlickerDataBuffer(static_cast<unsigned int>(len_ms));
    if (payloads != nullptr) {
      const auto count = static_cast<std::size_t>(len_ms / spectral::kMsPerPayload);
      std::memcpy(out, payloads, count * spectral::kFlickerPayloadSize);
    } else {
      SPECTRAL_LOG_ERROR(kDriverTag, "%s, flicker raw data is null", "ReadFLKData");
    }
  }
  if (VD6281_QuilTunnelTerminate() == kOk) return kOk;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to terminate Quillon Sensor, error code %d",
                     "ReadFLKData", kFailed);
  return kFailed;
}

int SpectralSensorDevice::FlickerCoreWrapper(FlickerResult* result) {
  return spectral::measure_flicker(this, kDriverTag, result);
}

float SpectralSensorDevice::FlickerResultProcessing(float* freqs, float* amps,
                                                    FlickerResult* result) {
  return spectral::process_result(this, freqs, amps, result);
}

float SpectralSensorDevice::ComputeHarmonicContribution(int f, int g) {
  return spectral::harmonic_weight(f, g);
}

int SpectralSensorDevice::LoadFlickerLibrary() {
  return spectral::load_analysis(binding_of(this, kDriverTag), spectral::kAnalysisLibraryPath);
}

void SpectralSensorDevice::UnloadFlickerLibrary() {
  spectral::unload_analysis(binding_of(this, kDriverTag));
}

int SpectralSensorDevice::check_dl_error() {
  return spectral::check_dl_error(binding_of(this, kDriverTag));
}
