// The one instance, its clients, and the power and bring-up that follow their counts.

#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/state.h"
#include "driver/status.h"
#include "platform/log.h"
#include "service/clients.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kNoDevice;
using spectral::kOk;
using spectral::kRefusedRunning;

namespace {

// Powers the sensor, brings it up and sets the pedestal.
int bring_up(SpectralSensorDevice* sensor) {
  int status = sensor->VD6281_Enable(true);
  if (status == kOk) status = sensor->VD6281_Init();
  if (status != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to init Spectral Sensor, error code %d", "Init",
                       status);
    return kFailed;
  }
  const VD6281_device* dev = sensor->get_active_device();
  if (dev == nullptr) {
    status = kNoDevice;
  } else if (spectral::flicker_runs(dev)) {
    status = kRefusedRunning;
  } else {
    status = sensor->ac_mode_update(reg::kPedestalDisable, 0);
  }
  if (status != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Pedstal value enable failure error code=%d", "Init",
                       status);
    return kFailed;
  }
  status = sensor->VD6281_SetControl(VD6281_CONTROL_PEDESTAL_VALUE, reg::kUsualPedestal);
  if (status != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s:  Pedstal value setup failure error code=%d", "Init",
                       status);
    return kFailed;
  }
  return kOk;
}

void tear_down(SpectralSensorDevice* sensor) {
  sensor->VD6281_Term();
  sensor->VD6281_Enable(false);
}

}  // namespace

SpectralSensorDevice* SpectralSensorDevice::Create() {
  const std::lock_guard<std::mutex> lock(m_instance_mtx);
  if (m_pInstance == nullptr) {
    m_pInstance = new SpectralSensorDevice();
    m_pInstance->VD6281_Enable(false);
  }
  return m_pInstance;
}

int SpectralSensorDevice::Init(int mode) {
  return spectral::add_client(
      this, mode, kDriverTag, [this] { return bring_up(this); }, [] { return kOk; });
}

void SpectralSensorDevice::Uninit(int mode) {
  VD6281_device* dev = &m_VD6281Device[0];
  spectral::remove_client(
      this, mode,
      [this, dev](int) {
        if (get_active_device() != nullptr) stop_als(dev, VD6281_MODE_ALS_SINGLE_SHOT);
      },
      [this, dev](int) {
        if (get_active_device() != nullptr) stop_flicker(dev);
      },
      [this] { tear_down(this); });
}

void SpectralSensorDevice::Destroy() {
  const std::lock_guard<std::mutex> lock(m_instance_mtx);
  if (m_pInstance == nullptr) return;
  tear_down(m_pInstance);
  delete m_pInstance;
  m_pInstance = nullptr;
}

int SpectralSensorDevice::ResetDevice() {
  m_flkRefCount = 0;
  m_alsRefCount = 0;
  return VD6281_Enable(false);
}

void SpectralSensorDevice::SetEnableFlag(int which, bool enable) {
  spectral::set_enable_flag(this, which, enable);
}
