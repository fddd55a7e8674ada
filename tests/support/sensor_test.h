#pragma once

// The fixture of the tests that run the shipped library on the simulated phone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

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

inline Lines joined(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The trace of switching the power off.
inline const Lines kPowerOff = {"open iridel_enable", "write iridel_enable \"0\\0\"",
                                "close iridel_enable"};

inline std::string log_line(char priority, const std::string& tag, const std::string& text) {
  return std::string("log ") + priority + " " + tag + ": " + text;
}

inline std::string error_line(const std::string& text) {
  return log_line('E', "ilsservice-driver-device", text);
}

inline std::string warning_line(const std::string& text) {
  return log_line('W', "ilsservice-driver-device", text);
}

// Sets a field for a scope and restores it at the end of the scope.
template <typename Field>
class [[nodiscard]] Scoped {
 public:
  template <typename Value>
  Scoped(Field& field, Value value)
      : m_field(field), m_before(std::exchange(field, static_cast<Field>(value))) {}
  ~Scoped() { m_field = m_before; }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;

 private:
  Field& m_field;
  Field m_before;
};

// Each test starts from a zero-filled device record and from a new instance of the driver, so that
// a test need not restore what it has set in them.
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

  // Powers the sensor and brings it up, and clears the trace of both.
  void bring_up() {
    ASSERT_EQ(sensor->VD6281_Enable(true), 0);
    ASSERT_EQ(sensor->VD6281_Init(), 0);
    phone.clear_trace();
  }

  void bring_up(Cut cut) {
    phone.chip().cut(cut);
    bring_up();
  }

  // The trace that an operation leaves.
  template <typename Operation>
  Lines events_of(Operation operation) {
    phone.clear_trace();
    operation();
    return phone.events();
  }

  std::int64_t now_ms() { return phone.clock().now_ns() / spectralsim::kNsPerMs; }

  // The time since boot, which the library stamps its results with.
  static std::uint64_t boot_time_ns() {
    timespec boot = {};
    clock_gettime(CLOCK_BOOTTIME, &boot);
    return static_cast<std::uint64_t>(boot.tv_sec) * 1000000000u +
           static_cast<std::uint64_t>(boot.tv_nsec);
  }

  spectralsim::Phone phone;
  SpectralSensorDevice* sensor = nullptr;
};
