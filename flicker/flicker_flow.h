#pragma once

// What both services do alike for flicker: each has the fields and operations used here, in its own
// units and by its own way to the chip.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "driver/flag.h"
#include "driver/flicker_detector_rule.h"
#include "driver/status.h"
#include "flicker/analysis_library.h"
#include "flicker/result_tracking_rule.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"
#include "spectral_types.h"

namespace spectral {

constexpr int kCaptureMs = 1000;
constexpr int kMsPerPayload = 10;
constexpr std::size_t kRecordSize = 8;  // its first word is the sample

inline int answer_flicker_start(int status, const char* log_tag, std::uint32_t channels) {
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(log_tag, "%s: Cannot start FLK  %d, channel=0x%x", "StartExpFLK", status,
                     channels);
  return kFailed;
}

inline int answer_flicker_stop(int status, const char* log_tag) {
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(log_tag, "%s: Cannot stop FLK exposure  %d", "StopExpFLK", status);
  return kFailed;
}

inline void log_flicker_read_failed(const char* operation, int status, const char* log_tag,
                                    std::uint32_t channels) {
  SPECTRAL_LOG_ERROR(log_tag, "%s: FLK read failed, error code %d, channel=0x%x", operation, status,
                     channels);
}

constexpr int kSaturationPolls = 13;
constexpr std::chrono::milliseconds kProbeTime{1};

// Whether the flicker channel saturates: polls `read(&value)` until the counter says so, it fails
// or the flicker enable flag is cleared. The timed lock is a probe: nothing else ever holds it.
template <typename Service, typename Read>
bool poll_saturation(Service* service, Read read) {
  for (int i = 0; i < kSaturationPolls; ++i) {
    if (!is_set(service->m_flkEnableFlag)) return false;
    int value = 0;
    if (!read(&value)) return false;
    if (service->m_flk_ag_mtx.try_lock_for(kProbeTime)) service->m_flk_ag_mtx.unlock();
    if (value >= kSaturated) return true;
  }
  return false;
}

template <typename Service>
AnalysisBinding binding_of(Service* service, const char* log_tag) {
  return {log_tag,
          service->m_flk_lib_mtx,
          service->m_flickerLibHandle,
          service->m_pfnFlickerCreate,
          service->m_pfnFlickerProcess,
          service->m_pfnFlickerDestroy,
          service->m_flickerCore};
}

template <typename Service>
float process_result(Service* service, const float* frequencies, const float* amplitudes,
                     FlickerResult* result) {
  result->channel = static_cast<std::uint8_t>(service->m_flkChannelMask);
  result->gain = static_cast<float>(service->m_flkGain);
  return track_result(frequencies, amplitudes, &service->m_flkTrack, result);
}

inline float sample_of(const std::uint8_t* record) {
  return static_cast<float>(static_cast<std::int16_t>(record[0] | record[1] << 8));
}

// One measurement: gain search, capture, analysis, tracking. `result` is left as it is when the
// flicker enable flag is cleared before or during the capture.
template <typename Service>
int measure_flicker(Service* service, const char* log_tag, FlickerResult* result) {
  float frequencies[kAnalysisTones];
  float powers[kAnalysisTones];
  std::fill(std::begin(frequencies), std::end(frequencies), -1.0f);
  std::fill(std::begin(powers), std::end(powers), -1.0f);
  std::memset(service->m_flkRawData, 0, sizeof service->m_flkRawData);
  std::memset(service->m_flkSamples, 0, sizeof service->m_flkSamples);

  service->StartExpFLK_AutoGain();
  const auto abandoned = [service] { return !is_set(service->m_flkEnableFlag); };
  const bool abandoned_before = abandoned();
  if (!abandoned_before) service->ReadFLKData(kCaptureMs, service->m_flkRawData);
  service->StopExpFLK();
  if (abandoned_before || abandoned()) return kOk;

  for (std::size_t k = 0; k < std::size(service->m_flkSamples); ++k) {
    service->m_flkSamples[k] = sample_of(service->m_flkRawData + kRecordSize * k);
  }
  analyse(binding_of(service, log_tag), service->m_flkSamples, frequencies, powers);
  float amplitudes[kAnalysisTones];
  std::transform(std::begin(powers), std::end(powers), amplitudes, tone_amplitude);
  service->FlickerResultProcessing(frequencies, amplitudes, result);
  return kOk;
}

// The flicker mode of Process; `stamp()` gives the time of the measurement.
template <typename Service, typename Stamp>
int process_flicker(Service* service, SpectralSensorOutput* output, Stamp stamp) {
  FlickerResult& result = service->m_flkResult;
  result = {};
  result.freq_a = kMains50Hz;
  result.freq_b = kMains60Hz;
  service->FlickerCoreWrapper(&result);
  result.valid = 1;
  result.timestamp_ns = stamp();
  output->flicker = result;
  return kOk;
}

// What a detector's answer, of either kind, is as a result: its frequency as one of the mains or as
// the dominant one, its confidence as the strength.
template <typename Info>
void fill_from_detector(const Info& info, FlickerResult* result) {
  if (info.frequency == kMains60Hz) {
    result->strength_b = info.confidence;
  } else if (info.frequency == kMains50Hz) {
    result->strength_a = info.confidence;
  } else {
    result->dominant_freq = info.frequency;
    result->dominant_strength = info.confidence;
  }
  result->channel = info.channel;  // the detector's answer names neither
  result->gain = static_cast<float>(info.gain);
}

// ReadFLK: `poll(&info)` asks the detector until it fails or has an answer.
template <typename Info, typename Poll>
int read_detector(FlickerResult* result, const char* log_tag, std::uint32_t channels, Poll poll) {
  if (result == nullptr) return kFailed;
  Info info = {};
  info.frequency = 50;
  info.confidence = 3;
  const int status = poll(&info);
  *result = {};
  result->freq_a = kMains50Hz;
  result->freq_b = kMains60Hz;
  if (status != kOk) {
    log_flicker_read_failed("ReadFLK", status, log_tag, channels);
    return kFailed;
  }
  fill_from_detector(info, result);
  return kOk;
}

}  // namespace spectral
