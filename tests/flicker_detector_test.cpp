#include "driver/flicker_detector_rule.h"
#include "tests/support/sensor_test.h"

namespace {

using spectral::DetectorCounters;

TEST(DetectorResult, IsCompleteWhenACounterIsFull) {
  EXPECT_FALSE(is_complete(DetectorCounters{0, 65534, 254, 0}));
  EXPECT_TRUE(is_complete(DetectorCounters{0, 65535, 0, 0}));
  EXPECT_TRUE(is_complete(DetectorCounters{0, 0, 255, 0}));
}

TEST(DetectorResult, GivesTheFrequencyOfThePeriodsCounted) {
  EXPECT_EQ(detected_frequency(DetectorCounters{0, 0x3FC0, 255, 0}), 250u);
  EXPECT_EQ(detected_frequency(DetectorCounters{0, 65535, 200, 0}), 48u);
  EXPECT_EQ(detected_frequency(DetectorCounters{0, 0, 255, 0}), 0u);
}

TEST(DetectorResult, HasFullConfidenceWithoutSaturationAndWithGoodCycles) {
  EXPECT_EQ(detector_confidence(DetectorCounters{2, 0, 0, 10}), 100);
  EXPECT_EQ(detector_confidence(DetectorCounters{3, 0, 0, 10}), 1);
  EXPECT_EQ(detector_confidence(DetectorCounters{2, 0, 0, 9}), 1);
}

class FlickerDetector : public SensorTest {
 protected:
  void answer(int a, int p, int n, int b) {
    const int bytes[] = {a >> 8, a, p >> 8, p, n, b >> 8, b};
    int address = 0x33;
    for (const int byte : bytes) {
      phone.chip().pin(static_cast<std::uint8_t>(address++), static_cast<std::uint8_t>(byte));
    }
  }

  VD6281_FlickerInfo_t info = {9, 9, 9, 9, 9};
};

TEST_F(FlickerDetector, ChecksDevicePointerAndMeasurementInOrder) {
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(nullptr), -4);
  bring_up();
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), -8);
  sensor->VD6281_Start(VD6281_MODE_ALS_SINGLE_SHOT, 1);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), -8);
}

TEST_F(FlickerDetector, ReadsItsCountersInOneBurst) {
  bring_up();
  sensor->VD6281_Start(VD6281_MODE_FLICKER, 0x20);
  phone.fail(Fault::register_read().at(0x33).returning(-5));
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), -5); }),
      ElementsAre("read 33..39 gave -5", error_line("VD6281_GetFlickerFrequency ioctl failed")));
  EXPECT_EQ(info.frequency, 9u);
  answer(2, 0x3FC0, 255, 0x0B);  // 10 good cycles: the lowest bit does not count
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), 0); }),
              ElementsAre("read 33..39"));
  EXPECT_EQ(info.frequency, 250u);
  EXPECT_EQ(info.confidence, 100);
  EXPECT_EQ(info.valid, 1);
  EXPECT_EQ(info.channel, 9);
  EXPECT_EQ(info.gain, 9);
  answer(0, 1, 1, 1);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), 0);
  EXPECT_EQ(info.frequency, 0u);
  EXPECT_EQ(info.confidence, 0);
  EXPECT_EQ(info.valid, 0);
}

TEST_F(FlickerDetector, TakesEachBitOfItsCounters) {
  bring_up();
  sensor->VD6281_Start(VD6281_MODE_FLICKER, 0x20);
  for (int bit = 0; bit < 16; ++bit) {
    answer(0, 1 << bit, 255, 10);
    sensor->VD6281_GetFlickerFrequency(&info);
    EXPECT_EQ(info.frequency, 255u * 16000u / (1u << bit));
    EXPECT_EQ(info.confidence, 100);
    answer(1 << bit, 16320, 255, 10);
    sensor->VD6281_GetFlickerFrequency(&info);
    EXPECT_EQ(info.confidence, bit < 2 ? 100 : 1) << "3 saturated samples are too many";
    answer(0, 16320, 255, 1 << bit);
    sensor->VD6281_GetFlickerFrequency(&info);
    EXPECT_EQ(info.confidence, bit < 4 ? 1 : 100) << "10 good cycles are enough";
  }
  for (int bit = 0; bit < 8; ++bit) {
    answer(0, 65535, 1 << bit, 10);
    sensor->VD6281_GetFlickerFrequency(&info);
    EXPECT_EQ(info.frequency, (1u << bit) * 16000u / 65535u);
  }
}

TEST_F(FlickerDetector, ReportsTheFrequencyOfTheScene) {
  bring_up();
  phone.scene("mains-60hz");
  sensor->VD6281_SetGain(VD6281_CHANNEL_6, 256, &info.gain);
  sensor->VD6281_Start(VD6281_MODE_FLICKER, 0x20);
  phone.clock().sleep_ns(2 * spectralsim::kNsPerSecond);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), 0);
  EXPECT_EQ(info.valid, 0) << "a measurement of 255 periods takes 2.125 s";
  phone.clock().sleep_ns(spectralsim::kNsPerSecond / 5);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), 0);
  EXPECT_EQ(info.frequency, 120u);
  EXPECT_EQ(info.confidence, 100);
}

TEST_F(FlickerDetector, StartsPollsAndStops) {
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency_Ref(nullptr, 100), 1);
  bring_up();
  const auto polls = [&] {
    int count = 0;
    for (const auto& event : phone.trace()) count += event.count == 7 ? 1 : 0;
    return count;
  };
  for (const auto& [asked, done] : {std::pair(-5, 8192), std::pair(9000, 9000)}) {
    phone.clear_trace();
    EXPECT_EQ(sensor->VD6281_GetFlickerFrequency_Ref(&info, asked), 0);
    EXPECT_EQ(polls(), done);
    EXPECT_EQ(info.confidence, 0);
    EXPECT_EQ(info.channel, 0x20);
    EXPECT_EQ(info.gain, sensor->m_flkGain);
    EXPECT_EQ(dev().state, 1u);
  }
  phone.chip().pin(0x37, 255);
  phone.clear_trace();
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency_Ref(&info, 0), 0);
  EXPECT_EQ(polls(), 1);
  EXPECT_EQ(info.confidence, 1);
}

TEST_F(FlickerDetector, ReportsEachStepThatFailsWithoutADevice) {
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency_Ref(&info, 0), -4);
  EXPECT_THAT(phone.log(),
              ElementsAre(::testing::HasSubstr("StartExpFLK_AutoGain: Cannot start FLK  retVal=-"),
                          error_line("StopExpFLK: Cannot stop FLK exposure  -4"),
                          error_line("VD6281_GetFlickerFrequency_Ref: FLK read failed, error code "
                                     "-4, channel=0x20")));
}

TEST_F(FlickerDetector, ClearsTheFlickerResultOfAFailedRead) {
  FlickerResult result = {};
  EXPECT_EQ(sensor->ReadFLK(nullptr), -22);
  bring_up();
  result.strength_a = 5;
  EXPECT_EQ(sensor->ReadFLK(&result), -22);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("ReadFLK: FLK read failed, error code -8, "
                                                  "channel=0x20")));
  EXPECT_EQ(result.freq_a, 100u);
  EXPECT_EQ(result.freq_b, 120u);
  EXPECT_EQ(result.strength_a, 0u);
}

TEST_F(FlickerDetector, FillsAFlickerResult) {
  FlickerResult result = {};
  bring_up();
  sensor->StartExpFLK();
  for (const auto& [ticks, a, b, dominant] :
       {std::tuple(40800, 100u, 0u, 0u), std::tuple(34000, 0u, 100u, 0u),
        std::tuple(13600, 0u, 0u, 300u)}) {
    answer(0, ticks, 255, 200);
    EXPECT_EQ(sensor->ReadFLK(&result), 0);
    EXPECT_EQ(result.strength_a, a);
    EXPECT_EQ(result.strength_b, b);
    EXPECT_EQ(result.dominant_freq, dominant);
    EXPECT_EQ(result.dominant_strength, dominant != 0 ? 100u : 0u);
    EXPECT_EQ(result.channel, 0);
  }
}

}  // namespace
