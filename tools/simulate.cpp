#include "tools/simulate.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "simulator/scene.h"

namespace spectralsensorctl {

namespace {

constexpr char kSimulator[] = "libspectralsim.so";

// The folder of the simulator: the program's own folder, or the library folder of the prefix under
// which the program is installed.
std::string find_simulator() {
  char program[PATH_MAX] = {};
  if (readlink("/proc/self/exe", program, sizeof program - 1) > 0) {
    *std::strrchr(program, '/') = '\0';
    const std::string here = program;
    for (const std::string& folder : {here, here + "/../" SPECTRAL_LIBDIR}) {
      if (access((folder + "/" + kSimulator).c_str(), R_OK) == 0) return folder;
    }
  }
  throw std::runtime_error(std::string("--simulate needs ") + kSimulator +
                           ", which is not beside the program");
}

// Puts `entry` at the head of the list in an environment variable.
void prepend(const char* variable, const std::string& entry) {
  const char* before = std::getenv(variable);
  const std::string rest = before != nullptr && *before != '\0' ? std::string(":") + before : "";
  setenv(variable, (entry + rest).c_str(), 1);
}

bool is_loaded(const char* library) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

}  // namespace

void run_simulated(char** argv, const std::string& scene) {
  const char* preloaded = std::getenv("LD_PRELOAD");
  if (preloaded != nullptr && std::strstr(preloaded, kSimulator) != nullptr) {
    if (!is_loaded(kSimulator)) throw std::runtime_error("the simulator could not be loaded");
    unsetenv("LD_PRELOAD");  // the programs that this one starts need no phone
    return;
  }
  // LD_PRELOAD gets the simulator's file name without its folder, because a blank in the name of
  // the folder would end the entry.
  prepend("LD_LIBRARY_PATH", find_simulator());
  prepend("LD_PRELOAD", kSimulator);
  if (!scene.empty()) setenv("SPECTRALSIM_SCENE", scene.c_str(), 1);
  execv("/proc/self/exe", argv);
  throw std::runtime_error(std::string("cannot start again: ") + std::strerror(errno));
}

std::string simulated_scene() {
  if (!is_loaded(kSimulator)) return "";
  const char* scene = std::getenv("SPECTRALSIM_SCENE");
  return scene != nullptr && *scene != '\0' ? scene : spectralsim::kUsualScene;
}

}  // namespace spectralsensorctl
