#pragma once

// The `info`, `registers` and `control` commands.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/phone_facts.h"
#include "tools/report.h"
#include "tools/session.h"

namespace spectralsensorctl {

struct Control {
  const char* name;
  VD6281_Control_Id_t id;
  std::vector<unsigned int> values;
};
inline const Control kControls[] = {
    {"pedestal-enable", VD6281_CONTROL_PEDESTAL_ENABLE, {0, 1}},
    {"pedestal-value", VD6281_CONTROL_PEDESTAL_VALUE, {0, 1, 2, 3, 4, 5, 6, 7}},
    {"dark-output", VD6281_CONTROL_OUTPUT_DARK_ENABLE, {0, 1}},
    {"sda-drive", VD6281_CONTROL_SDA_DRIVE_VALUE, {4, 8, 12, 16, 20}},
    {"otp-usage", VD6281_CONTROL_OTP_USAGE_ENABLE, {0, 1}},
};

// The values of a control as a text such as "0, 1 or 2".
inline std::string values_of(const Control& control) {
  std::string text;
  for (const unsigned int value : control.values) {
    if (!text.empty()) text += value == control.values.back() ? " or " : ", ";
    text += std::to_string(value);
  }
  return text;
}

inline const Control& control_named(const std::string& name) {
  for (const Control& control : kControls) {
    if (name == control.name) return control;
  }
  throw UsageError("no control \"" + name + "\"; see spectralsensorctl control list");
}

template <typename Service>
UnitInfo read_info(Session<Service>* session) {
  SpectralSensorDevice* driver = session->driver();
  unsigned char id = 0;
  unsigned char revision = 0;
  char* uid = nullptr;
  UnitInfo unit = {};
  require(driver->VD6281_GetProductVersion(&id, &revision), "reading the chip's version");
  require(driver->VD6281_GetUid(&uid), "reading the unit's id");
  require(driver->VD6281_GetVersion(&unit.driver_major, &unit.driver_minor),
          "reading the driver's version");
  const VD6281_device& dev = SpectralSensorDevice::m_VD6281Device[0];
  unit.chip_id = id;
  unit.revision = revision;
  unit.uid = uid;
  unit.oscillator_trim = dev.otp_osc_trim;
  unit.oscillator_2_trim = dev.otp_osc2_trim;
  unit.color_map = dev.otp_color_map;
  unit.phone_model = (*session)->m_deviceType;
  unit.calibrated = (*session)->m_calibrationValid != 0;
  for (int n = 0; n < kChannels; ++n) {
    VD6281_Color_Id_t color = VD6281_COLOR_UNKNOWN;
    require(driver->VD6281_GetChannelColor(static_cast<VD6281_Channel_Id_t>(1u << n), &color),
            "reading a channel's color");
    unit.color[n] = color_name(color);
    unit.slope[n] = dev.otp_slope[n] / 128.0;
    unit.calibration_factor[n] = (*session)->m_calibrationFactor[n];
  }
  return unit;
}

template <typename Service>
void show_info(Format format) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  print_info(format, read_info(&session));
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
void set_control(const std::string& name, const std::string& text) {
  const Control& control = control_named(name);
  char* end = nullptr;
  const unsigned long number = std::strtoul(text.c_str(), &end, 0);
  const bool is_number = end != text.c_str() && *end == '\0';
  const bool is_taken =
      is_number && std::count(control.values.begin(), control.values.end(), number) > 0;
  if (!is_taken) throw UsageError(name + " takes " + values_of(control));
  Session<Service> session(SPECTRAL_MODE_ALS);
  require(session.driver()->VD6281_SetControl(control.id, static_cast<unsigned int>(number)),
          "setting " + name);
}

inline void list_controls() {
  for (const Control& control : kControls)
    std::printf("%-16s %s\n", control.name, values_of(control).c_str());
}

}  // namespace spectralsensorctl
