// What the tool derives from its measurements.

#include <gmock/gmock.h>

#include <cmath>
#include <string>
#include <vector>

#include "simulator/hub.h"
#include "tools/live.h"
#include "tools/report.h"
#include "tools/tunnel_dump.h"
#include "tools/waveform.h"

using spectralsensorctl::amplitude_spectrum;
using spectralsensorctl::parse_stream;
using spectralsensorctl::Peak;
using spectralsensorctl::TunnelStream;
using testing::ElementsAre;
using testing::Field;
using testing::FloatNear;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr double kTwoPi = 6.28318530717958647692;

TEST(AmplitudeSpectrum, GivesEachToneItsAmplitudeAtItsFrequencyAndNothingElse) {
  std::vector<float> samples;
  for (int i = 0; i < 2000; ++i) {
    const double t = i / 2000.0;
    samples.push_back(static_cast<float>(5000.0 + 300.0 * std::sin(kTwoPi * 120 * t) +
                                         40.0 * std::cos(kTwoPi * 731 * t)));
  }
  const std::vector<float> amplitudes = amplitude_spectrum(samples);
  ASSERT_THAT(amplitudes, SizeIs(1001));
  EXPECT_THAT(amplitudes[120], FloatNear(300.0f, 0.1f));
  EXPECT_THAT(amplitudes[731], FloatNear(40.0f, 0.1f));
  for (const std::size_t elsewhere : {0u, 1u, 60u, 110u, 130u, 240u, 1000u}) {
    EXPECT_LT(amplitudes[elsewhere], 0.1f) << elsewhere;
  }
}

TEST(Saturation, IsACountOfAFullCounter) {
  using spectralsensorctl::is_saturated;
  EXPECT_TRUE(is_saturated(910.0, 1.6));
  EXPECT_FALSE(is_saturated(909.0, 1.6));
  EXPECT_TRUE(is_saturated(57329.6, 100.8));  // 57330, rounded by a gain
  EXPECT_FALSE(is_saturated(57330.0, 102.4));
  EXPECT_TRUE(is_saturated(65535.0, 1638.4));
  EXPECT_FALSE(is_saturated(65520.0, 1638.4));
  EXPECT_TRUE(is_saturated({0.0f, 32767.0f, 5.0f}));
  EXPECT_FALSE(is_saturated({0.0f, 32766.0f, 5.0f}));
}

TEST(Peaks, AreTheReportedFrequenciesWithAStrength) {
  FlickerResult verdict = {};
  verdict.freq_a = 100;
  verdict.freq_b = 120;
  verdict.strength_b = 7;
  verdict.dominant_freq = 0xFFFFFFFF;  // the analysis found none
  verdict.dominant_strength = 1;
  verdict.secondary_freq = 270;
  verdict.secondary_strength = 3;
  EXPECT_THAT(spectralsensorctl::peaks_of(verdict),
              ElementsAre(Field(&Peak::frequency_hz, 120), Field(&Peak::frequency_hz, 270)));
}

TEST(TunnelStream, IsParsedUpToWhereNoPacketBegins) {
  std::string payload(160, '\0');
  payload[8] = '\x34';
  payload[9] = '\xFF';
  const std::string flicker = spectralsim::Hub::packet(0, 41, 1234567, payload);
  const std::string vsync = spectralsim::Hub::packet(15, 7, 99, std::string(16, 'v'));

  const TunnelStream whole = parse_stream(flicker + vsync);
  ASSERT_THAT(whole.packets, SizeIs(2));
  EXPECT_EQ(whole.packets[0].sequence, 41u);
  EXPECT_EQ(whole.packets[0].time_stamp, 1234567u);
  ASSERT_THAT(whole.packets[0].samples, SizeIs(20));
  EXPECT_EQ(whole.packets[0].samples[1], -204);
  EXPECT_EQ(whole.packets[1].id, 15);
  EXPECT_THAT(whole.packets[1].samples, IsEmpty());
  EXPECT_EQ(whole.left_over, 0u);

  EXPECT_THAT(parse_stream("").packets, IsEmpty());
  const TunnelStream cut = parse_stream(vsync + flicker.substr(0, 100));
  EXPECT_THAT(cut.packets, SizeIs(1));
  EXPECT_EQ(cut.left_over, 100u);
  EXPECT_FALSE(cut.is_out_of_step);
  const TunnelStream garbage = parse_stream(vsync + std::string(50, 'x') + flicker);
  EXPECT_THAT(garbage.packets, SizeIs(1));
  EXPECT_EQ(garbage.left_over, 50 + flicker.size());
  EXPECT_TRUE(garbage.is_out_of_step);
}

TEST(Bar, IsLogarithmicAndStaysWithinItsWidth) {
  EXPECT_EQ(spectralsensorctl::bar(0.0, 10000.0, 8), "........");
  EXPECT_EQ(spectralsensorctl::bar(100.0, 10000.0, 8), "####....");
  EXPECT_EQ(spectralsensorctl::bar(20000.0, 10000.0, 8), "########");
  EXPECT_EQ(spectralsensorctl::bar(20000.0, 10000.0, -3), "");
}

}  // namespace
