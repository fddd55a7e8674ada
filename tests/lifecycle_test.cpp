#include <algorithm>

#include "tests/support/sensor_test.h"

namespace {

class Lifecycle : public SensorTest {
 protected:
  int counts() const { return 10 * sensor->m_flkRefCount + sensor->m_alsRefCount; }
};

const Lines kPowerOn = {"open iridel_enable", "write iridel_enable \"1\\0\"",
                        "close iridel_enable"};
const Lines kTearDown = joined(
    {"write fe=01", "write fe=00", "write 58=00", "read 5a=00", "read 5a=0a", "write 71=01"},
    joined({"close vd6281", "close iridel_write_byte", "close iridel_read_byte"}, kPowerOff));

Lines head(const Lines& lines, std::size_t count) {
  return {lines.begin(),
          lines.begin() + static_cast<std::ptrdiff_t>(std::min(count, lines.size()))};
}

Lines tail(const Lines& lines, std::size_t count) {
  return {lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

TEST_F(Lifecycle, CreatesOneInstanceWithThePowerOff) {
  EXPECT_EQ(SpectralSensorDevice::Create(), sensor);
  EXPECT_EQ(SpectralSensorDevice::m_pInstance, sensor);
  EXPECT_THAT(phone.events(), IsEmpty());
  SpectralSensorDevice::Destroy();
  SpectralSensorDevice::Destroy();
  EXPECT_EQ(SpectralSensorDevice::m_pInstance, nullptr);
  EXPECT_EQ(events_of([&] { sensor = SpectralSensorDevice::Create(); }), kPowerOff);
}

TEST_F(Lifecycle, FirstClientBringsUpAndLastTearsDown) {
  const Lines first = events_of([&] { EXPECT_EQ(sensor->Init(1), 0); });
  EXPECT_EQ(head(first, 3), kPowerOn);
  EXPECT_EQ(tail(first, 4), (Lines{"write 71=01", "read 31=00", "write 31=00", "write 32=03"}));
  EXPECT_EQ(sensor->m_powered, 1);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->Init(1), -17); }), IsEmpty());
  EXPECT_THAT(events_of([&] { sensor->Uninit(1); }), IsEmpty());
  EXPECT_EQ(events_of([&] { sensor->Uninit(1); }), kTearDown);
  EXPECT_EQ(counts(), 0);
  EXPECT_EQ(dev().fd_dev, -1);
  EXPECT_EQ(sensor->Init(1), 0);
}

TEST_F(Lifecycle, CountsNoClientsOfOtherModes) {
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->Init(0), -17);
                EXPECT_EQ(sensor->Init(3), -17);
                sensor->Uninit(3);
              }),
              IsEmpty());
  EXPECT_EQ(counts(), 0);
}

TEST_F(Lifecycle, LastClientOfAModeStopsItsMeasurement) {
  sensor->Init(1);
  sensor->Init(1);
  ASSERT_EQ(sensor->StartExpALS(), 0);
  sensor->Uninit(1);
  EXPECT_EQ(dev().state, 2u);
  const Lines events = events_of([&] { sensor->Uninit(1); });
  EXPECT_EQ(head(events, 2), (Lines{"write 03=00", "write 2e=00"}));
  EXPECT_EQ(tail(events, kTearDown.size()), kTearDown);
}

TEST_F(Lifecycle, AnUnbalancedUninitGoesBelowZeroAndPowersOff) {
  EXPECT_EQ(events_of([&] { sensor->Uninit(1); }), kPowerOff);
  EXPECT_EQ(counts(), -1);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->Init(1), -17); }), IsEmpty());
  EXPECT_EQ(counts(), 0);
}

struct BrokenStep {
  Fault fault;
  const char* message;
};

TEST_F(Lifecycle, EveryFailureOfInitReturnsMinus22AndLogsItsStep) {
  const BrokenStep steps[] = {
      {Fault::open(Node::kEnable), "Init: Failed to init Spectral Sensor, error code -1"},
      {Fault::write(Node::kEnable).returning(-5),
       "Init: Failed to init Spectral Sensor, error code -5"},
      {Fault::open(Node::kDevice), "Init: Failed to init Spectral Sensor, error code -2"},
      {Fault::register_write().at(0x71), "Init: Failed to init Spectral Sensor, error code -2"},
      {Fault::register_read().at(0x31).returning(-6),
       "Init: Pedstal value enable failure error code=-6"},
      {Fault::register_write().at(0x31).returning(-9),
       "Init: Pedstal value enable failure error code=-9"},
      {Fault::register_write().at(0x32).nth(2).returning(-6),
       "Init:  Pedstal value setup failure error code=6"},
  };
  for (const BrokenStep& step : steps) {
    phone.heal().fail(step.fault).clear_trace();
    EXPECT_EQ(sensor->Init(1), -22);
    EXPECT_EQ(phone.log().back(), error_line(step.message));
    EXPECT_EQ(counts(), 1) << "the failed client is counted until its Uninit";
    sensor->Uninit(1);
    EXPECT_EQ(counts(), 0);
    EXPECT_FALSE(phone.chip().powered());
    EXPECT_EQ(phone.open_descriptors(), 0);
    phone.heal();
    EXPECT_EQ(sensor->Init(1), 0);
    sensor->Uninit(1);
  }
}

TEST_F(Lifecycle, ResetDropsTheClientsButLeavesTheDeviceOpen) {
  sensor->Init(1);
  EXPECT_EQ(events_of([&] { EXPECT_EQ(sensor->ResetDevice(), 0); }), kPowerOff);
  EXPECT_EQ(counts(), 0);
  EXPECT_EQ(dev().state, 1u);
  EXPECT_EQ(events_of([&] { EXPECT_EQ(sensor->Init(1), -22); }),
            joined(kPowerOn, {error_line("dev is null"),
                              error_line("Init: Failed to init Spectral Sensor, error code -2")}));
  sensor->Uninit(1);
  EXPECT_EQ(phone.open_descriptors(), 0);
  phone.remove(Node::kEnable);
  EXPECT_EQ(sensor->ResetDevice(), -1);
}

TEST_F(Lifecycle, DestroyTearsDownDespiteClients) {
  sensor->Init(1);
  sensor->StartExpALS();
  EXPECT_EQ(events_of([&] { SpectralSensorDevice::Destroy(); }), kTearDown);
  sensor = SpectralSensorDevice::Create();
}

TEST_F(Lifecycle, EnableFlagsAreSetByKind) {
  sensor->SetEnableFlag(1, false);
  EXPECT_EQ(sensor->m_alsEnableFlag, 0);
  EXPECT_EQ(sensor->m_flkEnableFlag, 1);
  sensor->SetEnableFlag(1, true);
  sensor->SetEnableFlag(2, false);
  EXPECT_EQ(sensor->m_alsEnableFlag, 1);
  EXPECT_EQ(sensor->m_flkEnableFlag, 0);
  sensor->SetEnableFlag(0, true);
  EXPECT_EQ(sensor->m_flkEnableFlag, 1);
}

}  // namespace
