#pragma once

// A session with faults, and what must hold of it, behind it and after it.

#include <string>
#include <vector>

#include "reliability/fault_sessions.h"
#include "reliability/injection.h"
#include "simulator/phone.h"

namespace sweep {

// An undisturbed phone on which the session ran twice.
struct Reference {
  spectralsim::Trace first;
  spectralsim::Trace again;
};

Reference reference_of(const Session& session, spectralsim::Cut cut);

// How the session goes with this fault, without any check.
spectralsim::Trace trace_of(const Session& session, spectralsim::Cut cut,
                            const Injection& injection);

// Runs the session with these faults, and once more without, on one phone. What is not as it should
// be.
std::vector<std::string> disturb(const Session& session, spectralsim::Cut cut,
                                 const Reference& reference,
                                 const std::vector<Injection>& injections);

// What a session has left behind on the phone and in the library. The power may stay on only where
// more than one fault can have met each try to switch it off.
std::vector<std::string> left_over(const spectralsim::Phone& phone, bool powered, bool may_stay_on);

}  // namespace sweep
