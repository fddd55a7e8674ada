#pragma once

// Lets a fuzz target run on the kernel's own nodes, which threads of the target's own process
// serve.

#include <memory>
#include <string>
#include <vector>

#include "simulator/fuse_nodes.h"
#include "simulator/phone.h"

namespace fuzz {

// Starts this program again where the nodes' places exist, in a mount namespace of its own. Returns
// only there. Ends the program with status 77 where there is no /dev/fuse, bubblewrap or root.
void enter_places(char** arguments);

// The phone's nodes at their places, while the object exists. The analysis library is a file there
// all the time, because a process keeps it mapped.
class OnKernelNodes {
 public:
  explicit OnKernelNodes(spectralsim::Phone* phone);
  ~OnKernelNodes();
  OnKernelNodes(const OnKernelNodes&) = delete;
  OnKernelNodes& operator=(const OnKernelNodes&) = delete;

 private:
  std::unique_ptr<spectralsim::FuseNodes> m_nodes;
};

}  // namespace fuzz
