// The development host's Android calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/android.h"

namespace {

[[maybe_unused]] const int g_log_level_set = setenv("SPECTRALHOST_LOG", "warn", 1);

TEST(HostLog, PrintsTheBriefFormatOfLogcatFromTheChosenLevelOn) {
  ::testing::internal::CaptureStderr();
  __android_log_print(spectral::kLogError, "tag", "%s: code %d\n", "Init", -5);
  __android_log_print(spectral::kLogWarning, "other", "short");
  __android_log_print(spectral::kLogDebug, "tag", "not shown");
  __android_log_print(spectral::kLogError, "tag", "%s", std::string(5000, 'x').c_str());
  const std::string shown = ::testing::internal::GetCapturedStderr();
  char expected[64];
  std::snprintf(expected, sizeof expected, "E/tag(%5d): Init: code -5\nW/other(%5d): short\nE/tag(",
                static_cast<int>(getpid()), static_cast<int>(getpid()));
  EXPECT_EQ(shown.substr(0, std::string(expected).size()), expected);
  EXPECT_EQ(shown.back(), '\n');
  EXPECT_EQ(shown.find("not shown"), std::string::npos);
}

TEST(HostProperty, ComesFromTheEnvironmentThenTheFileThenTheDefault) {
  char value[spectral::kPropertyValueMax] = {};
  EXPECT_EQ(property_get("ro.product.device", value, "unknown"), 7);
  EXPECT_STREQ(value, "unknown");
  const std::string path = ::testing::TempDir() + "spectral_build.prop";
  std::ofstream(path) << "# comment\nro.product.devices=no\nro.product.device=ostrel\nlong="
                      << std::string(300, 'y') << "\n";
  setenv("SPECTRALHOST_PROPERTY_FILE", path.c_str(), 1);
  EXPECT_EQ(property_get("ro.product.device", value, "unknown"), 6);
  EXPECT_STREQ(value, "ostrel");
  EXPECT_EQ(property_get("long", value, nullptr), 91);
  EXPECT_EQ(property_get("ro.product", value, nullptr), 0);
  setenv("SPECTRALHOST_PROPERTY_ro_product_device", "pyrrin", 1);
  EXPECT_EQ(property_get("ro.product.device", value, "unknown"), 6);
  EXPECT_STREQ(value, "pyrrin");
  unlink(path.c_str());
}

TEST(HostClock, CountsSinceBoot) {
  const auto first = android::elapsedRealtimeNano();
  EXPECT_GT(first, 0);
  EXPECT_GE(android::elapsedRealtimeNano(), first);
}

}  // namespace
