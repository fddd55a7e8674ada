#include "service/calibration_rule.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

#include "driver/channel.h"
#include "service/als_capture_rule.h"

namespace spectral {

namespace {

constexpr std::uint16_t kMinReading = 100;
constexpr std::uint16_t kMaxReading = 50000;

struct Model {
  const char* name;
  std::uint16_t golden[kChannels];  // readings of the reference unit
};

constexpr Model kModelTable[kModels] = {
    {"tamberlo", {1698, 3106, 1219, 6607, 6405, 7994}},
    {"fenwickle", {1844, 3298, 1266, 6418, 6764, 8540}},
    {"ostrel", {1744, 2153, 483, 8821, 3987, 8736}},
    {"pyrrin", {1731, 2163, 493, 8555, 4051, 8552}},
};

constexpr int kFirstReadingLine = 7;
// The channels on lines 7..13. Line 11 is skipped, and channels 5, 4 and 3 stand in the file's own
// order.
constexpr int kLineChannels[] = {0, 1, 2, 5, -1, 4, 3};

}  // namespace

std::uint32_t model_of(const char* name) {
  for (std::uint32_t i = 0; i < kModels; ++i) {
    if (std::strcmp(kModelTable[i].name, name) == 0) return i + 1;
  }
  return kUnknownModel;
}

int channel_on_line(std::int64_t line) {
  const std::int64_t place = line - kFirstReadingLine;
  const bool is_there = place >= 0 && place < static_cast<std::int64_t>(std::size(kLineChannels));
  return is_there ? kLineChannels[place] : -1;
}

std::optional<std::uint16_t> parse_reading(const char* line) {
  const int saved_errno = errno;
  errno = 0;
  char* end = nullptr;
  const long number = std::strtol(line, &end, 0);
  const bool out_of_range = errno == ERANGE || number < std::numeric_limits<int>::min() ||
                            number > std::numeric_limits<int>::max();
  errno = saved_errno;
  if (end == line || out_of_range) return std::nullopt;
  return static_cast<std::uint16_t>(number);
}

bool are_plausible(const std::uint16_t* reading) {
  return std::all_of(reading, reading + kChannels, [](std::uint16_t value) {
    return value >= kMinReading && value <= kMaxReading;
  });
}

float calibration_factor(std::uint32_t model, int channel, std::uint16_t reading) {
  return static_cast<float>(kModelTable[model - 1].golden[channel]) / static_cast<float>(reading);
}

float calibrate(float value, float factor) { return std::min(value * factor, kFullScale); }

}  // namespace spectral
