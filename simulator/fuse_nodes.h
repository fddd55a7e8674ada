#pragma once

// The phone's nodes as files that the kernel serves by FUSE: one of the two fronts of
// simulator/kernel.h.

#include <memory>
#include <string>
#include <vector>

#include "simulator/phone.h"
#include "simulator/places.h"

namespace spectralsim {

// Who owns the nodes: on a phone, user system and group camera.
struct Owner {
  unsigned int user;
  unsigned int group;
};

class FuseNodes {
 public:
  // The nodes that the phone has now. The file of its analysis library is opened here; throws
  // std::invalid_argument if that fails.
  FuseNodes(Phone* phone, Owner owner);
  // Ends the service. Every call that still waits fails.
  ~FuseNodes();
  FuseNodes(const FuseNodes&) = delete;
  FuseNodes& operator=(const FuseNodes&) = delete;

  // Where a program expects the files.
  const std::vector<Place>& places() const;

  // The data of the mount(2) that mounts the nodes, given a descriptor of "/dev/fuse".
  static std::string mount_data(int fuse_fd);

  // Serves the file system that has been mounted by this descriptor, from threads of its own, and
  // takes the descriptor over. Throws std::runtime_error if that fails.
  void serve(int fuse_fd);

 private:
  class Service;
  std::unique_ptr<Service> m_service;
};

// The node to which the log of programs on the phone goes (SPECTRALHOST_LOG_FILE), so that the
// trace has it.
constexpr char kLogNodePath[] = "/dev/spectralsim_log";

}  // namespace spectralsim
