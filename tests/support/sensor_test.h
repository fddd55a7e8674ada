#pragma once

// The fixture of the tests that run the shipped library on the simulated phone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "simulator/phone.h"
#include "spectral_sensor_device.h"

using spectralsim::Cut;
using spectralsim::Fault;
using spectralsim::Node;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

constexpr char kLogTag[] = "ilsservice-driver-device";

inline std::string error_line(const std::string& text) {
  return std::string("log E ") + kLogTag + ": " + text;
}

class SensorTest : public ::testing::Test {
 protected:
  SensorTest() {
    phone.chip().noise(0, 1);
    std::memset(&dev(), 0, sizeof(VD6281_device));
    dev().fd_read_byte = dev().fd_write_byte = dev().fd_dev = -1;
    sensor = SpectralSensorDevice::Create();
    phone.clear_trace();
  }

  ~SensorTest() override {
    phone.heal();
    SpectralSensorDevice::Destroy();
    EXPECT_EQ(phone.open_descriptors(), 0);
    EXPECT_FALSE(phone.chip().powered());
  }

  static VD6281_device& dev() { return SpectralSensorDevice::m_VD6281Device[0]; }

  // Powers the sensor and brings it up, untraced.
  void bring_up() {
    ASSERT_EQ(sensor->VD6281_Enable(true), 0);
    ASSERT_EQ(sensor->VD6281_Init(), 0);
    phone.clear_trace();
  }

  void bring_up(Cut cut) {
    phone.chip().cut(cut);
    bring_up();
  }

  // What the phone sees of an operation.
  template <typename Operation>
  Lines events_of(Operation operation) {
    phone.clear_trace();
    operation();
    return phone.events();
  }

  spectralsim::Phone phone;
  SpectralSensorDevice* sensor = nullptr;
};
