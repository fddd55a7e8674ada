#include "flicker/analysis_library.h"

#include <dlfcn.h>

#include "driver/status.h"
#include "platform/log.h"

SPECTRAL_EXPORT const char* pVendorLibPath = spectral::kAnalysisLibraryPath;

namespace spectral {

namespace {

constexpr char kLoad[] = "LoadFlickerLibrary";
constexpr char kUnload[] = "UnloadFlickerLibrary";

// The handle is null where there is nothing to close.
void close_library(const AnalysisBinding& binding) {
  if (binding.handle != nullptr) dlclose(binding.handle);
  binding.handle = nullptr;
}

void unload_locked(const AnalysisBinding& binding) {
  if (binding.handle == nullptr) {
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: Error library handle == NULL!", kUnload);
    return;
  }
  if (binding.destroy != nullptr) binding.destroy(binding.instance);
  binding.instance = nullptr;
  if (dlclose(binding.handle) != 0) {
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: Error lib unloading", kUnload);
  }
  binding.handle = nullptr;
}

// Logs an error text and closes the library. 0 without a text.
int report(const AnalysisBinding& binding, const char* error) {
  if (error == nullptr) return kOk;
  SPECTRAL_LOG_ERROR(binding.log_tag, "%s: dlerror %s", "check_dl_error", error);
  close_library(binding);
  return kFailed;
}

int open_library(const AnalysisBinding& binding, const char* path) {
  binding.handle = dlopen(path, RTLD_NOW | RTLD_NODELETE);
  const char* error = dlerror();
  if (binding.handle == nullptr) {
    report(binding, error);
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: error opening libzelk_flicker.so!", kLoad);
    return kFailed;
  }
  if (error == nullptr) return kOk;
  SPECTRAL_LOG_ERROR(binding.log_tag, "%s: dlerror %s", kLoad, error);  // and it stays open
  return kFailed;
}

// A symbol that is null without an error text is taken as it is.
template <typename Function>
int resolve(const AnalysisBinding& binding, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(binding.handle, name));
  return check_dl_error(binding);
}

int resolve_entry_points(const AnalysisBinding& binding) {
  binding.create = reinterpret_cast<FlickerCreateFn>(dlsym(binding.handle, "FlickerCreate"));
  if (binding.create == nullptr) {
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: FlickerCreate pointer is NULL", kLoad);
  }
  if (check_dl_error(binding) != kOk) {
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: Error loading FlickerCreate", kLoad);
    return kFailed;
  }
  if (resolve(binding, "FlickerProcess", &binding.process) != kOk) {
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: Error loading FlickerProcess", kLoad);
    return kFailed;
  }
  if (resolve(binding, "FlickerDestroy", &binding.destroy) != kOk) {
    SPECTRAL_LOG_ERROR(binding.log_tag, "%s: Error loading FlickerDestroy", kLoad);
    return kFailed;
  }
  return kOk;
}

}  // namespace

int load_analysis(const AnalysisBinding& binding, const char* path) {
  const std::lock_guard<std::mutex> lock(binding.mutex);
  dlerror();  // what is left of earlier calls
  if (binding.handle != nullptr) unload_locked(binding);
  if (int status = open_library(binding, path)) return status;
  if (int status = resolve_entry_points(binding)) return status;
  binding.instance = binding.create != nullptr ? binding.create(nullptr, 0) : nullptr;
  return kOk;
}

void unload_analysis(const AnalysisBinding& binding) {
  const std::lock_guard<std::mutex> lock(binding.mutex);
  unload_locked(binding);
}

int check_dl_error(const AnalysisBinding& binding) { return report(binding, dlerror()); }

void analyse(const AnalysisBinding& binding, const float* samples, float* frequencies,
             float* powers) {
  const std::lock_guard<std::mutex> lock(binding.mutex);
  if (binding.handle == nullptr || binding.instance == nullptr) return;
  if (binding.process != nullptr) binding.process(binding.instance, samples, frequencies, powers);
}

}  // namespace spectral
