#pragma once

// Explains failures of the sensor and what to try.

#include <stdexcept>
#include <string>

namespace spectralsensorctl {

// Arguments that the sensor does not take.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws std::runtime_error with what failed, unless the status is SPECTRAL_OK.
void require(int status, const std::string& what);

// The same for a step on the tunnel; the error also names the tunnel.
void require_of_tunnel(int status, const std::string& what);

// Returns why a node cannot be opened, and what to try; empty if it can be opened.
std::string explain_node(const char* node, int flags);

// Switches the sensor's power off. Returns why that failed; empty if it worked.
std::string explain_power_off();

// Returns what failed, and where to find out more.
std::string refer_to_log(const std::string& what);

// Tries the nodes of the sensor one after the other, as the library uses them, and in flicker mode
// the analysis library. Returns why the first of them that fails does not work; if all work,
// returns `what` and refers to the log. The sensor is left powered.
std::string explain_failure(int mode, const std::string& what);

}  // namespace spectralsensorctl
