#pragma once

// How a program gets libspectralsim in front of libc.

namespace spectralsim {

constexpr char kSimulatorLibrary[] = "libspectralsim.so";

// Makes the programs that this process starts from now on, or becomes, load the simulator first
// (LD_PRELOAD, LD_LIBRARY_PATH). Its file stands beside this program, or in the library folder of
// the prefix under which this program is installed; throws std::runtime_error if it does not.
void preload_simulator();

}  // namespace spectralsim
