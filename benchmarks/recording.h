#pragma once

// The calls of the sessions as a file: what the floor on the kernel's own nodes issues again.

#include <cstdio>
#include <map>
#include <string>

#include "simulator/trace.h"

namespace bench {

void write_event(const spectralsim::Event& event, std::FILE* file);

// Reads the recorded calls by the session's name. Throws std::runtime_error for any other file.
std::map<std::string, spectralsim::Trace> read_recording(const std::string& path);

}  // namespace bench
