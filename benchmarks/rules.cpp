// Measures the library's arithmetic, which makes no calls on the phone.

#include <benchmark/benchmark.h>

#include "spectral_sensor_device.h"

namespace {

void process_result(benchmark::State& state) {
  SpectralSensorDevice sensor;
  FlickerResult result = {};
  // Two lamps alternate, so that the tracking has changes to confirm all the time.
  float frequencies[2][3] = {{100.0f, 200.0f, 270.0f}, {120.0f, 240.0f, 333.0f}};
  float amplitudes[3] = {9000.0f, 800.0f, 4000.0f};
  int turn = 0;
  while (state.KeepRunning()) {
    sensor.FlickerResultProcessing(frequencies[++turn / 4 % 2], amplitudes, &result);
    benchmark::DoNotOptimize(result);
  }
}
BENCHMARK(process_result)->Name("one flicker result ranked and tracked/library");

void propose_exposure(benchmark::State& state) {
  SpectralSensorDevice sensor;
  ALSResult result = {};
  result.channelMask = 0x1B;
  for (float& value : result.value) value = 900.0f;
  result.gain = 1.0f;
  result.exposureMs = 100.8f;
  result.valid = 1;
  ALSConfig next;
  bool stable = false;
  sensor.m_alsConfig.exposureTime = 100800;
  while (state.KeepRunning()) {
    sensor.ALSAE(&result, &next, &stable);
    benchmark::DoNotOptimize(next);
  }
}
BENCHMARK(propose_exposure)->Name("one exposure proposed/library");

}  // namespace
