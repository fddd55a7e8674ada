#include <spectral_sensor_device.h>

#include <cstdio>

int main() {
  SpectralSensorDevice* sensor = SpectralSensorDevice::Create();
  SpectralSensorOutput output{};
  bool ok = sensor->Init(SPECTRAL_MODE_ALS) == SPECTRAL_OK;
  for (int i = 0; ok && i < 5; ++i) {
    ok = sensor->Process(SPECTRAL_MODE_ALS, &output) == SPECTRAL_OK;
  }
  if (ok) std::printf("channel 0: %.1f at gain %.2f\n", output.als.value[0], output.als.gain);
  sensor->Uninit(SPECTRAL_MODE_ALS);
  SpectralSensorDevice::Destroy();
  return ok ? 0 : 1;
}
