#pragma once

// The `als` command.

#include <cstdio>

#include "tools/files.h"
#include "tools/live.h"
#include "tools/phone_facts.h"
#include "tools/report.h"
#include "tools/session.h"

namespace spectralsensorctl {

constexpr int kSettlingCaptures = 10;

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

template <typename Service>
AlsReading capture_als(Session<Service>* session) {
  SpectralSensorOutput output{};
  if ((*session)->Process(SPECTRAL_MODE_ALS, &output) != SPECTRAL_OK && !interrupted()) {
    throw std::runtime_error(explain_failure(SPECTRAL_MODE_ALS, "the measurement failed"));
  }
  AlsReading reading = {};
  reading.result = output.als;
  for (int n = 0; n < kChannels; ++n) {
    const auto channel = static_cast<VD6281_Channel_Id_t>(1u << n);
    unsigned short code = 0;
    session->driver()->VD6281_GetGain(channel, &code);
    reading.gain[n] = code / 256.0;
    VD6281_Color_Id_t color = VD6281_COLOR_UNKNOWN;
    session->driver()->VD6281_GetChannelColor(channel, &color);
    reading.color[n] = color_name(color);
    const double of_smallest_gain = reading.gain[n] / output.als.gain;
    reading.saturated[n] =
        output.als.valid != 0 &&
        is_saturated(output.als.value[n] / correction(*session->service(), n) * of_smallest_gain,
                     output.als.exposureMs);
  }
  return reading;
}

template <typename Service>
void watch_als_live(Session<Service>* session) {
  LivePage page;
  while (!interrupted()) {
    const AlsReading reading = capture_als(session);
    if (interrupted()) break;
    page.draw(als_panel(reading, terminal_columns()) + "Ctrl-C ends\n");
  }
}

template <typename Service>
void read_als(const AlsOptions& options, Format format) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  configure_als(session.service(), options);
  const bool as_table = format == Format::kTable;
  if (options.watch && as_table && on_terminal()) return watch_als_live(&session);
  const bool single = !options.watch && options.count == 1;
  // A single reading is taken after captures in which the auto-exposure settles.
  const int settling = single && options.auto_exposure ? kSettlingCaptures - 1 : 0;
  for (int i = 0; i < settling && !interrupted(); ++i) capture_als(&session);
  if (!single || !as_table) print_als_head(format);
  for (int i = 1; (options.watch || i <= options.count) && !interrupted(); ++i) {
    const AlsReading reading = capture_als(&session);
    if (interrupted()) break;
    if (single && as_table) {
      std::fputs(als_panel(reading, 0).c_str(), stdout);
    } else {
      print_als(format, i, reading);
    }
    flush_output();
  }
}

}  // namespace spectralsensorctl
