#pragma once

// Where the phone's nodes stand in the file system that a command on the kernel's own nodes sees.

#include <string>
#include <vector>

namespace spectralsim {

// A file of the folder of nodes, and the absolute path at which the command finds it.
struct Place {
  std::string file;
  std::string path;
};

// Returns the arguments of bubblewrap for a root that has everything this machine's root has, and
// `nodes`/FILE at the path of each place. Nothing is created on this machine: where the folder of a
// place does not have the file, a folder in memory with the same entries stands in for the deepest
// folder that exists. `tmp` is a folder with this machine's /tmp.
//
// Throws std::filesystem::filesystem_error if such a folder cannot be listed.
std::vector<std::string> root_arguments(const std::vector<Place>& places, const std::string& nodes,
                                        const std::string& tmp);

}  // namespace spectralsim
