#include "driver/flicker_detector_rule.h"
#include "tests/support/sensor_test.h"

namespace {

using spectral::DetectorCounters;

TEST(DetectorResult, IsCompleteWhenACounterIsFull) {
  EXPECT_FALSE(is_complete(DetectorCounters{0, 65534, 254, 0}));
  EXPECT_TRUE(is_complete(DetectorCounters{0, 65535, 0, 0}));
  EXPECT_TRUE(is_complete(DetectorCounters{0, 0, 255, 0}));
  EXPECT_EQ(detected_frequency(DetectorCounters{0, 0x3FC0, 255, 0}), 250u);
  EXPECT_EQ(detected_frequency(DetectorCounters{0, 65535, 200, 0}), 48u);
  EXPECT_EQ(detected_frequency(DetectorCounters{0, 0, 255, 0}), 0u);
  EXPECT_EQ(detector_confidence(DetectorCounters{2, 0, 0, 10}), 100);
  EXPECT_EQ(detector_confidence(DetectorCounters{3, 0, 0, 10}), 1);
  EXPECT_EQ(detector_confidence(DetectorCounters{2, 0, 0, 9}), 1);
}

class FlickerDetector : public SensorTest {
 protected:
  void answer(int a, int p, int n, int b) {
    phone.chip()
        .pin(0x33, static_cast<std::uint8_t>(a >> 8))
        .pin(0x34, static_cast<std::uint8_t>(a));
    phone.chip()
        .pin(0x35, static_cast<std::uint8_t>(p >> 8))
        .pin(0x36, static_cast<std::uint8_t>(p));
    phone.chip().pin(0x37, static_cast<std::uint8_t>(n));
    phone.chip()
        .pin(0x38, static_cast<std::uint8_t>(b >> 8))
        .pin(0x39, static_cast<std::uint8_t>(b));
  }
  VD6281_FlickerInfo_t info = {9, 9, 9, 9, 9};
};

TEST_F(FlickerDetector, ChecksInOrderAndReadsOneBurst) {
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(nullptr), -4);
  bring_up();
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), -8);
  sensor->VD6281_Start(VD6281_MODE_ALS_SINGLE_SHOT, 1);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), -8);
  sensor->VD6281_Start(VD6281_MODE_FLICKER, 0x20);
  phone.fail(Fault::register_read().at(0x33).returning(-5));
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), -5); }),
      ElementsAre("read 33..39 gave -5", error_line("VD6281_GetFlickerFrequency ioctl failed")));
  EXPECT_EQ(info.frequency, 9u);
  answer(2, 0x3FC0, 255, 0x0B);  // the lowest bit does not count: 10
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

TEST_F(FlickerDetector, TellsTheLampOfTheScene) {
  bring_up();
  phone.scene("mains-60hz");
  sensor->VD6281_SetGain(VD6281_CHANNEL_6, 256, &info.gain);
  sensor->VD6281_Start(VD6281_MODE_FLICKER, 0x20);
  phone.clock().sleep_ns(2 * spectralsim::kNsPerSecond);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), 0);
  EXPECT_EQ(info.valid, 0) << "255 periods take 2.125 s";
  phone.clock().sleep_ns(spectralsim::kNsPerSecond / 5);
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency(&info), 0);
  EXPECT_EQ(info.frequency, 120u);
  EXPECT_EQ(info.confidence, 100);
}

TEST_F(FlickerDetector, PollsFromStartToStop) {
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
  sensor->VD6281_Term();
  phone.clear_trace();
  EXPECT_EQ(sensor->VD6281_GetFlickerFrequency_Ref(&info, 0), -4);
  EXPECT_THAT(phone.log(),
              ElementsAre(::testing::HasSubstr("StartExpFLK_AutoGain: Cannot start FLK  retVal=-"),
                          error_line("StopExpFLK: Cannot stop FLK exposure  -4"),
                          error_line("VD6281_GetFlickerFrequency_Ref: FLK read failed, error code "
                                     "-4, channel=0x20")));
}

TEST_F(FlickerDetector, FillsAResultOfTheServicesKind) {
  FlickerResult result = {};
  EXPECT_EQ(sensor->ReadFLK(nullptr), -22);
  bring_up();
  result.strength_a = 5;
  phone.clear_trace();
  EXPECT_EQ(sensor->ReadFLK(&result), -22);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("ReadFLK: FLK read failed, error code -8, "
                                                  "channel=0x20")));
  EXPECT_EQ(result.freq_a, 100u);
  EXPECT_EQ(result.freq_b, 120u);
  EXPECT_EQ(result.strength_a, 0u);
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
  sensor->StopExpFLK();
}

}  // namespace
