// The layered service: where it differs from the device service, and where the two agree.

#include "spectral_sensor.h"

#include <random>

#include "tests/support/sensor_test.h"

namespace {

std::string layered_line(const std::string& text, char priority = 'E') {
  return std::string("log ") + priority + " ilsservice-driver: " + text;
}

class Layered : public SensorTest {
 protected:
  Layered() : layered(SpectralSensor::Create()) { phone.clear_trace(); }
  ~Layered() override {
    phone.heal();
    if (SpectralSensor::m_pInstance != nullptr) layered->UnloadFlickerLibrary();
    SpectralSensor::Destroy();
  }

  SpectralSensor* layered;
  SpectralSensorOutput output = {};
};

const Lines kPowerOff = {"open iridel_enable", "write iridel_enable \"0\\0\"",
                         "close iridel_enable"};

TEST_F(Layered, CreatesOneInstanceOnTheProcessesDriver) {
  EXPECT_EQ(SpectralSensor::Create(), layered);
  EXPECT_EQ(layered->m_device, SpectralSensorDevice::m_pInstance);
  EXPECT_EQ(layered->m_als->m_device, layered->m_device);
  EXPECT_EQ(layered->m_flicker->m_device, layered->m_device);
  EXPECT_EQ(layered->m_flkGain, 0.00390625f);
  EXPECT_EQ(layered->m_flkResult.gain, 1.0f);
  SpectralSensor::Destroy();
  EXPECT_EQ(SpectralSensor::m_pInstance, nullptr);
  EXPECT_EQ(SpectralSensorDevice::m_pInstance, nullptr) << "it goes along";
  SpectralSensor::Destroy();
  phone.clear_trace();
  layered = SpectralSensor::Create();
  sensor = SpectralSensorDevice::Create();
  Lines twice = kPowerOff;
  twice.insert(twice.end(), kPowerOff.begin(), kPowerOff.end());
  EXPECT_EQ(phone.events(), twice) << "the driver's own, and the service's";
}

TEST_F(Layered, SetsThePedestalForFlickerClientsOnly) {
  const Lines als = events_of([&] { EXPECT_EQ(layered->Init(1), 0); });
  EXPECT_EQ(als.back(), "write 71=01") << "the end of the bring-up";
  EXPECT_EQ(layered->m_powered, 1);
  EXPECT_EQ(layered->Init(1), -17);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(layered->Init(2), 0); }),
              ElementsAre("write 32=03", "read 31=00", "write 31=00",
                          "dlopen /vendor/lib64/libzelk_flicker.so"));
  EXPECT_EQ(layered->Init(2), -17);
  EXPECT_EQ(layered->Init(3), -17);
  for (const int mode : {2, 2, 1}) layered->Uninit(mode);
  const Lines last = events_of([&] { layered->Uninit(1); });
  EXPECT_EQ(Lines(last.end() - 3, last.end()), kPowerOff);
  EXPECT_EQ(layered->m_powered, 0);
  EXPECT_EQ(dev().state, 0u);
}

TEST_F(Layered, OpensTheLibraryThatTheExportedPathNames) {
  const char* const original = pVendorLibPath;
  pVendorLibPath = "/nowhere/else.so";
  EXPECT_EQ(layered->Init(2), -22);
  pVendorLibPath = original;
  EXPECT_THAT(phone.log()[0], ::testing::HasSubstr("/nowhere/else.so"));
  EXPECT_EQ(phone.log().back(), layered_line("Init: Failed to load flicker library, error code 0"));
  layered->Uninit(2);
  EXPECT_EQ(layered->Init(2), 0);
  layered->Uninit(2);
}

TEST_F(Layered, ReportsFailuresOfInit) {
  phone.fail(Fault::open(Node::kDevice));
  EXPECT_EQ(layered->Init(1), -22);
  EXPECT_EQ(phone.log().back(),
            layered_line("Init: Failed to init Spectral Sensor, error code -2"));
  EXPECT_EQ(layered->m_powered, 1);
  layered->Uninit(1);
  phone.heal().fail(Fault::register_read().at(0x31).returning(-5));
  EXPECT_EQ(layered->Init(2), -22);
  EXPECT_EQ(phone.log().back(), layered_line("Init: Failed to set pedstal value, error code=-5"));
  layered->Uninit(2);
  phone.heal();
  EXPECT_EQ(layered->Init(2), 0);
  layered->Uninit(2);
}

TEST_F(Layered, WarnsOfCountsBelowZero) {
  layered->Uninit(1);
  EXPECT_THAT(phone.log(),
              ElementsAre(layered_line("Uninit: ALS refcount becomes negative (-1)", 'W')));
  layered->Uninit(2);
  EXPECT_EQ(phone.log()[1], layered_line("Uninit: FLK refcount becomes negative (-1)", 'W'));
  EXPECT_EQ(phone.log()[2], layered_line("UnloadFlickerLibrary: Error library handle == NULL!"));
}

TEST_F(Layered, CapturesInGainFactorsAndStampsTheEnd) {
  layered->Init(1);
  phone.chip().scene(spectralsim::Scene({1.0, 2.0, 0.0, 8.0, 16.0, 0.0}));
  dev().otp_slope[0] = 0x40;
  layered->m_calibrationValid = 1;
  layered->m_calibrationFactor[1] = 3.0f;
  layered->m_alsAeEnable = 0;
  layered->m_alsConfig.channelGain[0] = 2.5f;
  EXPECT_EQ(layered->Process(1, &output), 0);
  EXPECT_THAT(output.als.value, ElementsAre(320.0f, 640.0f, 0.0f, 2560.0f, 5120.0f, 0.0f))
      << "raw, without slopes and factors";
  EXPECT_EQ(output.als.gain, 1.0f);
  timespec boot = {};
  clock_gettime(CLOCK_BOOTTIME, &boot);
  EXPECT_EQ(output.als.timestamp, static_cast<std::uint64_t>(boot.tv_sec) * 1000000000u +
                                      static_cast<std::uint64_t>(boot.tv_nsec));
  layered->m_alsAeEnable = 1;
  EXPECT_EQ(layered->Process(1, &output), 0);
  EXPECT_EQ(output.als.value[1], 1920.0f) << "the factor, under auto-exposure";
  EXPECT_GT(output.als.timestamp, 0u);
  EXPECT_EQ(layered->Process(1, nullptr), -22);
  EXPECT_EQ(layered->Process(3, &output), -22);
}

TEST_F(Layered, ReadsAsItIsTold) {
  ALSResult result = {};
  EXPECT_EQ(layered->ReadALS(nullptr, true), -22);
  layered->Init(1);
  phone.clear_trace();
  result.valid = 1;
  EXPECT_EQ(layered->ReadALS(&result, true), -22);
  EXPECT_EQ(result.valid, 0);
  EXPECT_THAT(phone.log(), IsEmpty());
  EXPECT_EQ(layered->ReadALS(&result, false), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("ReadALS: ALS read failed, error code 8, "
                                                    "channel=0x1b")));
  layered->StartExpALS();
  EXPECT_EQ(layered->ReadALS(&result, false), -22) << "not ready";
  phone.chip().pin(0x02, 0x02);
  const std::int64_t start_ns = phone.clock().now_ns();
  EXPECT_EQ(layered->ReadALS(&result, true), 0);
  EXPECT_EQ(phone.clock().now_ns() - start_ns, 8192 * spectralsim::kNsPerMs);
  phone.clock().after_ms(50, [&] { layered->SetEnableFlag(1, false); });
  EXPECT_EQ(layered->ReadALS(&result, true), 0);
  EXPECT_EQ(result.valid, 0);
  EXPECT_EQ(layered->StopExpALS(), 0);
  phone.clear_trace();
  EXPECT_EQ(layered->StopExpALS(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("StopExpALS: Cannot stop ALS exposure  -8")));
  phone.clear_trace();
  EXPECT_EQ(layered->CaptureALSDefault(nullptr), -22);
  EXPECT_EQ(dev().state, 1u) << "stopped all the same";
}

TEST_F(Layered, ReportsFailuresOfConfigurationAndStart) {
  ALSConfig wanted;
  ALSConfig actual;
  EXPECT_EQ(layered->ConfigALS(&wanted, &actual), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("ConfigALS: Failed to config ALS -4,320000")));
  layered->Init(1);
  layered->m_alsChannelMask = 0x1F;
  phone.clear_trace();
  EXPECT_EQ(layered->ConfigALS(&wanted, &actual), -22) << "channel 2 is not the wrapper's";
  EXPECT_EQ(phone.log().back(), layered_line("ConfigALS: Failed to config ALS 1,320000"));
  layered->StartExpALS();
  phone.clear_trace();
  EXPECT_EQ(layered->StartExpALS(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("StartExpALS: Cannot start ALS exposure  -7, "
                                                    "channel=0x1f")));
}

TEST_F(Layered, ProposesGainFactors) {
  ALSResult result = {};
  result.channelMask = 0x01;
  result.exposureMs = 1.0f;
  ALSConfig next;
  next.gainCode[0] = 7;
  next.channelGain[1] = 9.0f;
  bool stable = true;
  EXPECT_EQ(layered->ALSAE(&result, &next, &stable), 0);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("ALSAE: Wrong EXP config, reset to default")));
  EXPECT_THAT(next.channelGain, ::testing::Each(1.0f));
  EXPECT_EQ(next.gainCode[0], 7);
  result.exposureMs = 115.2f;
  result.gain = 0.71f;
  result.value[0] = 65535.0f;
  EXPECT_EQ(layered->ALSAE(&result, &next, &stable), 0);
  EXPECT_TRUE(stable);
  EXPECT_THAT(next.channelGain, ::testing::Each(0.71f));
  EXPECT_EQ(layered->LookUpGain(1.0f, 3, 2), 0.71f);
  EXPECT_EQ(phone.log().back(), layered_line("LookUpGain: Wroing input index, return min gain"));
}

TEST_F(Layered, SumsTheErrorsOfItsGainSearch) {
  layered->Init(2);
  phone.scene("dark").clear_trace();
  phone.fail(Fault::register_read().at(0x34).returning(-3));
  EXPECT_EQ(layered->StartExpFLK_AutoGain(), -22) << "here reads count";
  EXPECT_EQ(phone.log().back(), layered_line("StartExpFLK_AutoGain: Cannot start FLK  retVal=-3, "
                                             "channel=0x20, gain=66.667969"));
  EXPECT_EQ(dev().state, 3u);
  EXPECT_EQ(layered->StopExpFLK(), 0);
  layered->m_flkGain = 1.3f;
  EXPECT_THAT(events_of([&] { EXPECT_EQ(layered->StartExpFLK(), 0); })[0], "write 2a=0c");
  EXPECT_EQ(layered->m_flkGain, 1.25f);
  phone.clear_trace();
  EXPECT_EQ(layered->StartExpFLK(), -22);
  EXPECT_EQ(phone.log().back(), layered_line("StartExpFLK: Cannot start FLK  -7, channel=0x20"));
  layered->StopExpFLK();
  phone.clear_trace();
  EXPECT_EQ(layered->StopExpFLK(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("StopExpFLK: Cannot stop FLK exposure  -8")));
  unsigned char data[160];
  for (const int length : {0, -1, 1010, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(layered->ReadFLKData(length, data), -22) << length;
  }
  EXPECT_EQ(layered->ReadFLKData(10, data), 0);
  FlickerResult result = {};
  phone.clear_trace();
  EXPECT_EQ(layered->ReadFLK(&result), -22);
  EXPECT_EQ(phone.log().back(),
            layered_line("ReadFLK: FLK read failed, error code -8, channel=0x20"));
  layered->Uninit(2);
}

// The same light through both services, one after the other.
class BothServices : public Layered {
 protected:
  // What the registers see of a measurement.
  template <typename Operation>
  Lines registers_of(Operation operation) {
    Lines lines;
    phone.clear_trace();
    operation();
    for (const auto& event : phone.trace()) {
      if (event.is_register_read() || event.is_register_write()) lines.push_back(describe(event));
    }
    return lines;
  }
};

TEST_F(BothServices, ReadTheSameLight) {
  for (const char* scene : {"candle", "office", "daylight"}) {
    phone.scene(scene);
    SpectralSensorOutput of_device = {};
    Lines device_registers;
    sensor->Init(1);
    sensor->m_alsConfig = ALSConfig{};
    for (auto& code : sensor->m_alsConfig.gainCode) code = 256;
    for (int i = 0; i < 8; ++i)
      device_registers = registers_of([&] { sensor->Process(1, &of_device); });
    sensor->Uninit(1);
    Lines layered_registers;
    layered->Init(1);
    layered->m_alsConfig = ALSConfig{};
    for (int i = 0; i < 8; ++i) {
      layered_registers = registers_of([&] { EXPECT_EQ(layered->Process(1, &output), 0); });
    }
    layered->Uninit(1);
    EXPECT_EQ(device_registers, layered_registers) << scene;
    EXPECT_EQ(output.als.channelMask, of_device.als.channelMask);
    EXPECT_EQ(output.als.exposureMs, of_device.als.exposureMs);
    EXPECT_NEAR(output.als.gain, of_device.als.gain, 1e-4);
    for (int n = 0; n < 6; ++n) EXPECT_NEAR(output.als.value[n], of_device.als.value[n], 0.01) << n;
  }
}

TEST_F(BothServices, TellTheSameLamps) {
  for (const char* scene : {"mains-50hz", "pwm-300hz", "sunlight"}) {
    phone.scene(scene);
    SpectralSensorOutput of_device = {};
    sensor->Init(2);
    sensor->m_flkTrack = FlickerTrack{};
    Lines device_registers;
    for (int i = 0; i < 2; ++i)
      device_registers = registers_of([&] { sensor->Process(2, &of_device); });
    sensor->Uninit(2);
    layered->Init(2);
    layered->m_flkTrack = FlickerTrack{};
    Lines layered_registers;
    for (int i = 0; i < 2; ++i)
      layered_registers = registers_of([&] { layered->Process(2, &output); });
    layered->Uninit(2);
    EXPECT_EQ(device_registers, layered_registers) << scene;
    const FlickerResult& a = of_device.flicker;
    const FlickerResult& b = output.flicker;
    EXPECT_EQ(a.channel, b.channel);
    EXPECT_EQ(a.dominant_freq, b.dominant_freq) << scene;
    EXPECT_EQ(a.secondary_freq, b.secondary_freq);
    EXPECT_NEAR(a.strength_a, b.strength_a, 5);
    EXPECT_NEAR(a.dominant_strength, b.dominant_strength, 5);
    EXPECT_EQ(a.gain, b.gain * 256) << "a code there, a factor here";
    EXPECT_GT(b.timestamp_ns, a.timestamp_ns);
  }
}

// Create, Init, Uninit and Destroy of both in any order that leaves nobody with a dead pointer.
TEST_F(BothServices, LeaveNothingBehindWhateverTheOrder) {
  constexpr std::uint32_t kSeed = 99;
  std::mt19937 random(kSeed);
  for (int round = 0; round < 300; ++round) {
    SpectralSensorDevice* device = SpectralSensorDevice::Create();
    SpectralSensor* service = nullptr;
    int clients[2][3] = {};
    for (int step = 0; step < 12; ++step) {
      const int mode = 1 + static_cast<int>(random() % 2);
      switch (random() % 6) {
        case 0:
          service = SpectralSensor::Create();
          break;
        case 1:
          device->Init(mode);
          ++clients[0][mode];
          break;
        case 2:
          if (service == nullptr) break;
          service->Init(mode);
          ++clients[1][mode];
          break;
        case 3:
          if (clients[0][mode] > 0) device->Uninit(mode), --clients[0][mode];
          break;
        case 4:
          if (service != nullptr && clients[1][mode] > 0) service->Uninit(mode), --clients[1][mode];
          break;
        default:
          device->Process(1, &output);
          break;
      }
    }
    for (int mode = 1; mode <= 2; ++mode) {
      for (; clients[0][mode] > 0; --clients[0][mode]) device->Uninit(mode);
      for (; clients[1][mode] > 0; --clients[1][mode]) service->Uninit(mode);
    }
    if (random() % 2 == 0) SpectralSensorDevice::Destroy();
    SpectralSensor::Destroy();
    SpectralSensorDevice::Destroy();
    EXPECT_EQ(phone.open_descriptors(), 0) << "seed " << kSeed << ", round " << round;
    EXPECT_FALSE(phone.chip().powered());
    EXPECT_EQ(SpectralSensor::m_pInstance, nullptr);
    EXPECT_EQ(SpectralSensorDevice::m_pInstance, nullptr);
  }
}

}  // namespace
