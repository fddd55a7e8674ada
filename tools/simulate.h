#pragma once

// Runs the tool on the simulated phone.

#include <string>

namespace spectralsensorctl {

// Starts the program again with the simulator preloaded and this scene in front of its sensor. If
// `scene` is empty, the environment chooses the scene. The function does not return, but throws
// std::runtime_error if the program cannot be started. In a program that has been started in this
// way it checks that the simulator is loaded, removes LD_PRELOAD from the environment and returns.
void run_simulated(char** argv, const std::string& scene);

// The simulated phone's scene, by its name or its file; empty without the simulator.
std::string simulated_scene();

}  // namespace spectralsensorctl
