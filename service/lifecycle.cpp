// The one instance of each facade, its clients, and the power and bring-up that follow their
// counts.

#include <memory>
#include <mutex>

#include "driver/bring_up_rule.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "flicker/facade_traits.h"
#include "platform/log.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::DeviceTraits;
using spectral::FacadeTraits;
using spectral::LayeredTraits;

namespace {

constexpr char kInit[] = "Init";

template <typename Facade>
int load_analysis_library(Facade& facade) {
  const int status = facade.LoadFlickerLibrary();
  if (status != SPECTRAL_FAILED) return status;
  facade.UnloadFlickerLibrary();
  // The code in the message is 0, whatever the loader has returned: the text is fixed.
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag,
                     "%s: Failed to load flicker library, error code %d", kInit, 0);
  return SPECTRAL_FAILED;
}

// Counts a client of `mode`. The first client of either mode brings the sensor up, the first of
// flicker loads the analysis library, whether the sensor was up before or not, and the first
// success reads the calibration.
template <typename Facade>
int add_client(Facade& facade, int mode) {
  using Traits = FacadeTraits<Facade>;
  const std::lock_guard<std::mutex> lock(facade.m_init_mtx);
  const bool flicker = mode == SPECTRAL_MODE_FLICKER;
  if (!flicker && mode != SPECTRAL_MODE_ALS) return SPECTRAL_ALREADY_UP;
  ++(flicker ? facade.m_flkRefCount : facade.m_alsRefCount);
  int result = SPECTRAL_ALREADY_UP;
  if (facade.m_flkRefCount + facade.m_alsRefCount == 1) {
    result = Traits::bring_up(facade);
    if (result != SPECTRAL_OK) return result;
  }
  if (flicker && facade.m_flkRefCount == 1) {
    if (int status = Traits::prepare_flicker(facade)) return status;
    result = load_analysis_library(facade);
    if (result == SPECTRAL_FAILED) return result;
  }
  if (result == SPECTRAL_OK && !spectral::is_set(facade.m_calibrationValid)) {
    facade.PrepareCalibrationData();
  }
  return result;
}

// Takes a client of `mode` away. The last client of a mode, or one too many, ends that mode's
// measurement, and the last client of both tears the sensor down.
template <typename Facade>
void remove_client(Facade& facade, int mode) {
  using Traits = FacadeTraits<Facade>;
  const std::lock_guard<std::mutex> lock(facade.m_init_mtx);
  if (mode == SPECTRAL_MODE_FLICKER) {
    const int clients = facade.m_flkRefCount--;
    if (clients < 2) {
      Traits::end_flicker(facade, clients);
      facade.UnloadFlickerLibrary();
    }
  } else if (mode == SPECTRAL_MODE_ALS) {
    const int clients = facade.m_alsRefCount--;
    if (clients < 2) Traits::end_als(facade, clients);
  } else {
    return;
  }
  if (facade.m_flkRefCount + facade.m_alsRefCount < 1) Traits::tear_down(facade);
}

// An ALS capture that waits is woken when its flag is cleared.
template <typename Facade>
void set_enable_flag(Facade& facade, int which, bool enable) {
  const bool als = which == SPECTRAL_MODE_ALS;
  spectral::set_flag(als ? &facade.m_alsEnableFlag : &facade.m_flkEnableFlag, enable);
  if (als && !enable) facade.m_als_cv.notify_all();
}

template <typename Facade>
int report_bring_up_failed(const Facade&, int status) {
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag,
                     "%s: Failed to init Spectral Sensor, error code %d", kInit, status);
  return SPECTRAL_FAILED;
}

// Clears the pedestal's disable bit. Refused while flicker runs.
int enable_pedestal(SpectralSensorDevice& sensor) {
  const VD6281_device* dev = sensor.get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (spectral::flicker_runs(dev)) return SPECTRAL_RUNNING;
  return sensor.ac_mode_update(reg::kPedestalDisable, 0);
}

// The power of the layered facade, which notes it in a field of its own.
int switch_power(SpectralSensor& sensor, bool on) {
  const int status = sensor.m_device->VD6281_Enable(on);
  if (status == SPECTRAL_OK) sensor.m_powered = on ? 1 : 0;
  return status;
}

}  // namespace

// The texts of the messages below are fixed, with "Pedstal", "pedstal" and a doubled blank.

int DeviceTraits::bring_up(Facade& facade) {
  int status = facade.VD6281_Enable(true);
  if (status == SPECTRAL_OK) status = facade.VD6281_Init();
  if (status != SPECTRAL_OK) return report_bring_up_failed(facade, status);
  if (int failure = enable_pedestal(facade)) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: Pedstal value enable failure error code=%d", kInit, failure);
    return SPECTRAL_FAILED;
  }
  status = facade.VD6281_SetControl(VD6281_CONTROL_PEDESTAL_VALUE, kUsualPedestal);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(kLogTag, "%s:  Pedstal value setup failure error code=%d", kInit, status);
  return SPECTRAL_FAILED;
}
int LayeredTraits::bring_up(Facade& facade) {
  int status = switch_power(facade, true);
  if (status == SPECTRAL_OK) status = facade.m_device->VD6281_Init();
  return status == SPECTRAL_OK ? SPECTRAL_OK : report_bring_up_failed(facade, status);
}

int DeviceTraits::prepare_flicker(Facade&) { return SPECTRAL_OK; }
int LayeredTraits::prepare_flicker(Facade& facade) {
  const int status = facade.m_flicker->SetPedestal(kUsualPedestal);
  if (status == SPECTRAL_OK) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(kLogTag, "%s: Failed to set pedstal value, error code=%d", kInit, status);
  return SPECTRAL_FAILED;
}

void DeviceTraits::end_als(Facade& facade, int) {
  if (VD6281_device* dev = facade.get_active_device()) {
    facade.stop_als(dev, VD6281_MODE_ALS_SINGLE_SHOT);
  }
}
void LayeredTraits::end_als(Facade& facade, int clients) {
  if (clients != 1) {
    SPECTRAL_LOG_WARNING(kLogTag, "%s: ALS refcount becomes negative (%d)", "Uninit",
                         facade.m_alsRefCount);
  }
  facade.m_als->Enable(false, SPECTRAL_ALS_SINGLE_SHOT);
}

void DeviceTraits::end_flicker(Facade& facade, int) {
  if (VD6281_device* dev = facade.get_active_device()) facade.stop_flicker(dev);
}
void LayeredTraits::end_flicker(Facade& facade, int clients) {
  if (clients != 1) {
    SPECTRAL_LOG_WARNING(kLogTag, "%s: FLK refcount becomes negative (%d)", "Uninit",
                         facade.m_flkRefCount);
  }
  facade.m_flicker->Enable(false);
}

void DeviceTraits::tear_down(Facade& facade) {
  facade.VD6281_Term();
  facade.VD6281_Enable(false);
}
void LayeredTraits::tear_down(Facade& facade) {
  facade.m_device->VD6281_Term();
  switch_power(facade, false);
}

SpectralSensorDevice* SpectralSensorDevice::Create() {
  const std::lock_guard<std::mutex> lock(m_instance_mtx);
  if (m_pInstance == nullptr) {
    m_pInstance = new SpectralSensorDevice();
    m_pInstance->VD6281_Enable(false);
  }
  return m_pInstance;
}
SpectralSensor* SpectralSensor::Create() {
  if (m_pInstance != nullptr) return m_pInstance;
  // Published last: an allocation that fails on the way leaves no instance, and frees what there
  // is.
  auto instance = std::make_unique<SpectralSensor>();
  instance->m_device = SpectralSensorDevice::Create();
  if (instance->m_device == nullptr) return nullptr;
  instance->m_als = new AmbientLightSensor();
  instance->m_flicker = new FlickerSensor();
  switch_power(*instance, false);
  m_pInstance = instance.release();
  return m_pInstance;
}

int SpectralSensorDevice::Init(int mode) { return add_client(*this, mode); }
int SpectralSensor::Init(int mode) { return add_client(*this, mode); }

void SpectralSensorDevice::Uninit(int mode) { remove_client(*this, mode); }
void SpectralSensor::Uninit(int mode) { remove_client(*this, mode); }

void SpectralSensorDevice::Destroy() {
  const std::lock_guard<std::mutex> lock(m_instance_mtx);
  if (m_pInstance == nullptr) return;
  DeviceTraits::tear_down(*m_pInstance);
  delete m_pInstance;
  m_pInstance = nullptr;
}
void SpectralSensor::Destroy() {
  if (m_pInstance == nullptr) return;
  // The driver's own clients may have destroyed it, and so torn it down, or made another since.
  m_pInstance->m_device = SpectralSensorDevice::m_pInstance;
  if (m_pInstance->m_device != nullptr) LayeredTraits::tear_down(*m_pInstance);
  SpectralSensorDevice::Destroy();
  delete m_pInstance;
  m_pInstance = nullptr;
}

int SpectralSensorDevice::ResetDevice() {
  m_flkRefCount = 0;
  m_alsRefCount = 0;
  return VD6281_Enable(false);
}
int SpectralSensor::ResetDevice() {
  m_flkRefCount = 0;
  m_alsRefCount = 0;
  return switch_power(*this, false);
}

void SpectralSensorDevice::SetEnableFlag(int which, bool enable) {
  set_enable_flag(*this, which, enable);
}
void SpectralSensor::SetEnableFlag(int which, bool enable) {
  set_enable_flag(*this, which, enable);
}
