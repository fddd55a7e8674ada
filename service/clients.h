#pragma once

// How both services count their clients, and what the counts bring about.

#include <mutex>

#include "driver/flag.h"
#include "driver/status.h"
#include "platform/log.h"
#include "spectral_types.h"

namespace spectral {

// Counts a client of `mode`. The first of either mode runs `bring_up()`; the first of flicker
// `prepare_flicker()` and then loads the analysis library, whether the sensor was up or not; the
// first success reads the calibration. Both return 0 or the service's failure, logged. 0, -17 or
// -22.
template <typename Service, typename BringUp, typename PrepareFlicker>
int add_client(Service* service, int mode, const char* log_tag, BringUp bring_up,
               PrepareFlicker prepare_flicker) {
  const std::lock_guard<std::mutex> lock(service->m_init_mtx);
  const bool flicker = mode == SPECTRAL_MODE_FLICKER;
  if (!flicker && mode != SPECTRAL_MODE_ALS) return kAlreadyUp;
  ++(flicker ? service->m_flkRefCount : service->m_alsRefCount);
  int result = kAlreadyUp;
  if (service->m_flkRefCount + service->m_alsRefCount == 1) {
    result = bring_up();
    if (result != kOk) return result;
  }
  if (flicker && service->m_flkRefCount == 1) {
    if (int status = prepare_flicker()) return status;
    result = service->LoadFlickerLibrary();
    if (result == kFailed) {
      service->UnloadFlickerLibrary();
      SPECTRAL_LOG_ERROR(log_tag, "%s: Failed to load flicker library, error code %d", "Init",
                         0);  // whatever the loader said
      return kFailed;
    }
  }
  if (result == kOk && !is_set(service->m_calibrationValid)) service->PrepareCalibrationData();
  return result;
}

// Takes a client of `mode` away. The last of a mode, or one too many, runs `stop_als(before)` or
// `stop_flicker(before)` with the count before; the last of both `tear_down()`.
template <typename Service, typename StopAls, typename StopFlicker, typename TearDown>
void remove_client(Service* service, int mode, StopAls stop_als, StopFlicker stop_flicker,
                   TearDown tear_down) {
  const std::lock_guard<std::mutex> lock(service->m_init_mtx);
  if (mode == SPECTRAL_MODE_FLICKER) {
    const int before = service->m_flkRefCount--;
    if (before < 2) {
      stop_flicker(before);
      service->UnloadFlickerLibrary();
    }
  } else if (mode == SPECTRAL_MODE_ALS) {
    const int before = service->m_alsRefCount--;
    if (before < 2) stop_als(before);
  } else {
    return;
  }
  if (service->m_flkRefCount + service->m_alsRefCount < 1) tear_down();
}

// Lets the captures of a kind go on or abandons them; a capture of ALS that waits is woken.
template <typename Service>
void set_enable_flag(Service* service, int which, bool enable) {
  const bool als = which == SPECTRAL_MODE_ALS;
  set_flag(als ? &service->m_alsEnableFlag : &service->m_flkEnableFlag, enable);
  if (als && !enable) service->m_als_cv.notify_all();
}

}  // namespace spectral
