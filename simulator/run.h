#pragma once

// Runs a command on a simulated phone, by one of its two fronts.

#include <string>
#include <vector>

#include "simulator/settings.h"

namespace spectralsim {

// Runs the command on the kernel's own nodes ("kernel"), by the preloaded simulator ("preload"), or
// by the first of these that this machine allows ("auto"). Returns the command's exit status, or
// 128 and the number of the signal that ended it. Throws an exception with a text for the user if
// the phone cannot be set up or the front is not to be had.
int run(const Settings& settings, const std::string& nodes,
        const std::vector<std::string>& command);

// The program calls this first of all: in the sandbox of a command it becomes the command.
void enter_sandbox_if_asked(int argc, char** argv);

}  // namespace spectralsim
