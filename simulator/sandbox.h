#pragma once

// Runs a command in a mount namespace and a process namespace of its own, in which a FUSE file
// system's files stand at places of their own (bubblewrap). When the command ends, so do all the
// processes that it has started, and the mounts with them.

#include <sys/types.h>

#include <string>
#include <vector>

#include "simulator/places.h"

namespace spectralsim {

// What a command is started with.
struct Command {
  std::vector<std::string> arguments;    // the program and its arguments
  std::vector<std::string> environment;  // "NAME=VALUE"; replaces the variables of these names
  int input = 0;                         // the descriptors of its standard input and output
  int output = 1;
};

class Sandbox {
 public:
  // Starts the command, which waits for the file system to be served. From then on this thread has
  // all signals blocked that it can pass on. Throws std::runtime_error with a text that says what
  // is missing or refused.
  Sandbox(const std::vector<Place>& places, const Command& command);
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  // Takes over the descriptor of "/dev/fuse" by which the file system is mounted.
  int take_fuse();

  // Waits until the command has ended, and passes signals on to it meanwhile. Returns its exit
  // status, or 128 and the number of the signal that ended it. Throws std::runtime_error if the
  // command could not be started.
  int wait();

  // The program "spectralsim" is the first one that runs in the sandbox, with the arguments kEntry,
  // a number and those of the command. It calls this with the number, and then becomes the command.
  static constexpr char kEntry[] = "--enter-sandbox";
  static void enter(const char* socket_number);

  // Why there can be no sandbox on this machine, or an empty text.
  static std::string why_not();

 private:
  void pass_on(int signal) const;

  int m_socket = -1;  // to the processes in the sandbox
  int m_fuse = -1;
  pid_t m_bubblewrap = -1;
  pid_t m_command = -1;
};

}  // namespace spectralsim
