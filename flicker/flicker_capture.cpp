// One flicker measurement: gain search, capture through the tunnel, analysis, and result tracking.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <mutex>

#include "driver/register_access.h"
#include "driver/shared_state.h"
#include "flicker/analysis_library.h"
#include "flicker/facade_traits.h"
#include "flicker/result_tracking_rule.h"
#include "flicker/tunnel_format.h"
#include "platform/android.h"
#include "platform/log.h"
#include "spectral_status.h"

using spectral::kAnalysisTones;
using spectral::kDriverTag;

namespace {

constexpr int kCaptureMs = 1000;

// The result is left as it is when the flicker enable flag is cleared before or during the capture.
template <typename Facade>
int measure(Facade& facade, FlickerResult* result) {
  float frequencies[kAnalysisTones];
  float powers[kAnalysisTones];
  std::fill(std::begin(frequencies), std::end(frequencies), -1.0f);
  std::fill(std::begin(powers), std::end(powers), -1.0f);
  std::memset(facade.m_flkRawData, 0, sizeof facade.m_flkRawData);
  std::memset(facade.m_flkSamples, 0, sizeof facade.m_flkSamples);

  facade.StartExpFLK_AutoGain();
  const bool abandoned = !spectral::is_set(facade.m_flkEnableFlag);
  if (!abandoned) facade.ReadFLKData(kCaptureMs, facade.m_flkRawData);
  facade.StopExpFLK();
  if (abandoned || !spectral::is_set(facade.m_flkEnableFlag)) return SPECTRAL_OK;

  for (std::size_t k = 0; k < std::size(facade.m_flkSamples); ++k) {
    facade.m_flkSamples[k] = spectral::sample_of(facade.m_flkRawData + spectral::kRecordSize * k);
  }
  spectral::analyse(facade, facade.m_flkSamples, frequencies, powers);
  float amplitudes[kAnalysisTones];
  std::transform(std::begin(powers), std::end(powers), amplitudes, spectral::tone_amplitude);
  facade.FlickerResultProcessing(frequencies, amplitudes, result);
  return SPECTRAL_OK;
}

}  // namespace

int SpectralSensorDevice::FlickerCoreWrapper(FlickerResult* result) {
  return measure(*this, result);
}
int SpectralSensor::FlickerCoreWrapper(FlickerResult* result) { return measure(*this, result); }

int SpectralSensorDevice::ReadFLKData(int len_ms, unsigned char* out) {
  constexpr char kName[] = "ReadFLKData";
  const std::lock_guard<std::mutex> lock(m_flk_data_mtx);
  // The messages carry the service's own status, not that of the operation that failed.
  if (VD6281_QuilInit() != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to Init Quillon Sensor, error code %d", kName,
                       SPECTRAL_FAILED);
    return SPECTRAL_FAILED;
  }
  if (VD6281_QuilTunnelSetup() != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to setup Quillon Sensor, error code %d", kName,
                       SPECTRAL_FAILED);
    return SPECTRAL_FAILED;
  }
  if (VD6281_QuilResetRdBuf() != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s, failed to reset buffer to get flicker raw data", kName);
  } else {
    m_flkCaptureTimeNs = static_cast<std::uint64_t>(android::elapsedRealtimeNano());
    const unsigned char* payloads = VD6281_GetFlickerDataBuffer(static_cast<unsigned int>(len_ms));
    if (payloads != nullptr) {
      const auto count = static_cast<std::size_t>(len_ms / spectral::kMsPerPayload);
      std::memcpy(out, payloads, count * spectral::kFlickerPayloadSize);
    } else {
      SPECTRAL_LOG_ERROR(kDriverTag, "%s, flicker raw data is null", kName);
    }
  }
  if (VD6281_QuilTunnelTerminate() == SPECTRAL_OK) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to terminate Quillon Sensor, error code %d", kName,
                     SPECTRAL_FAILED);
  return SPECTRAL_FAILED;
}

int SpectralSensor::ReadFLKData(int len_ms, unsigned char* out) {
  // A length beyond what a capture may have is refused below, but as many bytes must fit an int.
  constexpr int kPayloadSize = static_cast<int>(spectral::kFlickerPayloadSize);
  constexpr int kMostPayloads = std::numeric_limits<int>::max() / kPayloadSize;
  const std::lock_guard<std::mutex> lock(m_flk_data_mtx);
  const int payloads = std::clamp(len_ms / spectral::kMsPerPayload, 0, kMostPayloads);
  const int status = m_flicker->GetFlickerData(payloads * kPayloadSize, out);
  return status == SPECTRAL_OK ? SPECTRAL_OK : SPECTRAL_FAILED;
}
