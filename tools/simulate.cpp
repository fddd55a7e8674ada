#include "tools/simulate.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace spectralsensorctl {

namespace {

constexpr char kSimulator[] = "libspectralsim.so";

// The simulator beside the program, or in the library folder of the prefix it is installed under.
std::filesystem::path find_simulator() {
  const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder : {here, here / ".." / SPECTRAL_LIBDIR}) {
    if (std::filesystem::exists(folder / kSimulator)) return folder / kSimulator;
  }
  throw std::runtime_error(std::string("--simulate needs ") + kSimulator +
                           ", which is not beside the program");
}

}  // namespace

void run_simulated(char** argv, const std::string& scene) {
  const char* preloaded = std::getenv("LD_PRELOAD");
  if (preloaded != nullptr && std::strstr(preloaded, kSimulator) != nullptr) {
    unsetenv("LD_PRELOAD");  // what this program starts needs no phone
    return;
  }
  setenv("LD_PRELOAD", find_simulator().c_str(), 1);
  setenv("SPECTRALSIM_SCENE", scene.c_str(), 1);
  execv("/proc/self/exe", argv);
  throw std::runtime_error(std::string("cannot start again: ") + std::strerror(errno));
}

}  // namespace spectralsensorctl
