#include "flicker/result_tracking_rule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace {

using spectral::harmonic_weight;

TEST(HarmonicWeight, FallsOffAroundAFrequencyAndItsMultiples) {
  EXPECT_EQ(harmonic_weight(100, 100), 1.0f);
  EXPECT_EQ(harmonic_weight(100, 101), 0.631f);
  EXPECT_EQ(harmonic_weight(100, 98), 0.159f);
  EXPECT_EQ(harmonic_weight(100, 97), 0.159f * 0.631f) << "2 Hz from 99 Hz itself";
  EXPECT_EQ(harmonic_weight(100, 96), 0.0f);
  EXPECT_EQ(harmonic_weight(100, 300), 1.0f);
  EXPECT_EQ(harmonic_weight(100, 203), 0.631f * 0.631f);
  EXPECT_EQ(harmonic_weight(100, 198), 0.631f) << "198 is a multiple of 99, which is tried first";
  EXPECT_EQ(harmonic_weight(100, 200), 0.159f * 0.631f) << "2 Hz from a multiple of 99";
  EXPECT_EQ(harmonic_weight(300, 100), 0.0f);
  for (const auto& [f, g] : {std::pair(49, 100), std::pair(100, 49), std::pair(1051, 100),
                             std::pair(100, 1051), std::pair(-1, -1)}) {
    EXPECT_EQ(harmonic_weight(f, g), 0.0f);
  }
  EXPECT_EQ(harmonic_weight(50, 1050), 1.0f);
}

TEST(ToneAmplitude, IsZeroForAPowerThatIsNotPositive) {
  EXPECT_EQ(spectral::tone_amplitude(2e6f), 1.0f);
  for (const float none : {0.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()}) {
    EXPECT_EQ(spectral::tone_amplitude(none), 0.0f);
  }
}

class ResultTracking : public ::testing::Test {
 protected:
  struct Tone {
    float hz;
    float amplitude;
  };

  float measure(std::array<Tone, 3> tones) {
    float hz[3];
    float amplitude[3];
    for (std::size_t i = 0; i < 3; ++i) {
      hz[i] = tones[i].hz;
      amplitude[i] = tones[i].amplitude;
    }
    return spectral::track_result(hz, amplitude, &track, &result);
  }

  void expect_dominant(std::uint32_t hz, std::uint32_t strength, std::uint32_t second_hz,
                       std::uint32_t second_strength) {
    EXPECT_EQ(result.dominant_freq, hz);
    EXPECT_EQ(result.dominant_strength, strength);
    EXPECT_EQ(result.secondary_freq, second_hz);
    EXPECT_EQ(result.secondary_strength, second_strength);
  }

  static constexpr Tone kNothing = {-1.0f, 0.0f};
  FlickerTrack track;
  FlickerResult result = {};
};

TEST_F(ResultTracking, ReportsMainsAtOnceAndApartFromTheDominantTone) {
  measure({{{100.0f, 50.0f}, {230.0f, 20.0f}, {120.9f, 30.0f}}});
  EXPECT_EQ(result.strength_a, 50u);
  EXPECT_EQ(result.strength_b, 30u);
  EXPECT_EQ(result.freq_a, 100u);
  EXPECT_EQ(result.freq_b, 120u);
  EXPECT_EQ(track.mains_freq, 100u);
  expect_dominant(0, 0, 0, 0);
  EXPECT_EQ(measure({{{100.0f, 50.0f}, {230.0f, 20.0f}, {120.9f, 30.0f}}}), 20.0f);
  expect_dominant(230, 20, 0, 0);
}

TEST_F(ResultTracking, ATieOfMainsGoesTo120Hz) {
  measure({{{100.0f, 40.0f}, {120.0f, 40.0f}, kNothing}});
  EXPECT_EQ(track.mains_freq, 120u);
}

TEST_F(ResultTracking, ChangesOfStrongMainsNeedConfirmation) {
  measure({{{100.0f, 19.0f}, kNothing, kNothing}});
  measure({{{120.0f, 30.0f}, kNothing, kNothing}});
  EXPECT_EQ(track.mains_freq, 120u);
  measure({{{100.0f, 30.0f}, kNothing, kNothing}});
  EXPECT_EQ(result.strength_b, 30u) << "the last confirmed report";
  EXPECT_EQ(result.strength_a, 0u);
  measure({{{100.0f, 31.0f}, kNothing, kNothing}});
  EXPECT_EQ(result.strength_a, 31u) << "confirmed";
  EXPECT_EQ(result.strength_b, 0u);
  for (int i = 0; i < 9; ++i) {
    measure({{kNothing, kNothing, kNothing}});
    EXPECT_EQ(result.strength_a, 31u) << i;
  }
  measure({{kNothing, kNothing, kNothing}});
  EXPECT_EQ(result.strength_a, 0u) << "the tenth measurement confirms that the mains are gone";
}

TEST_F(ResultTracking, MainsThatComeAndGoAreNeverConfirmed) {
  measure({{{100.0f, 30.0f}, kNothing, kNothing}});
  for (int i = 0; i < 20; ++i) {
    measure({{{i % 2 == 0 ? 120.0f : -1.0f, 30.0f}, kNothing, kNothing}});
    EXPECT_EQ(track.mains_cand, i % 2 == 0 ? 120u : 0u);
    EXPECT_EQ(track.mains_count, 1u);
    EXPECT_EQ(result.strength_a, 30u);
    EXPECT_EQ(result.strength_b, 0u);
  }
}

TEST_F(ResultTracking, ADominantFrequencyIsConfirmedByASecondMeasurement) {
  measure({{{300.0f, 10.0f}, {410.0f, 5.0f}, {530.0f, 7.0f}}});
  expect_dominant(0, 0, 0, 0);
  EXPECT_EQ(measure({{{300.0f, 10.0f}, {410.0f, 5.0f}, {530.0f, 7.0f}}}), 7.0f);
  expect_dominant(300, 10, 530, 7);
  measure({{{300.0f, 12.0f}, {410.0f, 8.0f}, {530.0f, 7.0f}}});
  expect_dominant(300, 12, 410, 8);
  measure({{{700.0f, 12.0f}, {410.0f, 8.0f}, {530.0f, 7.0f}}});
  expect_dominant(300, 12, 410, 8);
}

TEST_F(ResultTracking, TheAbsenceOfAToneTakesFiveMeasurementsToConfirm) {
  for (int i = 0; i < 2; ++i) measure({{{300.0f, 10.0f}, {0.0f, 0.0f}, {0.0f, 0.0f}}});
  expect_dominant(300, 10, 0, 0);
  for (int i = 0; i < 4; ++i) {
    measure({{{0.0f, 0.0f}, {0.0f, 0.0f}, {0.0f, 0.0f}}});
    expect_dominant(300, 10, 0, 0);
  }
  measure({{{0.0f, 0.0f}, {0.0f, 0.0f}, {0.0f, 0.0f}}});
  expect_dominant(0, 0, 0, 0);
}

TEST_F(ResultTracking, GivesUpAfterTenMeasurementsThatKeepChanging) {
  for (int i = 0; i < 2; ++i) measure({{{300.0f, 10.0f}, kNothing, kNothing}});
  for (int i = 0; i < 9; ++i) {
    measure({{{310.0f + 10.0f * static_cast<float>(i), 10.0f}, kNothing, kNothing}});
    EXPECT_EQ(result.dominant_freq, 300u) << i;
  }
  EXPECT_EQ(measure({{{500.0f, 10.0f}, kNothing, kNothing}}), 0.0f);
  expect_dominant(0, 0, 0, 0);
  EXPECT_EQ(track.dom_freq, 0u);
}

// Three tones in every order of strength, and with the mains at each place among them.
TEST_F(ResultTracking, RanksWithoutTheMains) {
  struct Case {
    std::array<Tone, 3> tones;
    std::uint32_t dominant;
    std::uint32_t secondary;
  };
  for (const Case& c : {
           Case{{{{310, 3}, {430, 2}, {570, 1}}}, 310, 430},
           Case{{{{310, 1}, {430, 2}, {570, 3}}}, 570, 430},
           Case{{{{310, 2}, {430, 3}, {570, 1}}}, 430, 310},
           Case{{{{310, 2}, {430, 1}, {570, 3}}}, 570, 310},
           Case{{{{310, 5}, {430, 5}, {570, 5}}}, 310, 430},
           Case{{{{310, 5}, {430, 5}, {570, 9}}}, 570, 430},
           Case{{{{310, 5}, {430, 5}, {570, 1}}}, 310, 430},
           Case{{{{100, 9}, {430, 2}, {570, 1}}}, 430, 570},
           Case{{{{430, 9}, {120, 2}, {570, 1}}}, 430, 570},
           Case{{{{430, 9}, {570, 2}, {100, 1}}}, 430, 570},
           Case{{{{100, 9}, {120, 2}, {570, 1}}}, 570, 0},
           Case{{{{100, 9}, {570, 2}, {120, 1}}}, 570, 0},
           Case{{{{570, 9}, {100, 2}, {120, 1}}}, 570, 0},
       }) {
    track = FlickerTrack{};
    measure(c.tones);
    measure(c.tones);
    EXPECT_EQ(result.dominant_freq, c.dominant) << c.tones[0].hz << " " << c.tones[1].hz;
    EXPECT_EQ(result.secondary_freq, c.secondary) << c.tones[0].hz << " " << c.tones[1].hz;
  }
}

TEST_F(ResultTracking, SurvivesNumbersThatAreNotFinite) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  for (int i = 0; i < 2; ++i) measure({{{nan, 5.0f}, {infinity, 5.0f}, {-infinity, 5.0f}}});
  EXPECT_EQ(result.dominant_freq, 0u) << "NaN counts as 0";
  for (int i = 0; i < 2; ++i) measure({{{300.0f, infinity}, {410.0f, 1.0f}, kNothing}});
  EXPECT_EQ(result.dominant_strength, 0xFFFFFFFFu);
}

}  // namespace
