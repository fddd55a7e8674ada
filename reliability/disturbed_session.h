#pragma once

// Runs a session with faults, and checks the session, what it leaves behind and the next session.

#include <string>
#include <vector>

#include "reliability/fault_sessions.h"
#include "reliability/injection.h"
#include "simulator/phone.h"

namespace sweep {

// The traces of two undisturbed runs of a session, one after the other on the same phone.
struct Reference {
  spectralsim::Trace first;
  spectralsim::Trace again;
};

Reference reference_of(const Session& session, spectralsim::Cut cut);

// Returns the trace of the session with this fault, without any check.
spectralsim::Trace trace_of(const Session& session, spectralsim::Cut cut,
                            const Injection& injection);

// Runs the session with these faults, and then again without them, on the same phone. Returns a
// line for everything that is not as it should be.
std::vector<std::string> disturb(const Session& session, spectralsim::Cut cut,
                                 const Reference& reference,
                                 const std::vector<Injection>& injections);

// Returns a line for everything that a session has left behind on the phone and in the library.
// `powered` is whether the sensor is still on. With `may_stay_on` that is not counted, since
// several faults can have struck all attempts to switch it off.
std::vector<std::string> left_over(const spectralsim::Phone& phone, bool powered, bool may_stay_on);

}  // namespace sweep
