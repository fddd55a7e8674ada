#pragma once

// Whole sessions of a client of the library, from Create to Destroy, for the fault sweep.
//
// A session writes each of its calls, with what it gave, into the log under the tag "client", so
// that the phone's trace has them between the system calls that they caused. It goes on whatever it
// is told, and owes an Uninit for every Init, as a client is expected to.

#include <string>
#include <vector>

#include "simulator/phone.h"

namespace sweep {

constexpr char kClientTag[] = "client";

struct Session {
  std::string name;  // facade first
  void (*run)(spectralsim::Phone*);
};

const std::vector<Session>& sessions();

}  // namespace sweep
