#pragma once

// Whole sessions of a client of the library, from Create to Destroy, for the fault sweep.
//
// A session logs each of its calls with the status that it returned, under the tag "client", so
// that the phone's trace shows every call behind the system calls that it caused. A session goes on
// whatever the statuses are, and calls Uninit once for every Init, as a client is expected to.

#include <string>
#include <vector>

namespace sweep {

constexpr char kClientTag[] = "client";

// What the phone has for a session.
enum class Furnished {
  kPlain,
  kCalibrated,       // a factory file, and the model that it is for
  kDetectorAnswers,  // the chip's flicker detector answers at once, with 250 Hz
};

struct Session {
  std::string name;  // begins with the facade
  Furnished furnished;
  void (*play)();
};

const std::vector<Session>& sessions();

}  // namespace sweep
