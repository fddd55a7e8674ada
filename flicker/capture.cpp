// One flicker measurement: gain search, capture through the tunnel, analysis, tracking.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>

#include "driver/register_access.h"
#include "driver/status.h"
#include "flicker/analysis_library.h"
#include "flicker/result_tracking.h"
#include "flicker/tunnel_packet.h"
#include "platform/android.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kOk;

namespace {

constexpr int kCaptureMs = 1000;
constexpr int kMsPerPayload = 10;
constexpr std::size_t kRecordSize = 8;  // its first word is the sample

spectral::AnalysisBinding binding_of(SpectralSensorDevice* sensor) {
  return {kDriverTag,
          sensor->m_flk_lib_mtx,
          sensor->m_flickerLibHandle,
          sensor->m_pfnFlickerCreate,
          sensor->m_pfnFlickerProcess,
          sensor->m_pfnFlickerDestroy,
          sensor->m_flickerCore};
}

float sample_of(const std::uint8_t* record) {
  return static_cast<float>(static_cast<std::int16_t>(record[0] | record[1] << 8));
}

}  // namespace

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
      const auto count = static_cast<std::size_t>(len_ms / kMsPerPayload);
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
  float frequencies[spectral::kAnalysisTones];
  float powers[spectral::kAnalysisTones];
  std::fill(std::begin(frequencies), std::end(frequencies), -1.0f);
  std::fill(std::begin(powers), std::end(powers), -1.0f);
  std::memset(m_flkRawData, 0, sizeof m_flkRawData);
  std::memset(m_flkSamples, 0, sizeof m_flkSamples);

  StartExpFLK_AutoGain();
  const auto abandoned = [this] { return m_flkEnableFlag.load(std::memory_order_relaxed) == 0; };
  const bool abandoned_before = abandoned();
  if (!abandoned_before) ReadFLKData(kCaptureMs, m_flkRawData);
  StopExpFLK();
  if (abandoned_before || abandoned()) return kOk;

  for (std::size_t k = 0; k < std::size(m_flkSamples); ++k) {
    m_flkSamples[k] = sample_of(m_flkRawData + kRecordSize * k);
  }
  spectral::analyse(binding_of(this), m_flkSamples, frequencies, powers);
  float amplitudes[spectral::kAnalysisTones];
  std::transform(std::begin(powers), std::end(powers), amplitudes, spectral::tone_amplitude);
  FlickerResultProcessing(frequencies, amplitudes, result);
  return kOk;
}

float SpectralSensorDevice::FlickerResultProcessing(float* freqs, float* amps,
                                                    FlickerResult* result) {
  result->channel = static_cast<std::uint8_t>(m_flkChannelMask);
  result->gain = static_cast<float>(m_flkGain);
  return spectral::track_result(freqs, amps, &m_flkTrack, result);
}

float SpectralSensorDevice::ComputeHarmonicContribution(int f, int g) {
  return spectral::harmonic_weight(f, g);
}

int SpectralSensorDevice::LoadFlickerLibrary() {
  return spectral::load_analysis(binding_of(this), spectral::kAnalysisLibraryPath);
}

void SpectralSensorDevice::UnloadFlickerLibrary() { spectral::unload_analysis(binding_of(this)); }

int SpectralSensorDevice::check_dl_error() { return spectral::check_dl_error(binding_of(this)); }
