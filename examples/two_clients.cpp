// Two clients of one sensor, ambient light and flicker, each on a thread of its own, and an abort
// from a third.

#include <spectral_sensor_device.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

namespace {

std::mutex g_measuring;  // one measurement at a time is the callers' duty
std::atomic<bool> g_goes_on{true};
std::atomic<bool> g_failed{false};

// Init returns SPECTRAL_ALREADY_UP behind any other client, also behind one whose Init has failed.
// The chip's version is there only when the sensor is up.
bool is_up(SpectralSensorDevice* sensor, int init_status) {
  unsigned char id = 0;
  unsigned char revision = 0;
  return init_status != SPECTRAL_FAILED &&
         sensor->VD6281_GetProductVersion(&id, &revision) == SPECTRAL_OK;
}

void measure(SpectralSensorDevice* sensor, int mode) {
  const std::lock_guard<std::mutex> lock(g_measuring);
  if (!g_goes_on) return;
  SpectralSensorOutput output{};
  const int status = sensor->Process(mode, &output);
  if (!g_goes_on) return;  // an abandoned capture brings nothing
  if (status != SPECTRAL_OK) {
    g_failed = true;
  } else if (mode == SPECTRAL_MODE_ALS) {
    std::printf("light: channel 0 has %.1f at gain %.2f\n", output.als.value[0], output.als.gain);
  } else {
    std::printf("flicker: 100 Hz with %u, 120 Hz with %u\n", output.flicker.strength_a,
                output.flicker.strength_b);
  }
}

// A client owes an Uninit for each Init, the failed ones included.
void run_client(SpectralSensorDevice* sensor, int mode) {
  const int status = sensor->Init(mode);
  if (is_up(sensor, status)) {
    while (g_goes_on && !g_failed) measure(sensor, mode);
  } else {
    g_failed = true;
  }
  sensor->Uninit(mode);
}

}  // namespace

int main() {
  SpectralSensorDevice* sensor = SpectralSensorDevice::Create();
  std::thread light(run_client, sensor, SPECTRAL_MODE_ALS);
  std::thread flicker(run_client, sensor, SPECTRAL_MODE_FLICKER);
  std::this_thread::sleep_for(std::chrono::seconds(3));
  g_goes_on = false;
  sensor->SetEnableFlag(SPECTRAL_MODE_ALS, false);
  sensor->SetEnableFlag(SPECTRAL_MODE_FLICKER, false);
  light.join();
  flicker.join();
  SpectralSensorDevice::Destroy();
  return g_failed ? 1 : 0;
}
