// Our own analysis library. How well it finds tones is what benchmarks/analysis_quality measures.

#include "analysis/flicker_analysis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using ::testing::ElementsAre;

class FlickerAnalysis : public ::testing::Test {
 protected:
  ~FlickerAnalysis() override { FlickerDestroy(analysis); }

  void add(double frequency, double amplitude, double phase = 0.3) {
    for (int n = 0; n < 2000; ++n) {
      samples[static_cast<std::size_t>(n)] += static_cast<float>(
          amplitude * std::sin(2 * std::acos(-1.0) * frequency * n / 2000 + phase));
    }
  }

  void process(void* instance) { FlickerProcess(instance, samples.data(), hz, power); }

  double amplitude(int place) const { return std::sqrt(2.0 * power[place]) / 2000; }

  void* analysis = FlickerCreate(nullptr, 0);
  std::vector<float> samples = std::vector<float>(2000, 1234.0f);
  float hz[3] = {-1, -1, -1};
  float power[3] = {-1, -1, -1};
};

TEST_F(FlickerAnalysis, ReportsTonesStrongestFirst) {
  add(100, 30);
  add(99.97 * 3, 300);
  add(620.4, 3000);
  process(analysis);
  EXPECT_THAT(hz, ElementsAre(620, 300, 100));
  EXPECT_NEAR(amplitude(0), 3000, 90);
  EXPECT_NEAR(amplitude(1), 300, 9);
  EXPECT_NEAR(amplitude(2), 30, 1);
}

TEST_F(FlickerAnalysis, LeavesPlacesWithoutAToneUnchanged) {
  process(analysis);
  EXPECT_THAT(hz, ElementsAre(-1, -1, -1));
  add(44, 500);
  process(analysis);
  EXPECT_THAT(hz, ElementsAre(-1, -1, -1));
  add(99.97, 500);
  process(analysis);
  EXPECT_THAT(hz, ElementsAre(100, -1, -1));
  EXPECT_THAT(power, ElementsAre(::testing::Gt(0), -1, -1));
}

TEST_F(FlickerAnalysis, FindsTonesAtTheEndsOfItsBand) {
  for (const double end : {49.6, 50.0, 50.4, 999.0, 1000.0}) {
    samples.assign(2000, 0.0f);
    add(end, 100, 1.0);
    process(analysis);
    EXPECT_EQ(hz[0], static_cast<float>(std::lround(end)));
  }
}

TEST_F(FlickerAnalysis, FindsTonesAmongSamplesThatAreNotFinite) {
  add(250, 1000);
  samples[3] = std::numeric_limits<float>::quiet_NaN();
  samples[700] = std::numeric_limits<float>::infinity();
  samples[1999] = -3e38f;
  process(analysis);
  EXPECT_EQ(hz[0], 250);
  EXPECT_NEAR(amplitude(0), 1000, 30);
  samples.assign(2000, std::numeric_limits<float>::quiet_NaN());
  hz[0] = -1;
  process(analysis);
  EXPECT_EQ(hz[0], -1);
}

TEST_F(FlickerAnalysis, SeparatesTones4HzApart) {
  add(300, 100);
  add(304, 80);
  process(analysis);
  EXPECT_EQ(hz[0], 300);
  EXPECT_EQ(hz[1], 304);
}

TEST_F(FlickerAnalysis, FindsAWeakToneOnALargeConstantWithMissingSamples) {
  samples.assign(2000, 30000.0f);
  add(333, 5);
  for (const std::size_t missing : {10u, 500u, 501u, 1500u}) {
    samples[missing] = std::numeric_limits<float>::quiet_NaN();
  }
  process(analysis);
  EXPECT_EQ(hz[0], 333);
  EXPECT_NEAR(amplitude(0), 5, 0.2);
}

TEST_F(FlickerAnalysis, FindsAToneOfAThousandthAtTheEndOfTheBand) {
  samples.assign(2000, 0.0f);
  add(1000, 0.001, 1.0);
  process(analysis);
  EXPECT_EQ(hz[0], 1000);
}

TEST_F(FlickerAnalysis, InstancesAreIndependent) {
  void* other = FlickerCreate(nullptr, 0);
  ASSERT_NE(other, analysis);
  add(300, 100);
  process(analysis);
  FlickerDestroy(other);
  process(analysis);
  EXPECT_EQ(hz[0], 300);
}

TEST_F(FlickerAnalysis, IgnoresNullArguments) {
  add(300, 100);
  process(nullptr);
  FlickerProcess(analysis, nullptr, hz, power);
  FlickerProcess(analysis, samples.data(), nullptr, power);
  EXPECT_EQ(hz[0], -1);
  FlickerDestroy(nullptr);
}

}  // namespace
