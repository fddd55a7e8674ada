#pragma once

// Running this very program on the simulated phone.

#include <string>

namespace spectralsensorctl {

// Starts the program again with the simulator preloaded and this scene in front of its sensor, or
// for an empty one that of the environment. Does not return; throws std::runtime_error where there
// is no simulator. Nothing happens in a program that has been started so.
void run_simulated(char** argv, const std::string& scene);

}  // namespace spectralsensorctl
