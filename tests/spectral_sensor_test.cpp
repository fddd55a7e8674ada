// The layered service: how it differs from the device service, and what the two have in common.

#include "spectral_sensor.h"

#include <functional>
#include <random>

#include "tests/support/sensor_test.h"

namespace {

std::string layered_line(const std::string& text, char priority = 'E') {
  return log_line(priority, "ilsservice-driver", text);
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

TEST_F(Layered, CreatesOneInstanceOnTheOneDriver) {
  EXPECT_EQ(SpectralSensor::Create(), layered);
  EXPECT_EQ(layered->m_device, SpectralSensorDevice::m_pInstance);
  EXPECT_EQ(layered->m_als->m_device, layered->m_device);
  EXPECT_EQ(layered->m_flicker->m_device, layered->m_device);
  EXPECT_EQ(layered->m_flkGain, 0.00390625f);
  EXPECT_EQ(layered->m_flkResult.gain, 1.0f);
}

TEST_F(Layered, SwitchesThePowerOffAlongWithTheDriver) {
  SpectralSensor::Destroy();
  EXPECT_EQ(SpectralSensor::m_pInstance, nullptr);
  EXPECT_EQ(SpectralSensorDevice::m_pInstance, nullptr) << "destroyed along with the service";
  SpectralSensor::Destroy();
  phone.clear_trace();
  layered = SpectralSensor::Create();
  sensor = SpectralSensorDevice::Create();
  EXPECT_EQ(phone.events(), joined(kPowerOff, kPowerOff))
      << "once by the driver and once by the service";
}

TEST_F(Layered, SetsThePedestalForTheFirstFlickerClientOnly) {
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
  {
    const Scoped path(pVendorLibPath, "/nowhere/else.so");
    EXPECT_EQ(layered->Init(2), -22);
  }
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
      << "raw counts, without slopes and without factors";
  EXPECT_EQ(output.als.gain, 1.0f);
  EXPECT_EQ(output.als.timestamp, boot_time_ns());
}

TEST_F(Layered, AppliesTheCalibrationUnderAutoExposure) {
  layered->Init(1);
  phone.chip().scene(spectralsim::Scene({1.0, 2.0, 0.0, 8.0, 16.0, 0.0}));
  layered->m_calibrationValid = 1;
  layered->m_calibrationFactor[1] = 3.0f;
  EXPECT_EQ(layered->Process(1, &output), 0);
  EXPECT_EQ(output.als.value[1], 1920.0f);
  EXPECT_GT(output.als.timestamp, 0u);
}

TEST_F(Layered, RefusesNullPlacesForResultsAndUnknownModes) {
  EXPECT_EQ(layered->ReadALS(nullptr, true), -22);
  layered->Init(1);
  EXPECT_EQ(layered->Process(1, nullptr), -22);
  EXPECT_EQ(layered->Process(3, &output), -22);
  EXPECT_EQ(layered->CaptureALSDefault(nullptr), -22);
  EXPECT_EQ(dev().state, 1u) << "the measurement is stopped all the same";
}

TEST_F(Layered, LogsAFailedReadOnlyWithoutWaiting) {
  ALSResult result = {};
  layered->Init(1);
  phone.clear_trace();
  result.valid = 1;
  EXPECT_EQ(layered->ReadALS(&result, true), -22);
  EXPECT_EQ(result.valid, 0);
  EXPECT_THAT(phone.log(), IsEmpty());
  EXPECT_EQ(layered->ReadALS(&result, false), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("ReadALS: ALS read failed, error code 8, "
                                                    "channel=0x1b")));
}

TEST_F(Layered, WaitsForAResultUntilTheTimeOutOrAnAbort) {
  ALSResult result = {};
  layered->Init(1);
  layered->StartExpALS();
  EXPECT_EQ(layered->ReadALS(&result, false), -22) << "no result is ready";
  phone.chip().pin(0x02, 0x02);
  const std::int64_t started_ms = now_ms();
  EXPECT_EQ(layered->ReadALS(&result, true), 0);
  EXPECT_EQ(now_ms() - started_ms, 8192);
  phone.clock().after_ms(50, [&] { layered->SetEnableFlag(1, false); });
  EXPECT_EQ(layered->ReadALS(&result, true), 0);
  EXPECT_EQ(now_ms() - started_ms, 8192 + 50);
  EXPECT_EQ(result.valid, 0);
}

TEST_F(Layered, ReportsFailuresOfConfigurationStartAndStop) {
  ALSConfig wanted;
  ALSConfig actual;
  EXPECT_EQ(layered->ConfigALS(&wanted, &actual), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("ConfigALS: Failed to config ALS -4,320000")));
  layered->Init(1);
  layered->m_alsChannelMask = 0x1F;
  phone.clear_trace();
  EXPECT_EQ(layered->ConfigALS(&wanted, &actual), -22) << "the wrapper does not support channel 2";
  EXPECT_EQ(phone.log().back(), layered_line("ConfigALS: Failed to config ALS 1,320000"));
  layered->StartExpALS();
  phone.clear_trace();
  EXPECT_EQ(layered->StartExpALS(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("StartExpALS: Cannot start ALS exposure  -7, "
                                                    "channel=0x1f")));
  EXPECT_EQ(layered->StopExpALS(), 0);
  phone.clear_trace();
  EXPECT_EQ(layered->StopExpALS(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("StopExpALS: Cannot stop ALS exposure  -8")));
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
}

TEST_F(Layered, ReportsBadTableIndices) {
  EXPECT_EQ(layered->LookUpGain(1.0f, 3, 2), 0.71f);
  EXPECT_THAT(phone.log(),
              ElementsAre(layered_line("LookUpGain: Wroing input index, return min gain")));
}

class LayeredFlicker : public Layered {
 protected:
  LayeredFlicker() {
    layered->Init(2);
    phone.clear_trace();
  }
};

TEST_F(LayeredFlicker, SumsTheErrorsOfItsGainSearch) {
  phone.scene("dark");
  phone.fail(Fault::register_read().at(0x34).returning(-3));
  EXPECT_EQ(layered->StartExpFLK_AutoGain(), -22) << "a failed read counts, unlike in the driver";
  EXPECT_EQ(phone.log().back(), layered_line("StartExpFLK_AutoGain: Cannot start FLK  retVal=-3, "
                                             "channel=0x20, gain=66.667969"));
  EXPECT_EQ(dev().state, 3u);
}

TEST_F(LayeredFlicker, StartsAtTheNearestFactorOfTheStoredGain) {
  layered->m_flkGain = 1.3f;
  EXPECT_EQ(events_of([&] { EXPECT_EQ(layered->StartExpFLK(), 0); })[0], "write 2a=0c");
  EXPECT_EQ(layered->m_flkGain, 1.25f);
  EXPECT_EQ(layered->StopExpFLK(), 0);
}

TEST_F(LayeredFlicker, ReportsAFailedStartOrStop) {
  EXPECT_EQ(layered->StopExpFLK(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(layered_line("StopExpFLK: Cannot stop FLK exposure  -8")));
  layered->StartExpFLK();
  EXPECT_EQ(layered->StartExpFLK(), -22);
  EXPECT_EQ(phone.log().back(), layered_line("StartExpFLK: Cannot start FLK  -7, channel=0x20"));
}

TEST_F(LayeredFlicker, CapturesBetweenOnePayloadAndASecond) {
  unsigned char data[160];
  for (const int length : {0, -1, 1010, 2147483647, -2147483647 - 1}) {
    EXPECT_EQ(layered->ReadFLKData(length, data), -22) << length;
  }
  EXPECT_EQ(layered->ReadFLKData(10, data), 0);
}

TEST_F(LayeredFlicker, ReportsAFailedReadOfTheDetector) {
  FlickerResult result = {};
  EXPECT_EQ(layered->ReadFLK(&result), -22);
  EXPECT_EQ(phone.log().back(),
            layered_line("ReadFLK: FLK read failed, error code -8, channel=0x20"));
}

// The same light through both services, one after the other.
class BothServices : public Layered {
 protected:
  // Measures several times for the only client of a service, and returns the register accesses of
  // the last time.
  template <typename Service>
  Lines measure(Service* service, int mode, int times, SpectralSensorOutput* result) {
    service->Init(mode);
    service->m_alsConfig = ALSConfig{};
    for (auto& code : service->m_alsConfig.gainCode) code = 256;
    service->m_flkTrack = FlickerTrack{};
    for (int i = 0; i < times; ++i) {
      phone.clear_trace();
      EXPECT_EQ(service->Process(mode, result), 0);
    }
    Lines lines;
    for (const auto& event : phone.trace()) {
      if (event.is_register_read() || event.is_register_write()) lines.push_back(describe(event));
    }
    service->Uninit(mode);
    return lines;
  }

  SpectralSensorOutput of_device = {};
};

TEST_F(BothServices, ReadTheSameLight) {
  for (const char* scene : {"candle", "office", "daylight"}) {
    phone.scene(scene);
    const Lines device_registers = measure(sensor, 1, 8, &of_device);
    EXPECT_EQ(measure(layered, 1, 8, &output), device_registers) << scene;
    EXPECT_EQ(output.als.channelMask, of_device.als.channelMask);
    EXPECT_EQ(output.als.exposureMs, of_device.als.exposureMs);
    EXPECT_NEAR(output.als.gain, of_device.als.gain, 1e-4);
    for (int n = 0; n < 6; ++n) EXPECT_NEAR(output.als.value[n], of_device.als.value[n], 0.01) << n;
  }
}

TEST_F(BothServices, ReportTheSameLamps) {
  for (const char* scene : {"mains-50hz", "pwm-300hz", "sunlight"}) {
    phone.scene(scene);
    const Lines device_registers = measure(sensor, 2, 2, &of_device);
    EXPECT_EQ(measure(layered, 2, 2, &output), device_registers) << scene;
    const FlickerResult& a = of_device.flicker;
    const FlickerResult& b = output.flicker;
    EXPECT_EQ(a.channel, b.channel);
    EXPECT_EQ(a.dominant_freq, b.dominant_freq) << scene;
    EXPECT_EQ(a.secondary_freq, b.secondary_freq);
    EXPECT_NEAR(a.strength_a, b.strength_a, 5);
    EXPECT_NEAR(a.dominant_strength, b.dominant_strength, 5);
    EXPECT_EQ(a.gain, b.gain * 256) << "a gain code and a factor";
    EXPECT_GT(b.timestamp_ns, a.timestamp_ns);
  }
}

// Calls Create, Init, Process, Uninit and Destroy of both services in random orders, but none on a
// destroyed instance.
TEST_F(BothServices, LeaveNothingBehindInAnyOrder) {
  constexpr std::uint32_t kSeed = 99;
  std::mt19937 random(kSeed);
  for (int round = 0; round < 300; ++round) {
    SpectralSensorDevice* device = SpectralSensorDevice::Create();
    SpectralSensor* service = nullptr;
    std::vector<std::function<void()>> uninits;  // one for each client that has not left yet
    for (int step = 0; step < 12; ++step) {
      const int mode = 1 + static_cast<int>(random() % 2);
      switch (random() % 5) {
        case 0:
          service = SpectralSensor::Create();
          break;
        case 1:
          device->Init(mode);
          uninits.emplace_back([device, mode] { device->Uninit(mode); });
          break;
        case 2:
          if (service == nullptr) break;
          service->Init(mode);
          uninits.emplace_back([service, mode] { service->Uninit(mode); });
          break;
        case 3:
          if (uninits.empty()) break;
          std::swap(uninits[random() % uninits.size()], uninits.back());
          uninits.back()();
          uninits.pop_back();
          break;
        default:
          device->Process(1, &output);
          break;
      }
    }
    for (const auto& uninit : uninits) uninit();
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
