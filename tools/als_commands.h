#pragma once

// The `als` command.

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tools/files.h"
#include "tools/live.h"
#include "tools/phone_facts.h"
#include "tools/report.h"
#include "tools/session.h"

namespace spectralsensorctl {

constexpr int kMostSettlingCaptures = 10;

struct AlsOptions {
  int count = 1;
  bool watch = false;
  bool auto_exposure = true;
  unsigned int exposure_us = 100800;
  double gain = 1.0;
  unsigned int channels = 0x1B;
};

inline void set_channels(SpectralSensorDevice* service, unsigned int mask) {
  service->m_alsChannelMask = static_cast<std::uint8_t>(mask);
}

inline void set_channels(SpectralSensor* service, unsigned int mask) {
  service->m_alsChannelMask = mask;
  service->m_als->m_channelMask = mask;
}

template <typename Service>
void configure_als(Service* service, const AlsOptions& options) {
  set_channels(service, options.channels);
  service->m_alsAeEnable = options.auto_exposure ? 1 : 0;
  service->m_alsConfig.exposureTime = options.exposure_us;
  for (int n = 0; n < kChannels; ++n) {
    service->m_alsConfig.gainCode[n] = static_cast<std::uint16_t>(options.gain * 256.0);
    service->m_alsConfig.channelGain[n] = static_cast<float>(options.gain);
  }
}

// The factor, besides the gains, by which the service has multiplied a channel's counter in a
// reading. A calibrated unit uses its calibration factors in place of the OTP slopes, but applies
// them only with auto-exposure.
template <typename Service>
double correction(const Service& service, int n) {
  if (service.m_calibrationValid != 0) {
    return service.m_alsAeEnable != 0 ? service.m_calibrationFactor[n] : 1.0;
  }
  const VD6281_device& dev = SpectralSensorDevice::m_VD6281Device[0];
  return dev.otp_usage_enable != 0 ? dev.otp_slope[n] / 128.0 : 1.0;
}

// Applies the setting of the next capture to the chip. Returns the exposure and the gains that the
// chip has then, which are the nearest ones that it can do.
template <typename Service>
ALSConfig apply_setting(Service* service) {
  ALSConfig taken;
  if (service->ConfigALS(&service->m_alsConfig, &taken) != SPECTRAL_OK && !interrupted()) {
    throw std::runtime_error(explain_failure(SPECTRAL_MODE_ALS, "the sensor takes no setting"));
  }
  return taken;
}

inline bool is_same_setting(const ALSConfig& a, const ALSConfig& b) {
  return a.exposureTime == b.exposureTime &&
         std::equal(std::begin(a.gainCode), std::end(a.gainCode), b.gainCode) &&
         std::equal(std::begin(a.channelGain), std::end(a.channelGain), b.channelGain);
}

// Fills in the gain, the color and the saturation of each channel. The gains are those that the
// chip still has after the capture.
template <typename Service>
void describe_channels(Session<Service>* session, AlsReading* reading) {
  const ALSResult& als = reading->result;
  for (int n = 0; n < kChannels; ++n) {
    const auto channel = static_cast<VD6281_Channel_Id_t>(1u << n);
    unsigned short code = 0;
    session->driver()->VD6281_GetGain(channel, &code);
    reading->gain[n] = code / 256.0;
    VD6281_Color_Id_t color = VD6281_COLOR_UNKNOWN;
    session->driver()->VD6281_GetChannelColor(channel, &color);
    reading->color[n] = color_name(color);
    const double of_smallest_gain = reading->gain[n] / als.gain;
    reading->saturated[n] =
        als.valid != 0 &&
        is_saturated(als.value[n] / correction(*session->service(), n) * of_smallest_gain,
                     als.exposureMs);
  }
}

template <typename Service>
AlsReading capture_als(Session<Service>* session) {
  Service* service = session->service();
  const ALSConfig setting = apply_setting(service);
  SpectralSensorOutput output{};
  if (service->Process(SPECTRAL_MODE_ALS, &output) != SPECTRAL_OK && !interrupted()) {
    throw std::runtime_error(explain_failure(SPECTRAL_MODE_ALS, "the measurement failed"));
  }
  AlsReading reading = {};
  reading.result = output.als;
  reading.time = now();
  describe_channels(session, &reading);
  // A capture with auto-exposure has replaced the setting by its proposal for the next one.
  if (service->m_alsAeEnable != 0) {
    reading.settled = is_same_setting(setting, apply_setting(service));
  }
  return reading;
}

// Takes captures until the auto-exposure keeps the setting, and returns the last of them.
template <typename Service>
AlsReading settle_als(Session<Service>* session) {
  for (int i = 1;; ++i) {
    std::fprintf(stderr, "Settling the exposure: capture %d of at most %d, %.0f ms\n", i,
                 kMostSettlingCaptures, session->service()->m_alsConfig.exposureTime / 1000.0);
    const AlsReading reading = capture_als(session);
    if (interrupted() || reading.settled.value_or(true)) return reading;
    if (i < kMostSettlingCaptures) continue;
    std::fprintf(stderr, "spectralsensorctl: the exposure did not settle within %d captures\n", i);
    return reading;
  }
}

template <typename Service>
void watch_als_live(Session<Service>* session) {
  LivePage page;
  while (!interrupted()) {
    const AlsReading reading = capture_als(session);
    if (interrupted()) break;
    page.draw([reading](int columns) { return als_panel(reading, columns) + "Ctrl-C ends\n"; });
  }
}

template <typename Service>
void read_als_once(Session<Service>* session, Format format) {
  const bool settles = session->service()->m_alsAeEnable != 0;
  const AlsReading reading = settles ? settle_als(session) : capture_als(session);
  if (interrupted()) return;
  if (format == Format::kTable) {
    std::fputs(als_panel(reading, 0).c_str(), stdout);
  } else {
    print_als_head(format);
    print_als(format, 1, reading);
  }
}

template <typename Service>
void read_als(const AlsOptions& options, Format format) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  configure_als(session.service(), options);
  if (options.watch && format == Format::kTable && can_draw_pages())
    return watch_als_live(&session);
  if (!options.watch && options.count == 1) return read_als_once(&session, format);
  print_als_head(format);
  for (int i = 1; options.watch || i <= options.count; ++i) {
    const AlsReading reading = capture_als(&session);
    if (interrupted()) return;
    print_als(format, i, reading);
    flush_output();
  }
}

}  // namespace spectralsensorctl
