#include "flicker/analysis_library.h"

#include <dlfcn.h>

#include <mutex>

#include "flicker/facade_traits.h"
#include "platform/log.h"
#include "spectral_status.h"

using spectral::DeviceTraits;
using spectral::FacadeTraits;
using spectral::LayeredTraits;

SPECTRAL_EXPORT const char* pVendorLibPath = spectral::kAnalysisLibraryPath;

namespace {

constexpr char kLoad[] = "LoadFlickerLibrary";
constexpr char kUnload[] = "UnloadFlickerLibrary";

template <typename Facade>
void close_library(Facade& facade) {
  if (facade.m_flickerLibHandle != nullptr) dlclose(facade.m_flickerLibHandle);
  facade.m_flickerLibHandle = nullptr;
}

// Unloads the library under the lock that the caller holds.
template <typename Facade>
void unload_locked(Facade& facade) {
  constexpr const char* kLogTag = FacadeTraits<Facade>::kLogTag;
  if (facade.m_flickerLibHandle == nullptr) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: Error library handle == NULL!", kUnload);
    return;
  }
  if (facade.m_pfnFlickerDestroy != nullptr) facade.m_pfnFlickerDestroy(facade.m_flickerCore);
  facade.m_flickerCore = nullptr;
  if (dlclose(facade.m_flickerLibHandle) != 0) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: Error lib unloading", kUnload);
  }
  facade.m_flickerLibHandle = nullptr;
}

template <typename Facade>
void unload(Facade& facade) {
  const std::lock_guard<std::mutex> lock(facade.m_flk_lib_mtx);
  unload_locked(facade);
}

// Logs an error text of the dynamic loader and closes the library; does nothing without a text.
template <typename Facade>
int check_error(Facade& facade, const char* error) {
  if (error == nullptr) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(FacadeTraits<Facade>::kLogTag, "%s: dlerror %s", "check_dl_error", error);
  close_library(facade);
  return SPECTRAL_FAILED;
}

template <typename Facade>
int open_library(Facade& facade) {
  constexpr const char* kLogTag = FacadeTraits<Facade>::kLogTag;
  facade.m_flickerLibHandle =
      dlopen(FacadeTraits<Facade>::analysis_path(), RTLD_NOW | RTLD_NODELETE);
  const char* error = dlerror();
  if (facade.m_flickerLibHandle == nullptr) {
    check_error(facade, error);
    SPECTRAL_LOG_ERROR(kLogTag, "%s: error opening libzelk_flicker.so!", kLoad);
    return SPECTRAL_FAILED;
  }
  if (error == nullptr) return SPECTRAL_OK;
  SPECTRAL_LOG_ERROR(kLogTag, "%s: dlerror %s", kLoad, error);  // the library stays open
  return SPECTRAL_FAILED;
}

// Resolves an entry point. Only an error text is a failure: a symbol that is null without one is
// stored as it is.
template <typename Facade, typename Function>
int resolve(Facade& facade, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(facade.m_flickerLibHandle, name));
  const char* error = dlerror();
  return check_error(facade, error);
}

template <typename Facade>
int resolve_entry_points(Facade& facade) {
  constexpr const char* kLogTag = FacadeTraits<Facade>::kLogTag;
  facade.m_pfnFlickerCreate =
      reinterpret_cast<FlickerCreateFn>(dlsym(facade.m_flickerLibHandle, "FlickerCreate"));
  if (facade.m_pfnFlickerCreate == nullptr) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: FlickerCreate pointer is NULL", kLoad);
  }
  if (check_error(facade, dlerror()) != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: Error loading FlickerCreate", kLoad);
    return SPECTRAL_FAILED;
  }
  if (resolve(facade, "FlickerProcess", &facade.m_pfnFlickerProcess) != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: Error loading FlickerProcess", kLoad);
    return SPECTRAL_FAILED;
  }
  if (resolve(facade, "FlickerDestroy", &facade.m_pfnFlickerDestroy) != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kLogTag, "%s: Error loading FlickerDestroy", kLoad);
    return SPECTRAL_FAILED;
  }
  return SPECTRAL_OK;
}

template <typename Facade>
int load(Facade& facade) {
  const std::lock_guard<std::mutex> lock(facade.m_flk_lib_mtx);
  dlerror();  // drops what an earlier call has left
  if (facade.m_flickerLibHandle != nullptr) unload_locked(facade);
  if (int status = open_library(facade)) return status;
  if (int status = resolve_entry_points(facade)) return status;
  facade.m_flickerCore =
      facade.m_pfnFlickerCreate != nullptr ? facade.m_pfnFlickerCreate(nullptr, 0) : nullptr;
  return SPECTRAL_OK;
}

}  // namespace

template <typename Facade>
void spectral::analyse(Facade& facade, const float* samples, float* frequencies, float* powers) {
  const std::lock_guard<std::mutex> lock(facade.m_flk_lib_mtx);
  if (facade.m_flickerLibHandle == nullptr || facade.m_flickerCore == nullptr) return;
  if (facade.m_pfnFlickerProcess == nullptr) return;
  facade.m_pfnFlickerProcess(facade.m_flickerCore, samples, frequencies, powers);
}

template void spectral::analyse(SpectralSensorDevice&, const float*, float*, float*);
template void spectral::analyse(SpectralSensor&, const float*, float*, float*);

const char* DeviceTraits::analysis_path() { return spectral::kAnalysisLibraryPath; }
const char* LayeredTraits::analysis_path() { return pVendorLibPath; }

int SpectralSensorDevice::LoadFlickerLibrary() { return load(*this); }
int SpectralSensor::LoadFlickerLibrary() { return load(*this); }

void SpectralSensorDevice::UnloadFlickerLibrary() { unload(*this); }
void SpectralSensor::UnloadFlickerLibrary() { unload(*this); }

int SpectralSensorDevice::check_dl_error() { return check_error(*this, dlerror()); }
int SpectralSensor::check_dl_error() { return check_error(*this, dlerror()); }
