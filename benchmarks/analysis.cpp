// Measures one call of FlickerProcess next to a bare real Fourier transform of the same samples.

#include <benchmark/benchmark.h>
#include <kiss_fftr.h>

#include <cmath>
#include <random>
#include <vector>

#include "analysis/flicker_analysis.h"

namespace {

constexpr int kSamples = 2000;

// A lamp on 50 Hz mains with noise, as the sensor samples it.
std::vector<float> lamp() {
  std::vector<float> samples(kSamples);
  std::mt19937_64 random(1);
  std::normal_distribution<float> noise(0.0f, 50.0f);
  for (int n = 0; n < kSamples; ++n) {
    const double t = n / double{kSamples};
    samples[static_cast<std::size_t>(n)] = std::round(
        static_cast<float>(9000 * std::fabs(std::sin(std::acos(-1.0) * 100 * t))) + noise(random));
  }
  return samples;
}

void bare_transform(benchmark::State& state) {
  const auto samples = lamp();
  std::vector<kiss_fft_cpx> spectrum(kSamples / 2 + 1);
  kiss_fftr_cfg transform = kiss_fftr_alloc(kSamples, 0, nullptr, nullptr);
  while (state.KeepRunning()) {
    kiss_fftr(transform, samples.data(), spectrum.data());
    benchmark::DoNotOptimize(spectrum.data());
  }
  kiss_fftr_free(transform);
}
BENCHMARK(bare_transform)->Name("analysis of a second/floor");

void flicker_process(benchmark::State& state) {
  const auto samples = lamp();
  float frequencies[3];
  float powers[3];
  void* analysis = FlickerCreate(nullptr, 0);
  while (state.KeepRunning()) {
    FlickerProcess(analysis, samples.data(), frequencies, powers);
    benchmark::DoNotOptimize(frequencies);
  }
  FlickerDestroy(analysis);
}
BENCHMARK(flicker_process)->Name("analysis of a second/library");

}  // namespace
