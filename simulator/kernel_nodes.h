#pragma once

// Runs commands on a phone whose nodes the kernel serves.

#include <string>

#include "simulator/phone.h"
#include "simulator/sandbox.h"

namespace spectralsim {

class KernelNodes {
 public:
  // The nodes and files that `phone` has now, at their places, for one command at a time. The
  // phone must be on real time.
  explicit KernelNodes(Phone* phone) : m_phone(phone) {}

  // Runs the command until it has ended, and passes signals to this process on to it, if no other
  // thread takes them. Returns its
  // exit status, or 128 and the number of the signal that ended it. Throws std::runtime_error if
  // the command cannot be started.
  int run(Command command);

  // Why this machine has no such nodes, and what would help, or an empty text.
  static std::string why_not() { return Sandbox::why_not(); }

 private:
  Phone* m_phone;
};

}  // namespace spectralsim
