#include "simulator/preloading.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace spectralsim {

namespace {

std::string find_simulator() {
  char program[PATH_MAX] = {};
  if (readlink("/proc/self/exe", program, sizeof program - 1) > 0) {
    *std::strrchr(program, '/') = '\0';
    const std::string here = program;
    for (const std::string& folder : {here, here + "/../" SPECTRAL_LIBDIR}) {
      if (access((folder + "/" + kSimulatorLibrary).c_str(), R_OK) == 0) return folder;
    }
  }
  throw std::runtime_error(std::string(kSimulatorLibrary) + " is not beside the program");
}

// Puts `entry` at the head of the list in an environment variable.
void prepend(const char* variable, const std::string& entry) {
  const char* before = std::getenv(variable);
  const std::string rest = before != nullptr && *before != '\0' ? std::string(":") + before : "";
  setenv(variable, (entry + rest).c_str(), 1);
}

}  // namespace

void preload_simulator() {
  // LD_PRELOAD gets the simulator's file name without its folder, because a blank in the name of
  // the folder would end the entry.
  prepend("LD_LIBRARY_PATH", find_simulator());
  prepend("LD_PRELOAD", kSimulatorLibrary);
}

}  // namespace spectralsim
