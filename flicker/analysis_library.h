#pragma once

// Binding the flicker-analysis library, which is loaded at run time and reached through three entry
// points. Each facade owns a binding: these functions act on its fields, under its lock and log
// tag.

#include <mutex>

#include "spectral_sensor_device.h"

namespace spectral {

struct AnalysisBinding {
  const char* log_tag;
  std::mutex& mutex;  // of the fields below and of every call into the library
  void*& handle;
  FlickerCreateFn& create;
  FlickerProcessFn& process;
  FlickerDestroyFn& destroy;
  void*& instance;
};

constexpr char kAnalysisLibraryPath[] = "/vendor/lib64/libzelk_flicker.so";
constexpr int kAnalysisTones = 3;

// Opens the library at `path`, resolves the entry points and makes the instance; one that is loaded
// already is unloaded first. 0, or -22 (logged).
int load_analysis(const AnalysisBinding& binding, const char* path);

void unload_analysis(const AnalysisBinding& binding);

// Logs what dlerror tells, if anything, and closes the library. 0 or -22.
int check_dl_error(const AnalysisBinding& binding);

// Finds the strongest frequencies (Hz) and their spectral powers; both, three each, stay as they
// are without a loaded library.
void analyse(const AnalysisBinding& binding, const float* samples, float* frequencies,
             float* powers);

}  // namespace spectral
