#pragma once

// Whole sessions of a client of the library, from Create to Destroy, for the fault sweep.
//
// A session logs each of its calls with the status that it returned, under the tag "client", so
// that the phone's trace shows every call behind the system calls that it caused. A session goes on
// whatever the statuses are, and calls Uninit once for every Init, as a client is expected to.

#include <string>
#include <vector>

#include "simulator/phone.h"

namespace sweep {

constexpr char kClientTag[] = "client";

struct Session {
  std::string name;  // begins with the facade
  void (*run)(spectralsim::Phone*);
};

const std::vector<Session>& sessions();

}  // namespace sweep
