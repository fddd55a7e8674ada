#include "simulator/kernel_nodes.h"

#include <sys/resource.h>
#include <unistd.h>

#include "simulator/fuse_nodes.h"
#include "simulator/kernel.h"

namespace spectralsim {

namespace {

// User system and group camera of a phone. Another user than root has the nodes himself, because
// only root can give files away.
constexpr Owner kOwnerOnPhone = {1000, 1006};

Owner owner() { return getuid() == 0 ? kOwnerOnPhone : Owner{getuid(), getgid()}; }

// Each node that a program opens is a descriptor here.
void allow_many_descriptors() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// The property and the log of the phone, as platform/host/ finds them.
std::vector<std::string> environment(const Kernel& kernel) {
  std::vector<std::string> variables = {"SPECTRALHOST_PROPERTY_ro_product_device=" +
                                        kernel.model().value_or("")};
  if (kernel.keeps_trace()) {
    variables.push_back(std::string("SPECTRALHOST_LOG_FILE=") + kLogNodePath);
  }
  return variables;
}

}  // namespace

int KernelNodes::run(Command command) {
  FuseNodes nodes(m_phone, owner());
  for (const std::string& variable : environment(m_phone->kernel())) {
    command.environment.push_back(variable);
  }
  Sandbox sandbox(nodes.places(), command);
  allow_many_descriptors();
  nodes.serve(sandbox.take_fuse());
  return sandbox.wait();
}

}  // namespace spectralsim
