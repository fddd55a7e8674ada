// Fuzzes the analysis library with any second of samples.
//
// An input is the number of tones, up to eight (1 byte), the frequency of each in sixteenths of a
// hertz (2 bytes) and its amplitude (a float of 4 bytes), the amplitude of the noise (4 bytes), and
// samples (4 bytes each) that replace the first ones.

#include <algorithm>
#include <cmath>
#include <iterator>
#include <random>
#include <vector>

#include "analysis/flicker_analysis.h"
#include "fuzz/support.h"

using fuzz::Input;
using fuzz::require;

namespace {

constexpr std::size_t kSamples = 2000;
constexpr int kMostTones = 8;
constexpr int kTones = 3;
constexpr float kUntouched = -7.0f;

std::vector<float> samples_of(Input* input) {
  std::vector<float> samples(kSamples);
  const int tones = input->below(kMostTones + 1);
  for (int i = 0; i < tones; ++i) {
    const double hz = input->take<std::uint16_t>() / 16.0;
    const auto amplitude = input->take<float>();
    for (std::size_t n = 0; n < kSamples; ++n) {
      const double angle = 2.0 * std::acos(-1.0) * hz * static_cast<double>(n) / kSamples;
      samples[n] += amplitude * static_cast<float>(std::sin(angle));
    }
  }
  std::mt19937 random(1);
  const auto noise = input->take<float>();
  for (float& sample : samples) {
    sample += noise * (static_cast<float>(random()) * 0x1p-31f - 1.0f);
  }
  for (std::size_t n = 0; n < kSamples && !input->is_at_end(); ++n) {
    samples[n] = input->take<float>();
  }
  return samples;
}

struct Tones {
  float hz[kTones] = {kUntouched, kUntouched, kUntouched};
  float power[kTones] = {kUntouched, kUntouched, kUntouched};
};

bool is_same(const Tones& one, const Tones& other) {
  return std::equal(std::begin(one.hz), std::end(one.hz), other.hz) &&
         std::equal(std::begin(one.power), std::end(one.power), other.power);
}

void check(const Tones& tones) {
  for (int i = 0; i < kTones; ++i) {
    if (tones.hz[i] == kUntouched) {
      require(tones.power[i] == kUntouched, "a place without a tone is left alone");
      continue;
    }
    require(i == 0 || tones.hz[i - 1] != kUntouched, "no tone follows a place without one");
    require(tones.hz[i] >= 50.0f && tones.hz[i] <= 1000.0f, "a tone lies within 50..1000 Hz");
    require(tones.hz[i] == std::round(tones.hz[i]), "a frequency is a whole number of hertz");
    require(std::isfinite(tones.power[i]) && tones.power[i] > 0.0f, "a power is above 0");
    require(i == 0 || tones.power[i] <= tones.power[i - 1], "the strongest comes first");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const fuzz::Watch watch;
  Input input(bytes, size);
  const std::vector<float> samples = samples_of(&input);
  void* used = FlickerCreate(nullptr, 0);
  void* fresh = FlickerCreate(used, static_cast<std::int32_t>(size));
  Tones first;
  Tones again;
  FlickerProcess(used, samples.data(), first.hz, first.power);
  check(first);
  FlickerProcess(used, samples.data(), again.hz, again.power);
  require(is_same(first, again), "the same samples give the same tones");
  again = {};
  FlickerProcess(fresh, samples.data(), again.hz, again.power);
  require(is_same(first, again), "another instance gives the same tones");
  FlickerProcess(nullptr, samples.data(), again.hz, again.power);
  FlickerProcess(used, nullptr, again.hz, again.power);
  require(is_same(first, again), "a null argument changes nothing");
  FlickerDestroy(used);
  FlickerDestroy(fresh);
  FlickerDestroy(nullptr);
  return 0;
}
