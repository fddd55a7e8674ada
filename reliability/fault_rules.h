#pragma once

// What the library promises of a session in which calls fail: which statuses its operations may
// give, and which messages a failing call brings into the log.

#include <string>
#include <vector>

#include "simulator/trace.h"

namespace sweep {

// Whether the kernel refused this call.
bool is_refused(const spectralsim::Event& event);

// What a session's trace breaks of that; nothing for a session as it should be. `results` are the
// negative results that its faults return, besides -1.
std::vector<std::string> broken_rules(const spectralsim::Trace& trace,
                                      const std::vector<long>& results);

// The messages of an undisturbed session that only failures may bring.
std::vector<std::string> needless_messages(const spectralsim::Trace& trace);

}  // namespace sweep
