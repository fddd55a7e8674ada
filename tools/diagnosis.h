#pragma once

// Why the sensor does not do what it was asked, and what to try.

#include <stdexcept>
#include <string>

namespace spectralsensorctl {

// Arguments that the sensor does not take.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws std::runtime_error with what failed, unless the status is 0.
void require(int status, const std::string& what);

// The same for what the tunnel is needed for.
void require_of_tunnel(int status, const std::string& what);

// Why a node cannot be opened, and what to try; empty for one that can.
std::string explain_node(const char* node, int flags);

// What failed, and where to find out more.
std::string refer_to_log(const std::string& what);

// Tries the nodes of the sensor one after the other, as the library uses them, and for flicker the
// analysis library. Tells of the first that does not work; if all do, refers to the log. The sensor
// is powered afterwards.
std::string explain_failure(int mode, const std::string& what);

}  // namespace spectralsensorctl
