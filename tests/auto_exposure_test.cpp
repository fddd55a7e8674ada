#include <cmath>

#include "service/auto_exposure_rule.h"
#include "tests/support/sensor_test.h"

namespace {

using spectral::AlsVerdict;

struct Proposed {
  AlsVerdict verdict;
  std::uint32_t exposure_us;
  std::vector<float> gain;
};

Proposed propose(std::uint8_t channels, std::vector<float> value, float exposure_ms, float gain) {
  value.resize(6, 0.0f);
  const auto proposal = spectral::propose_exposure({channels, value.data(), exposure_ms, gain});
  return {proposal.verdict, proposal.exposure_us, {proposal.gain, proposal.gain + 6}};
}

TEST(AutoExposureRule, RoundsGainsDownToTheTable) {
  EXPECT_EQ(spectral::look_up_gain(5.0f, 0, 15), 5.0f);
  EXPECT_EQ(spectral::look_up_gain(4.99f, 0, 15), 3.33f);
  EXPECT_EQ(spectral::look_up_gain(0.5f, 0, 15), 0.71f);
  EXPECT_EQ(spectral::look_up_gain(200.0f, 0, 15), 100.0f);
  EXPECT_EQ(spectral::look_up_gain(200.0f, 0, 12), 33.0f);
  EXPECT_EQ(spectral::look_up_gain(1.0f, 3, 3), 1.25f);
  EXPECT_EQ(spectral::look_up_gain(std::nanf(""), 0, 15), 0.71f);
  for (const float gain : {0.71f, 0.83f, 1.0f, 1.25f, 1.67f, 2.5f, 3.33f, 5.0f, 7.1f, 10.0f, 16.0f,
                           25.0f, 33.0f, 50.0f, 66.6f, 100.0f}) {
    EXPECT_EQ(spectral::look_up_gain(gain, 0, 15), gain);
  }
}

TEST(AutoExposureRule, KeepsAMeasurementBetween30And70Percent) {
  for (const auto& [brightest, verdict] :
       {std::pair(19660.0f, AlsVerdict::kNotWellPlaced), std::pair(19661.0f, AlsVerdict::kInRange),
        std::pair(30000.0f, AlsVerdict::kInRange), std::pair(45874.0f, AlsVerdict::kInRange),
        std::pair(45875.0f, AlsVerdict::kNotWellPlaced)}) {
    EXPECT_EQ(propose(0x02, {65535.0f, brightest}, 115.2f, 1.0f).verdict, verdict) << brightest;
  }
  // Below 115.2 ms the counter holds less than 65535: 910 counts at the shortest exposure.
  EXPECT_EQ(propose(0x01, {600.0f}, 1.6f, 1.0f).verdict, AlsVerdict::kInRange);
  EXPECT_EQ(propose(0x01, {200.0f}, 100.0f, 1.0f).verdict, AlsVerdict::kNotWellPlaced);
  EXPECT_EQ(propose(0x01, {39812.0f}, 100.0f, 1.0f).verdict, AlsVerdict::kInRange);
  EXPECT_EQ(propose(0x01, {39813.0f}, 100.0f, 1.0f).verdict, AlsVerdict::kNotWellPlaced);
}

TEST(AutoExposureRule, GivesUpOnASaturatedShortestSetting) {
  const Proposed proposal = propose(0x1B, {65535.0f}, 115.2f, 0.70703125f);
  EXPECT_EQ(proposal.verdict, AlsVerdict::kSaturated);
  EXPECT_EQ(proposal.exposure_us, 115200u);
  EXPECT_THAT(proposal.gain, ::testing::Each(0.71f));
  EXPECT_EQ(propose(0x1B, {65535.0f}, 116.8f, 0.71f).verdict, AlsVerdict::kNotWellPlaced);
  EXPECT_EQ(propose(0x1B, {65535.0f}, 115.2f, 0.83f).verdict, AlsVerdict::kNotWellPlaced);
  EXPECT_EQ(propose(0x1B, {910.0f}, 1.6f, 0.71f).verdict, AlsVerdict::kSaturated);
}

TEST(AutoExposureRule, RefusesExposuresOutsideItsLimits) {
  for (const float exposure_ms : {0.0f, 1.5999f, 1638.5f, 4000.0f}) {
    EXPECT_EQ(propose(0x01, {1.0f}, exposure_ms, 1.0f).verdict, AlsVerdict::kBadExposure);
  }
  EXPECT_NE(propose(0x01, {1.0f}, 1638.4f, 1.0f).verdict, AlsVerdict::kBadExposure);
}

TEST(AutoExposureRule, TradesGainAgainstExposure) {
  // A clipped measurement is to become half as bright: 1.39 times the base exposure of 115.2 ms,
  // split into gain 1.25 and a longer exposure.
  const Proposed clipped = propose(0x1B, {65535.0f, 30000.0f, 9.0f, 0.4f, 65535.0f}, 320.0f, 1.0f);
  EXPECT_EQ(clipped.exposure_us, 128000u);
  EXPECT_THAT(clipped.gain, ElementsAre(1.25f, 2.5f, 1.25f, 100.0f, 1.25f, 1.25f));
  // A dark one is to become a hundred times brighter: by gain 33, the highest that is common to all
  // channels, and by a longer exposure.
  const Proposed dark = propose(0x01, {1.0f}, 115.2f, 1.0f);
  EXPECT_EQ(dark.exposure_us, 349090u);
  EXPECT_EQ(dark.gain[0], 33.0f);
  EXPECT_EQ(dark.gain[2], 33.0f);
  // Where the exposure reaches its limit, the gain may rise above 33.
  const Proposed darkest = propose(0x01, {1.0f}, 1638.4f, 0.71f);
  EXPECT_EQ(darkest.exposure_us, 1638400u);
  EXPECT_EQ(darkest.gain[0], 66.6f);
  EXPECT_EQ(propose(0x01, {0.0f}, 1638.4f, 0.71f).gain[0], 0.71f)
      << "a count of zero gives no scale";
  // A measurement that is too bright at the smallest gain keeps the base exposure.
  EXPECT_EQ(propose(0x01, {60000.0f}, 115.2f, 0.71f).exposure_us, 115200u);
}

class AutoExposure : public SensorTest {
 protected:
  AutoExposure() {
    sensor->Init(1);
    phone.clear_trace();
  }

  void capture(int times) {
    for (int i = 0; i < times; ++i) EXPECT_EQ(sensor->Process(1, &output), 0);
  }

  SpectralSensorOutput output = {};
};

TEST_F(AutoExposure, SettlesWithTheBrightestChannelInRange) {
  for (const char* scene : {"candle", "home", "office", "overcast"}) {
    phone.scene(scene);
    sensor->m_alsConfig = ALSConfig{};
    capture(10);
    const float brightest = std::max(
        {output.als.value[0], output.als.value[1], output.als.value[3], output.als.value[4]});
    EXPECT_GE(brightest, 0.30f * 65535.0f) << scene;
    EXPECT_LE(brightest, 0.72f * 65535.0f)
        << scene << ", with a margin for the chip's exposure and gain steps";
    const ALSConfig settled = sensor->m_alsConfig;
    capture(1);
    EXPECT_EQ(sensor->m_alsConfig.exposureTime, settled.exposureTime);
    EXPECT_THAT(sensor->m_alsConfig.gainCode, ::testing::ElementsAreArray(settled.gainCode));
  }
}

TEST_F(AutoExposure, ACaptureAfterTheFirstIsTwelveWritesAndTwoReads) {
  capture(10);
  const Lines events = events_of([&] { capture(1); });
  EXPECT_EQ(events.size(), 14u) << "no other call on the nodes";
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](const std::string& line) { return line.rfind("write ", 0) == 0; }),
            12);
  EXPECT_EQ(Lines(events.begin() + 6, events.end()),
            (Lines{"write 2e=1b", "write 03=01", "read 02=00", "read 06..1c", "write 02=01",
                   "write 02=00", "write 03=00", "write 2e=00"}));
}

TEST_F(AutoExposure, WaitsForTheExposureAndTheReadOut) {
  const std::int64_t started_ms = now_ms();
  output.als.timestamp = 5;
  capture(1);
  EXPECT_EQ(now_ms() - started_ms, 332);
  EXPECT_EQ(output.als.exposureMs, 320.0f);
  EXPECT_EQ(output.als.valid, 1);
  EXPECT_EQ(output.als.timestamp, 0u);
}

TEST_F(AutoExposure, AnAbortEndsTheWaitBeforeTheReadAndTheStop) {
  capture(1);
  const ALSResult previous = output.als;
  const ALSConfig configuration = sensor->m_alsConfig;
  phone.clock().after_ms(20, [] {});  // a spurious wake-up
  phone.clock().after_ms(40, [&] { sensor->SetEnableFlag(1, false); });
  const std::int64_t started_ms = now_ms();
  output = {};
  EXPECT_EQ(sensor->Process(1, &output), -22) << "no result is ready";
  EXPECT_EQ(now_ms() - started_ms, 40);
  EXPECT_EQ(dev().state, 1u);
  EXPECT_EQ(output.als.value[0], previous.value[0]) << "the previous result";
  EXPECT_EQ(output.als.valid, 1);
  EXPECT_EQ(sensor->m_alsConfig.exposureTime, (configuration.exposureTime + 800) / 1600 * 1600);
  EXPECT_EQ(sensor->Process(1, &output), -22);
  EXPECT_EQ(now_ms() - started_ms, 40) << "no wait while the flag is clear";
}

TEST_F(AutoExposure, GoesOnAfterFailuresAndRecovers) {
  phone.fail(Fault::register_write().at(0x1D)).clear_trace();
  const std::int64_t started_ms = now_ms();
  EXPECT_EQ(sensor->Process(1, &output), -22);
  EXPECT_EQ(now_ms() - started_ms, 332)
      << "the wait takes place although no measurement was started";
  EXPECT_THAT(phone.log(),
              ElementsAre(error_line("VD6281_WrByte failed, addr = 0x1d, data = 0\n"),
                          error_line("ConfigALS: Failed to config ALS -1,320000"),
                          error_line("ReadALS: ALS read failed, error code 8, channel=0x1b"),
                          error_line("StopExpALS: Cannot stop ALS exposure  -8")));
  EXPECT_EQ(output.als.valid, 0);
  phone.heal().fail(Fault::register_write().at(0x03).nth(2));
  EXPECT_EQ(sensor->Process(1, &output), 0) << "a failed stop does not change the status";
  EXPECT_EQ(dev().state, 2u);
  EXPECT_EQ(sensor->Process(1, &output), -22)
      << "the result of the measurement that still runs has been read";
  EXPECT_EQ(dev().state, 1u);
  EXPECT_EQ(sensor->Process(1, &output), 0);
}

TEST_F(AutoExposure, AppliesTheCalibrationToTheResultOnly) {
  phone.chip().scene(spectralsim::Scene({40.0, 40.0, 0.0, 40.0, 40.0, 0.0}));
  sensor->m_calibrationValid = 1;
  sensor->m_calibrationFactor[0] = 2.0f;
  sensor->m_calibrationFactor[1] = 9.0f;
  sensor->m_alsConfig.exposureTime = 320000;
  for (auto& code : sensor->m_alsConfig.gainCode) code = 256;
  dev().otp_slope[3] = 0x40;  // not applied to a calibrated unit
  capture(1);
  EXPECT_THAT(output.als.value, ElementsAre(25600.0f, 65535.0f, 0.0f, 12800.0f, 12800.0f, 0.0f));
  // The proposal is made from the uncorrected 12800: 320 * 1.0 * 45874.5 / 12800 / 115.2 = 9.96.
  EXPECT_THAT(sensor->m_alsConfig.gainCode, ElementsAre(1817, 1817, 1817, 1817, 1817, 1817));
}

class AutoExposureProposal : public AutoExposure {
 protected:
  int propose_after(float exposure_ms, float value) {
    result.channelMask = 0x01;
    result.exposureMs = exposure_ms;
    result.gain = 0.70703125f;
    result.value[0] = value;
    return sensor->ALSAE(&result, &next, &stable);
  }

  ALSResult result = {};
  ALSConfig next;
  bool stable = false;
};

TEST_F(AutoExposureProposal, NeedsAResultWithChannelsAndAPlaceForTheNextConfiguration) {
  EXPECT_EQ(sensor->ALSAE(&result, &next, &stable), -22);
  result.channelMask = 0x01;
  EXPECT_EQ(sensor->ALSAE(nullptr, &next, &stable), -22);
  EXPECT_EQ(sensor->ALSAE(&result, nullptr, &stable), -22);
}

TEST_F(AutoExposureProposal, ResetsAfterAnExposureOutsideTheLimits) {
  next.channelGain[2] = 5.0f;
  stable = true;
  EXPECT_EQ(propose_after(1.0f, 0.0f), 0);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("ALSAE: Wrong EXP config, reset to default")));
  EXPECT_FALSE(stable);
  EXPECT_EQ(next.exposureTime, 320000u);
  EXPECT_THAT(next.gainCode, ::testing::Each(1));
  EXPECT_EQ(next.channelGain[2], 5.0f);
}

TEST_F(AutoExposureProposal, IsStableWhereTheShortestSettingSaturates) {
  EXPECT_EQ(propose_after(115.2f, 65535.0f), 0);
  EXPECT_TRUE(stable);
  EXPECT_THAT(next.gainCode, ::testing::Each(181));
  EXPECT_EQ(next.exposureTime, 115200u);
}

TEST_F(AutoExposureProposal, KeepsTheConfigurationInForceWhereItIsInRange) {
  next.exposureTime = 115200;
  EXPECT_EQ(propose_after(115.2f, 30000.0f), 0);
  EXPECT_TRUE(stable);
  EXPECT_EQ(next.exposureTime, 320000u);
}

TEST_F(AutoExposureProposal, IsWrittenAsGainCodes) {
  stable = true;
  EXPECT_EQ(propose_after(1638.4f, 1.0f), 0);
  EXPECT_FALSE(stable);
  EXPECT_EQ(next.gainCode[0], 17049);
}

TEST_F(AutoExposure, RefusesBadTableIndices) {
  for (const auto& [low, high] : {std::pair(3, 2), std::pair(0, 16), std::pair(-1, 5)}) {
    phone.clear_trace();
    EXPECT_EQ(sensor->LookUpGain(50.0f, low, high), 0.71f);
    EXPECT_THAT(phone.log(),
                ElementsAre(error_line("LookUpGain: Wroing input index, return min gain")));
  }
  EXPECT_EQ(sensor->LookUpGain(50.0f, 0, 15), 50.0f);
}

}  // namespace
