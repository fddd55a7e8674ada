#include "tools/simulate.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "simulator/preloading.h"
#include "simulator/scene.h"

namespace spectralsensorctl {

using spectralsim::kSimulatorLibrary;

namespace {

bool is_loaded(const char* library) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

}  // namespace

void run_simulated(char** argv, const std::string& scene) {
  const char* preloaded = std::getenv("LD_PRELOAD");
  if (preloaded != nullptr && std::strstr(preloaded, kSimulatorLibrary) != nullptr) {
    if (!is_loaded(kSimulatorLibrary))
      throw std::runtime_error("the simulator could not be loaded");
    unsetenv("LD_PRELOAD");  // the programs that this one starts need no phone
    return;
  }
  spectralsim::preload_simulator();
  if (!scene.empty()) setenv("SPECTRALSIM_SCENE", scene.c_str(), 1);
  execv("/proc/self/exe", argv);
  throw std::runtime_error(std::string("cannot start again: ") + std::strerror(errno));
}

std::string simulated_scene() {
  if (!is_loaded(kSimulatorLibrary)) return "";
  const char* scene = std::getenv("SPECTRALSIM_SCENE");
  return scene != nullptr && *scene != '\0' ? scene : spectralsim::kUsualScene;
}

}  // namespace spectralsensorctl
