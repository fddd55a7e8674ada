#pragma once

// The `info`, `registers` and `control` commands.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/numbers.h"
#include "tools/phone_facts.h"
#include "tools/report.h"
#include "tools/session.h"
#include "tools/unit_info.h"

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
inline std::string value_list(const Control& control) {
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
std::string explain_calibration(Service* service) {
  unsigned short readings[kChannels] = {};
  const auto model = static_cast<unsigned int>(service->GetDeviceType());
  const bool are_plausible = service->GetFATPData(readings);
  return explain_calibration(model, are_plausible, readings);
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
  if ((*session)->m_calibrationValid == 0) {
    unit.calibration_problem = explain_calibration(session->service());
  }
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

// Prints the registers from the address `first` on, sixteen on a line, or an object for each.
inline void print_registers(Format format, unsigned int first,
                            const std::vector<unsigned char>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto address = static_cast<unsigned int>((first + i) & 0xFF);
    if (format == Format::kJson) {
      print_json({{"address", address}, {"value", values[i]}});
      continue;
    }
    if (i % 16 == 0) std::printf("%s0x%02x:", i == 0 ? "" : "\n", address);
    std::printf(" %02x", values[i]);
  }
  if (format != Format::kJson) std::printf("\n");
}

template <typename Service>
void read_registers(Format format, unsigned int first, unsigned int count) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  std::vector<unsigned char> values(count);
  require(session.driver()->VD6281_RdMultipleBytes(static_cast<unsigned char>(first), values.data(),
                                                   static_cast<int>(count)),
          "reading the registers");
  print_registers(format, first, values);
}

template <typename Service>
void write_register(unsigned int address, unsigned int value) {
  Session<Service> session(SPECTRAL_MODE_ALS);
  require(session.driver()->VD6281_WrByte(static_cast<unsigned char>(address),
                                          static_cast<unsigned char>(value)),
          "writing the register");
}

template <typename Service>
void get_control(Format format, const std::string& name) {
  const Control& control = control_named(name);
  Session<Service> session(SPECTRAL_MODE_ALS);
  unsigned int value = 0;
  require(session.driver()->VD6281_GetControl(control.id, &value), "reading " + name);
  if (format == Format::kJson) return print_json({{"name", name}, {"value", value}});
  std::printf("%u\n", value);
}

template <typename Service>
void set_control(const std::string& name, const std::string& text) {
  const Control& control = control_named(name);
  const auto number = parse_whole_number(text);
  const bool is_taken =
      number && std::count(control.values.begin(), control.values.end(), *number) > 0;
  if (!is_taken) throw UsageError(name + " takes " + value_list(control));
  Session<Service> session(SPECTRAL_MODE_ALS);
  require(session.driver()->VD6281_SetControl(control.id, *number), "setting " + name);
}

inline void list_controls(Format format) {
  for (const Control& control : kControls) {
    if (format == Format::kJson) {
      print_json({{"name", control.name}, {"values", control.values}});
    } else {
      std::printf("%-16s %s\n", control.name, value_list(control).c_str());
    }
  }
}

}  // namespace spectralsensorctl
