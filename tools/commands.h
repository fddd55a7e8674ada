#pragma once

// What the tool's commands do, each with one session of the service chosen. They throw SensorError.

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "driver/register_map.h"
#include "simulator/scene.h"
#include "tools/report.h"
#include "tools/session.h"

namespace spectralsensorctl {

constexpr int kSettlingCaptures = 10;
constexpr int kConfirmations = 2;  // measurements until a flicker verdict is confirmed

struct AlsOptions {
  int count = 1;
  bool watch = false;
  bool fixed = false;  // no auto-exposure
  unsigned int exposure_us = 100800;
  double gain = 1.0;
  unsigned int channels = 0x1B;
};

struct FlickerOptions {
  int count = 1;
  bool watch = false;
  bool detector = false;
};

struct Control {
  const char* name;
  VD6281_Control_Id_t id;
  const char* values;
};
constexpr Control kControls[] = {
    {"pedestal-enable", VD6281_CONTROL_PEDESTAL_ENABLE, "0 or 1"},
    {"pedestal-value", VD6281_CONTROL_PEDESTAL_VALUE, "0..7"},
    {"dark-output", VD6281_CONTROL_OUTPUT_DARK_ENABLE, "0 or 1"},
    {"sda-drive", VD6281_CONTROL_SDA_DRIVE_VALUE, "4, 8, 12, 16 or 20"},
    {"otp-usage", VD6281_CONTROL_OTP_USAGE_ENABLE, "0 or 1"},
};

inline const Control& control_named(const std::string& name) {
  for (const Control& control : kControls) {
    if (name == control.name) return control;
  }
  throw SensorError("no control \"" + name + "\"; see spectralsensorctl control list");
}

inline void require(int status, const std::string& what) {
  if (status != 0) throw SensorError(what + " failed with status " + std::to_string(status));
}

template <typename Service>
void show_info() {
  Session<Service> session(SPECTRAL_MODE_ALS);
  unsigned char id = 0;
  unsigned char revision = 0;
  char* uid = nullptr;
  unsigned int major = 0;
  unsigned int minor = 0;
  require(session.driver()->VD6281_GetProductVersion(&id, &revision), "reading the chip's version");
  require(session.driver()->VD6281_GetUid(&uid), "reading the unit's id");
  require(session.driver()->VD6281_GetVersion(&major, &minor), "reading the driver's version");
  const VD6281_device& dev = SpectralSensorDevice::m_VD6281Device[0];
  std::printf("chip           0x%02x, revision 0x%02x (cut 2.%d)\n", id, revision, revision - 0xBA);
  std::printf("unit           %s\n", uid);
  std::printf("driver         %u.%u\n", major, minor);
  std::printf("OTP            oscillator trims 0x%03x and 0x%x, colour map %u\n", dev.otp_osc_trim,
              dev.otp_osc2_trim, dev.otp_color_map);
  std::printf("OTP slopes    ");
  for (const int slope : dev.otp_slope) std::printf(" %.3f", slope / 128.0);
  std::printf("\nphone model    %u%s\n", session->m_deviceType,
              session->m_deviceType == 0 ? " (unknown)" : "");
  std::printf("calibration    %s", session->m_calibrationValid != 0 ? "factors" : "none");
  if (session->m_calibrationValid != 0) {
    for (const double factor : session->m_calibrationFactor) std::printf(" %.4f", factor);
  }
  std::printf("\n");
}

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
  service->m_alsAeEnable = options.fixed ? 0 : 1;
  service->m_alsConfig.exposureTime = options.exposure_us;
  for (int n = 0; n < spectral::reg::kChannels; ++n) {
    service->m_alsConfig.gainCode[n] = static_cast<std::uint16_t>(options.gain * 256.0);
    service->m_alsConfig.channelGain[n] = static_cast<float>(options.gain);
  }
}

template <typename Service>
AlsReading capture_als(Session<Service>* session) {
  SpectralSensorOutput output{};
  if ((*session)->Process(SPECTRAL_MODE_ALS, &output) != 0 && !interrupted()) {
    throw SensorError("the measurement failed; the log says at which step");
  }
  AlsReading reading = {output.als, {}};
  for (int n = 0; n < spectral::reg::kChannels; ++n) {
    unsigned short code = 0;
    session->driver()->VD6281_GetGain(static_cast<VD6281_Channel_Id_t>(1u << n), &code);
    reading.gain[n] = code / 256.0;
  }
  return reading;
}

template <typename Service>
void read_als(const AlsOptions& options, Format format) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  configure_als(session.service(), options);
  // A single reading is one that the auto-exposure has settled for.
  const bool settle = !options.fixed && !options.watch && options.count == 1;
  for (int i = 1; settle && i < kSettlingCaptures && !interrupted(); ++i) capture_als(&session);
  print_als_head(format);
  for (int i = 1; (options.watch || i <= options.count) && !interrupted(); ++i) {
    const AlsReading reading = capture_als(&session);
    if (interrupted()) break;
    print_als(format, i, reading);
    std::fflush(stdout);
  }
}

template <typename Service>
void ask_detector(Session<Service>* session) {
  constexpr auto kPause = std::chrono::milliseconds(50);
  constexpr int kPolls = 100;
  require((*session)->StartExpFLK_AutoGain(), "starting the flicker measurement");
  VD6281_FlickerInfo_t info = {};
  int status = 0;
  for (int i = 0; i < kPolls && status == 0 && info.confidence == 0 && !interrupted(); ++i) {
    std::this_thread::sleep_for(kPause);
    status = session->driver()->VD6281_GetFlickerFrequency(&info);
  }
  (*session)->StopExpFLK();
  require(status, "reading the detector");
  if (info.valid == 0) throw SensorError("the detector has no answer");
  std::printf("%u Hz, confidence %u\n", info.frequency, info.confidence);
}

template <typename Service>
void find_flicker(const FlickerOptions& options, Format format) {
  Session<Service> session(SPECTRAL_MODE_FLICKER);
  if (options.detector) {
    std::fprintf(stderr, "Counting light periods, up to five seconds\n");
    ask_detector(&session);
    return;
  }
  const auto measure = [&session] {
    SpectralSensorOutput output{};
    session->Process(SPECTRAL_MODE_FLICKER, &output);
    return output.flicker;
  };
  if (!options.watch) {
    std::fprintf(stderr, "Sampling the light, a good second a measurement\n");
    for (int i = 1; i < kConfirmations && !interrupted(); ++i) measure();
  }
  print_flicker_head(format);
  for (int i = 1; (options.watch || i <= options.count) && !interrupted(); ++i) {
    const FlickerResult result = measure();
    if (interrupted()) break;
    print_flicker(format, i, result, flicker_gain(session.service(), result.gain));
    std::fflush(stdout);
  }
}

template <typename Service>
void read_registers(unsigned int first, unsigned int count) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  std::vector<unsigned char> values(count);
  require(session.driver()->VD6281_RdMultipleBytes(static_cast<unsigned char>(first), values.data(),
                                                   static_cast<int>(count)),
          "reading the registers");
  for (unsigned int i = 0; i < count; ++i) {
    if (i % 16 == 0) std::printf("%s0x%02x:", i == 0 ? "" : "\n", (first + i) & 0xFF);
    std::printf(" %02x", values[i]);
  }
  std::printf("\n");
}

template <typename Service>
void write_register(unsigned int address, unsigned int value) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  require(session.driver()->VD6281_WrByte(static_cast<unsigned char>(address),
                                          static_cast<unsigned char>(value)),
          "writing the register");
}

template <typename Service>
void get_control(const std::string& name) {
  const Control& control = control_named(name);
  Session<Service> session(SPECTRAL_MODE_ALS);
  unsigned int value = 0;
  require(session.driver()->VD6281_GetControl(control.id, &value), "reading " + name);
  std::printf("%u\n", value);
}

template <typename Service>
void set_control(const std::string& name, unsigned int value) {
  const Control& control = control_named(name);
  Session<Service> session(SPECTRAL_MODE_ALS);
  const int status = session.driver()->VD6281_SetControl(control.id, value);
  if (status == 1) throw SensorError(name + " takes " + control.values);
  require(status, "setting " + name);
}

inline void list_controls() {
  for (const Control& control : kControls) std::printf("%-16s %s\n", control.name, control.values);
}

inline void list_scenes() {
  for (const std::string& name : spectralsim::Scene::names()) {
    std::printf("%-12s %s\n", name.c_str(), spectralsim::Scene::description(name).c_str());
  }
}

}  // namespace spectralsensorctl
