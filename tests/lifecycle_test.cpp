#include <algorithm>

#include "tests/support/sensor_test.h"

namespace {

class Lifecycle : public SensorTest {
 protected:
  int counts() const { return 10 * sensor->m_flkRefCount + sensor->m_alsRefCount; }
};

const Lines kPowerOn = {"open iridel_enable", "write iridel_enable \"1\\0\"",
                        "close iridel_enable"};
const Lines kPowerOff = {"open iridel_enable", "write iridel_enable \"0\\0\"",
                         "close iridel_enable"};
const Lines kTearDown = {"write fe=01",
                         "write fe=00",
                         "write 58=00",
                         "read 5a=00",
                         "read 5a=0a",
                         "write 71=01",
                         "close vd6281",
                         "close iridel_write_byte",
                         "close iridel_read_byte",
                         "open iridel_enable",
                         "write iridel_enable \"0\\0\"",
                         "close iridel_enable"};

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

TEST_F(Lifecycle, StartsFromTheDefaults) {
  for (const SpectralSensorDevice* object : {static_cast<const SpectralSensorDevice*>(sensor)}) {
    EXPECT_EQ(object->m_alsConfig.exposureTime, 320000u);
    EXPECT_THAT(object->m_alsConfig.channelGain, ::testing::Each(1.0f));
    EXPECT_THAT(object->m_alsConfig.gainCode, ::testing::Each(0));
    EXPECT_EQ(object->m_alsChannelMask, 0x1B);
    EXPECT_EQ(object->m_flkChannelMask, 0x20u);
    EXPECT_EQ(object->m_flkResult.gain, 1.0f);
    EXPECT_EQ(object->m_flkGain, 1);
    EXPECT_EQ(object->m_flkTrack.mains_count, 0xFFFFFFFFu);
    EXPECT_EQ(object->m_flkTrack.mains_b, 120u);
    EXPECT_THAT(object->m_calibrationFactor, ::testing::Each(1.0f));
    EXPECT_EQ(object->m_alsAeEnable, 1);
    EXPECT_EQ(object->m_alsEnableFlag, 1);
    EXPECT_EQ(object->m_flkEnableFlag, 1);
    EXPECT_EQ(object->m_powered, 0);
  }
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

TEST_F(Lifecycle, OtherModesAreNoClients) {
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

TEST_F(Lifecycle, EveryFailureOfInitIsMinus22WithItsStepInTheLog) {
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
    EXPECT_EQ(counts(), 1) << "the caller still owes an Uninit";
    sensor->Uninit(1);
    EXPECT_EQ(counts(), 0);
    EXPECT_FALSE(phone.chip().powered());
    EXPECT_EQ(phone.open_descriptors(), 0);
    phone.heal();
    EXPECT_EQ(sensor->Init(1), 0);
    sensor->Uninit(1);
  }
}

TEST_F(Lifecycle, APhoneWithoutASensorFailsInitAndRecovers) {
  phone.remove_sensor();
  EXPECT_EQ(sensor->Init(1), -22);
  SpectralSensorOutput output = {};
  EXPECT_EQ(sensor->Process(1, &output), -22);
  sensor->Uninit(1);
  for (const Node node : {Node::kDevice, Node::kEnable, Node::kReadByte, Node::kWriteByte}) {
    phone.restore(node);
  }
  EXPECT_EQ(sensor->Init(1), 0);
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(output.als.valid, 1);
}

TEST_F(Lifecycle, ResetForgetsClientsButLeavesTheDeviceOpen) {
  sensor->Init(1);
  EXPECT_EQ(events_of([&] { EXPECT_EQ(sensor->ResetDevice(), 0); }), kPowerOff);
  EXPECT_EQ(counts(), 0);
  EXPECT_EQ(dev().state, 1u);
  const Lines again = events_of([&] { EXPECT_EQ(sensor->Init(1), -22); });
  Lines expected = kPowerOn;
  expected.push_back(error_line("dev is null"));
  expected.push_back(error_line("Init: Failed to init Spectral Sensor, error code -2"));
  EXPECT_EQ(again, expected);
  sensor->Uninit(1);
  EXPECT_EQ(phone.open_descriptors(), 0);
  phone.remove(Node::kEnable);
  EXPECT_EQ(sensor->ResetDevice(), -1);
  phone.restore(Node::kEnable);
}

TEST_F(Lifecycle, DestroyTearsDownWhateverTheClients) {
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
