#pragma once

// What the library promises for a session in which system calls fail: which statuses its operations
// may return, and which messages a failed call leaves in the log.

#include <string>
#include <vector>

#include "simulator/trace.h"

namespace sweep {

// Whether the kernel refused this call.
bool is_refused(const spectralsim::Event& event);

// Returns a line for every promise that the trace of a session breaks. `results` are the negative
// results that failed calls of the session may have returned.
std::vector<std::string> broken_rules(const spectralsim::Trace& trace,
                                      const std::vector<long>& results);

// Returns the messages in the trace of an undisturbed session that only a failure may cause.
std::vector<std::string> needless_messages(const spectralsim::Trace& trace);

}  // namespace sweep
