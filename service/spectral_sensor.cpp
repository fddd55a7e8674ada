// The layered service: its one instance, its clients, and the power and bring-up that follow them.

#include "spectral_sensor.h"

#include "driver/register_map.h"
#include "driver/status.h"
#include "flicker/flicker_flow.h"
#include "platform/android.h"
#include "platform/log.h"
#include "service/clients.h"
#include "service/layered_tag.h"

using spectral::kFailed;
using spectral::kLayeredTag;
using spectral::kOk;

SpectralSensor* SpectralSensor::m_pInstance = nullptr;

namespace {

// Switches the power and notes it.
int switch_power(SpectralSensor* sensor, bool on) {
  const int status = sensor->m_device->VD6281_Enable(on);
  if (status == kOk) sensor->m_powered = on ? 1 : 0;
  return status;
}

int bring_up(SpectralSensor* sensor) {
  int status = switch_power(sensor, true);
  if (status == kOk) status = sensor->m_device->VD6281_Init();
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(kLayeredTag, "%s: Failed to init Spectral Sensor, error code %d", "Init",
                     status);
  return kFailed;
}

int set_pedestal(SpectralSensor* sensor) {
  const int status = sensor->m_flicker->SetPedestal(spectral::reg::kUsualPedestal);
  if (status == kOk) return kOk;
  SPECTRAL_LOG_ERROR(kLayeredTag, "%s: Failed to set pedstal value, error code=%d", "Init", status);
  return kFailed;
}

void tear_down(SpectralSensor* sensor) {
  sensor->m_device->VD6281_Term();
  switch_power(sensor, false);
}

}  // namespace

SpectralSensor::SpectralSensor() { m_flkResult.gain = 1.0f; }

SpectralSensor::~SpectralSensor() {
  delete m_flicker;
  delete m_als;
}

SpectralSensor* SpectralSensor::Create() {
  if (m_pInstance != nullptr) return m_pInstance;
  m_pInstance = new SpectralSensor();
  m_pInstance->m_device = SpectralSensorDevice::Create();
  if (m_pInstance->m_device == nullptr) {
    delete m_pInstance;
    m_pInstance = nullptr;
    return nullptr;
  }
  m_pInstance->m_als = new AmbientLightSensor();
  m_pInstance->m_flicker = new FlickerSensor();
  switch_power(m_pInstance, false);
  return m_pInstance;
}

int SpectralSensor::Init(int mode) {
  return spectral::add_client(
      this, mode, kLayeredTag, [this] { return bring_up(this); },
      [this] { return set_pedestal(this); });
}

void SpectralSensor::Uninit(int mode) {
  spectral::remove_client(
      this, mode,
      [this](int before) {
        if (before != 1) {
          SPECTRAL_LOG_WARNING(kLayeredTag, "%s: ALS refcount becomes negative (%d)", "Uninit",
                               m_alsRefCount);
        }
        m_als->Enable(false, SPECTRAL_ALS_SINGLE_SHOT);
      },
      [this](int before) {
        if (before != 1) {
          SPECTRAL_LOG_WARNING(kLayeredTag, "%s: FLK refcount becomes negative (%d)", "Uninit",
                               m_flkRefCount);
        }
        m_flicker->Enable(false);
      },
      [this] { tear_down(this); });
}

void SpectralSensor::Destroy() {
  if (m_pInstance == nullptr) return;
  // The driver's own clients may have destroyed it, and torn it down, or made another since.
  m_pInstance->m_device = SpectralSensorDevice::m_pInstance;
  if (m_pInstance->m_device != nullptr) tear_down(m_pInstance);
  SpectralSensorDevice::Destroy();
  delete m_pInstance;
  m_pInstance = nullptr;
}

int SpectralSensor::ResetDevice() {
  m_flkRefCount = 0;
  m_alsRefCount = 0;
  return switch_power(this, false);
}

void SpectralSensor::SetEnableFlag(int which, bool enable) {
  spectral::set_enable_flag(this, which, enable);
}

int SpectralSensor::Process(int mode, SpectralSensorOutput* output) {
  const auto now_ns = [] { return static_cast<std::uint64_t>(android::elapsedRealtimeNano()); };
  if (output == nullptr) return kFailed;
  if (mode == SPECTRAL_MODE_FLICKER) return spectral::process_flicker(this, output, now_ns);
  if (mode != SPECTRAL_MODE_ALS) return kFailed;
  const int status = m_alsAeEnable != 0 ? CaptureALSAE(output) : CaptureALSDefault(output);
  output->als.timestamp = now_ns();
  return status;
}
