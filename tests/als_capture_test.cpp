#include <limits>

#include "service/als_capture_rule.h"
#include "tests/support/sensor_test.h"

namespace {

class AlsCapture : public SensorTest {
 protected:
  AlsCapture() {
    sensor->Init(1);
    sensor->m_alsAeEnable = 0;
    set_gains(256);
    phone.clear_trace();
  }

  void set_gains(std::uint16_t code) {
    for (auto& gain : sensor->m_alsConfig.gainCode) gain = code;
  }

  SpectralSensorOutput output = {};
};

TEST_F(AlsCapture, ConfiguresExposureAndTheMaskedChannels) {
  ALSConfig wanted;
  wanted.exposureTime = 100000;
  for (auto& code : wanted.gainCode) code = 300;
  ALSConfig actual;
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->ConfigALS(&wanted, &actual), 0); }),
              ElementsAre("write 1e=3f", "write 1d=00", "write 25=0c", "write 26=0c", "write 28=0c",
                          "write 29=0c"));
  EXPECT_EQ(actual.exposureTime, 100800u);
  EXPECT_THAT(actual.gainCode, ElementsAre(320, 320, 0, 320, 320, 0));
  EXPECT_THAT(actual.channelGain, ::testing::Each(1.0f));
}

TEST_F(AlsCapture, KeepsTheActualConfigurationOfAFailedChange) {
  ALSConfig wanted;
  wanted.exposureTime = 160000;
  ALSConfig actual;
  actual.exposureTime = 5;
  const auto fails_with = [&](const std::string& error) {
    phone.clear_trace();
    EXPECT_EQ(sensor->ConfigALS(&wanted, &actual), -22);
    EXPECT_EQ(phone.log().back(),
              error_line("ConfigALS: Failed to config ALS " + error + ",160000"));
    EXPECT_EQ(actual.exposureTime, 5u);
  };
  phone.fail(Fault::register_write().at(0x26).returning(-9));
  fails_with("-9");
  EXPECT_EQ(phone.trace().size(), 6u) << "the channels behind the failing one are not written";
  {
    const Scoped busy(dev().flicker_channels, 0x08);
    fails_with("1");
  }
  sensor->StartExpALS();
  fails_with("7");
  EXPECT_EQ(phone.trace().size(), 1u);
  sensor->Uninit(1);
  fails_with("-4");
  EXPECT_EQ(sensor->ConfigALS(nullptr, &actual), -22);
  EXPECT_EQ(sensor->ConfigALS(&wanted, nullptr), -22);
}

TEST_F(AlsCapture, StartAndStopReportTheirErrors) {
  const auto start_fails_with = [&](const std::string& rest) {
    phone.clear_trace();
    EXPECT_EQ(sensor->StartExpALS(), -22);
    EXPECT_EQ(phone.log().back(), error_line("StartExpALS: Cannot start ALS exposure  " + rest));
  };
  EXPECT_EQ(sensor->StopExpALS(), -22);
  EXPECT_EQ(phone.log().back(), error_line("StopExpALS: Cannot stop ALS exposure  -8"));
  for (const auto& [mask, text] : {std::pair(0, "0x0"), std::pair(64, "0x40")}) {
    sensor->m_alsChannelMask = static_cast<std::uint8_t>(mask);
    start_fails_with(std::string("-1, channel=") + text);
  }
  sensor->m_alsChannelMask = 0x3F;
  EXPECT_EQ(sensor->StartExpALS(), 0);
  start_fails_with("-7, channel=0x3f");
  EXPECT_EQ(sensor->StopExpALS(), 0);
  sensor->Uninit(1);
  start_fails_with("-4, channel=0x3f");
  EXPECT_EQ(sensor->StopExpALS(), -22);
  EXPECT_EQ(phone.log().back(), error_line("StopExpALS: Cannot stop ALS exposure  -4"));
}

TEST_F(AlsCapture, DefaultCaptureReadsTheLight) {
  phone.chip().scene(spectralsim::Scene({1.0, 2.0, 4.0, 8.0, 16.0, 32.0}));
  sensor->m_alsConfig.exposureTime = 160000;
  const std::int64_t started_ms = now_ms();
  const std::uint64_t started_ns = boot_time_ns();
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(now_ms() - started_ms, 160) << "the status is polled every millisecond";
  EXPECT_EQ(output.als.valid, 1);
  EXPECT_EQ(output.als.channelMask, 0x1B);
  EXPECT_EQ(output.als.exposureMs, 160.0f);
  EXPECT_EQ(output.als.gain, 1.0f);
  EXPECT_THAT(output.als.value, ElementsAre(160.0f, 320.0f, 0.0f, 1280.0f, 2560.0f, 0.0f));
  EXPECT_EQ(output.als.timestamp, started_ns);
  EXPECT_EQ(dev().state, 1u);
}

TEST_F(AlsCapture, NormalisesToTheSmallestGainOfTheDeliveredChannels) {
  phone.chip().scene(spectralsim::Scene({1.0, 1.0, 1.0, 1.0, 1.0, 1.0}));
  sensor->m_alsConfig.exposureTime = 160000;
  const std::uint16_t codes[6] = {640, 1280, 100, 2560, 320, 181};
  std::copy(std::begin(codes), std::end(codes), sensor->m_alsConfig.gainCode);
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(output.als.gain, 1.25f) << "channels 2 and 5 are not delivered";
  for (const int n : {0, 1, 3, 4}) EXPECT_NEAR(output.als.value[n], 200.0f, 0.05f);
}

TEST_F(AlsCapture, ReportsTheGainsThatTheChipApplied) {
  set_gains(65535);
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(sensor->m_alsConfig.gainCode[0], 17067);
  EXPECT_NEAR(output.als.gain, 66.67f, 0.01f);
}

TEST_F(AlsCapture, UsesTheSlopesUnlessCalibrated) {
  phone.chip().scene(spectralsim::Scene({1.0, 1.0, 1.0, 1.0, 1.0, 1.0}));
  sensor->m_alsConfig.exposureTime = 160000;
  dev().otp_slope[0] = 0x40;
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(output.als.value[0], 80.0f);
  sensor->m_calibrationValid = 1;
  sensor->m_calibrationFactor[0] = 3.0f;
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(output.als.value[0], 160.0f)
      << "the raw count, without the slope and without the factor";
}

TEST_F(AlsCapture, TimesOutAfter8192MillisecondsWithoutAnError) {
  phone.chip().pin(0x02, 0x02);
  const std::int64_t started_ms = now_ms();
  output.als.valid = 1;
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(output.als.valid, 0);
  EXPECT_EQ(now_ms() - started_ms, 8192);
  EXPECT_THAT(phone.log(), IsEmpty());
  EXPECT_EQ(phone.trace().size(), 8192u + 10u);
}

TEST_F(AlsCapture, IsAbortedWithinAMillisecond) {
  const std::int64_t started_ms = now_ms();
  phone.clock().after_ms(50, [&] { sensor->SetEnableFlag(1, false); });
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(output.als.valid, 0);
  EXPECT_EQ(now_ms() - started_ms, 50);
  EXPECT_EQ(dev().state, 1u) << "the measurement is stopped";
  EXPECT_EQ(sensor->Process(1, &output), 0);
  EXPECT_EQ(now_ms() - started_ms, 51) << "a cleared flag ends the wait after one poll";
}

TEST_F(AlsCapture, ReturnsMinus22WithoutAMessageForAFailedReadWhileWaiting) {
  phone.fail(Fault::register_write().at(0x02).returning(-4)).clear_trace();
  output.als.valid = 1;
  EXPECT_EQ(sensor->Process(1, &output), -22);
  EXPECT_EQ(output.als.valid, 0);
  EXPECT_EQ(phone.log().size(), 1u) << "the message of the failed write";
  EXPECT_EQ(dev().state, 1u);
}

TEST_F(AlsCapture, ReadWithoutWaitingTakesOnlyAResultThatIsReady) {
  ALSResult result = {};
  EXPECT_EQ(sensor->ReadALS(nullptr, true), -22);
  result.valid = 1;
  phone.clear_trace();
  EXPECT_EQ(sensor->ReadALS(&result, false), -22);
  EXPECT_EQ(result.valid, 0);
  EXPECT_THAT(phone.events(), ElementsAre(error_line("ReadALS: ALS read failed, error code 8, "
                                                     "channel=0x1b")));
  sensor->StartExpALS();
  result.valid = 1;
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->ReadALS(&result, false), -22); }),
              ElementsAre("read 02=02"));
  EXPECT_EQ(result.valid, 0);
  phone.clock().sleep_ns(400 * spectralsim::kNsPerMs);
  result.timestamp = 77;
  EXPECT_EQ(sensor->ReadALS(&result, false), 0);
  EXPECT_EQ(result.valid, 1);
  EXPECT_EQ(result.timestamp, 77u);
}

TEST_F(AlsCapture, ReadsEvenIfTheConfigurationOrTheStartFailed) {
  phone.chip().pin(0x02, 0x02);
  phone.fail(Fault::register_write().at(0x1E)).clear_trace();
  EXPECT_EQ(sensor->Process(1, &output), -22) << "no measurement runs";
  EXPECT_THAT(phone.events(),
              ElementsAre("write 1e=c8 failed (EIO)",
                          error_line("VD6281_WrByte failed, addr = 0x1e, data = 200\n"),
                          error_line("ConfigALS: Failed to config ALS -1,320000"),
                          error_line("StopExpALS: Cannot stop ALS exposure  -8")));
  sensor->m_alsChannelMask = 0;
  phone.heal().clear_trace();
  EXPECT_EQ(sensor->Process(1, &output), -22);
  EXPECT_THAT(phone.log(),
              ElementsAre(error_line("StartExpALS: Cannot start ALS exposure  -1, channel=0x0"),
                          error_line("StopExpALS: Cannot stop ALS exposure  -8")));
}

TEST_F(AlsCapture, RefusesANullOutputAndUnknownModes) {
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->Process(1, nullptr), -22);
                EXPECT_EQ(sensor->Process(0, &output), -22);
                EXPECT_EQ(sensor->Process(3, &output), -22);
              }),
              IsEmpty());
  EXPECT_EQ(sensor->CaptureALSDefault(nullptr), -22);
}

TEST(AlsNormalisation, ScalesCountsCutsOffTheFractionAndSaturates) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(spectral::scale_count(1000, 3.0f), 333u);
  EXPECT_EQ(spectral::scale_count(0xFFFFFF, 1.0f), 0xFFFFFFu);
  EXPECT_EQ(spectral::scale_count(1, 0.0f), 0xFFFFFFFFu);
  EXPECT_EQ(spectral::scale_count(0xFFFFFF, 0.00390625f), 4294967040u);
  EXPECT_EQ(spectral::scale_count(0, 0.0f), 0u);
  EXPECT_EQ(spectral::scale_count(5, kInfinity), 0u);
  EXPECT_EQ(spectral::scale_count(5, std::numeric_limits<float>::quiet_NaN()), 0u);
}

TEST(AlsNormalisation, FindsTheSmallestGainOfAChannelMask) {
  const float gains[6] = {3, 2, 1, 5, 6, 7};
  EXPECT_EQ(spectral::smallest_gain(0x1B, gains, 100), 2);
  EXPECT_EQ(spectral::smallest_gain(0x20, gains, 6), 6);
  EXPECT_EQ(spectral::smallest_gain(0, gains, 100), 100);
}

}  // namespace
