#include "ambient_light_sensor.h"

#include <limits>

#include "tests/support/sensor_test.h"

namespace {

std::string line(const std::string& text) { return log_line('D', "ambient-light-sensor", text); }

class AmbientLight : public SensorTest {
 protected:
  AmbientLight() { bring_up(); }

  AmbientLightSensor als;
  ALSConfig config;
  ALSResult result = {};
};

TEST_F(AmbientLight, StartsAndStopsInEitherMode) {
  EXPECT_EQ(als.m_device, sensor);
  for (const auto mode : {SPECTRAL_ALS_SINGLE_SHOT, SPECTRAL_ALS_SYNCHRONOUS}) {
    EXPECT_EQ(als.Enable(true, mode), 0);
    EXPECT_EQ(dev().als_channels, 0x1B);
    EXPECT_EQ(als.EnableAmbientLightSensor(mode), -7);
    EXPECT_EQ(als.Enable(false, mode), 0);
    EXPECT_EQ(als.DisableAmbientLightSensor(mode), -8);
  }
  EXPECT_EQ(als.Enable(true, static_cast<Spectral_AlsMode_t>(9)), -1);
}

TEST_F(AmbientLight, SetsGainFactorsOfSupportedChannels) {
  float actual = 9.0f;
  EXPECT_EQ(als.SetGain(0x01, 1.0f, nullptr), 1);
  EXPECT_EQ(als.SetGain(0x03, 1.0f, &actual), 1);
  EXPECT_EQ(als.SetGain(0x04, 1.0f, &actual), 1);
  const std::string name = "IsValidSingleChannel: ";
  EXPECT_THAT(phone.events(),
              ElementsAre(line(name + "Expect single channel, got channel mask 0x3"),
                          line(name + "Supported channels mask 0x1b, got channel mask 0x4")));
  EXPECT_EQ(actual, 9.0f);
  for (const auto& [gain, code] :
       {std::pair(2.5f, 640), std::pair(256.0f, 17067), std::pair(1e20f, 17067),
        std::pair(-5.0f, 181), std::pair(std::numeric_limits<float>::quiet_NaN(), 181)}) {
    EXPECT_EQ(als.SetGain(0x01, gain, &actual), 0);
    EXPECT_EQ(actual, static_cast<float>(code) / 256.0f) << gain;
  }
  phone.fail(Fault::register_write().returning(-6));
  actual = 9.0f;
  EXPECT_EQ(als.SetGain(0x01, 1.0f, &actual), -6);
  EXPECT_EQ(actual, 9.0f);
  EXPECT_EQ(als.IsValidSingleChannel(0x40, 0xFF), 1);
}

TEST_F(AmbientLight, SetsExposureAndPeriodOfTheDriver) {
  unsigned int actual = 0;
  EXPECT_EQ(als.SetExposureTime(100000, &actual), 0);
  EXPECT_EQ(actual, 100800u);
  EXPECT_EQ(als.SetSamplingPeriod(30000, &actual), 0);
  EXPECT_EQ(actual, 20500u);
  EXPECT_EQ(als.SetExposureTime(100000, nullptr), -1);
}

TEST_F(AmbientLight, ReadsAResultWhenItIsReady) {
  phone.chip().scene(spectralsim::Scene({1.0, 1.0, 1.0, 1.0, 1.0, 1.0}));
  EXPECT_EQ(als.GetAlsValues(config, nullptr), 1);
  result.valid = 5;
  EXPECT_EQ(als.GetAlsValues(config, &result), 8);
  EXPECT_EQ(result.valid, 5) << "an error does not change the result";
  unsigned int exposure = 0;
  als.SetExposureTime(80000, &exposure);
  als.Enable(true, SPECTRAL_ALS_SINGLE_SHOT);
  EXPECT_EQ(als.GetAlsValues(config, &result), 0);
  EXPECT_EQ(result.valid, 0);
  phone.clock().sleep_ns(80 * spectralsim::kNsPerMs);
  result.timestamp = 3;
  EXPECT_EQ(als.GetAlsValues(config, &result), 0);
  EXPECT_EQ(result.valid, 1);
  EXPECT_EQ(result.channelMask, 0x1B);
  EXPECT_EQ(result.value[0], 80.0f);
  EXPECT_EQ(result.gain, 1.0f);
  EXPECT_EQ(result.exposureMs, 320.0f) << "the exposure of the given configuration";
  EXPECT_EQ(result.timestamp, 3u);
}

TEST_F(AmbientLight, ConvertsByTheSmallestGainOfTheDeliveredChannels) {
  VD6281_Als_t raw = {0x13, {10, 20, 30, 40, 50, 60}, {256, 512, 768, 1024, 1280, 1536}};
  const float gains[6] = {4.0f, 2.0f, 0.5f, 8.0f, 2.5f, 0.0f};
  std::copy(std::begin(gains), std::end(gains), config.channelGain);
  EXPECT_EQ(als.ConvertRawAlsValueToAlsResult(config, &raw, &result), 0);
  EXPECT_EQ(result.gain, 2.0f) << "channels 2 and 5 are not delivered";
  EXPECT_THAT(raw.raw_count, ElementsAre(128, 512, 3072, 256, 1024, 0xFFFFFFFF));
  EXPECT_THAT(raw.count, ElementsAre(5, 20, 120, 10, 40, 0xFFFFFFFF));
  EXPECT_EQ(result.value[0], 0.5f);
  EXPECT_EQ(result.value[3], 1.0f);
  for (float& gain : config.channelGain) gain = 200.0f;
  EXPECT_EQ(als.ConvertRawAlsValueToAlsResult(config, &raw, &result), 0);
  EXPECT_EQ(result.gain, 100.0f);
}

}  // namespace
