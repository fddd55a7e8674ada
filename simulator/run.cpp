#include "simulator/run.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "simulator/preloading.h"
#ifdef SPECTRALSIM_FUSE
#include "simulator/kernel_nodes.h"
#endif

namespace spectralsim {

namespace {

// The exit statuses of a shell for a command that is not found or cannot be run.
constexpr int kNotFoundExit = 127;
constexpr int kNotRunExit = 126;

[[noreturn]] void become(char** arguments) {
  execvp(arguments[0], arguments);
  const int error = errno;
  std::cerr << "spectralsim: cannot run " << arguments[0] << ": " << std::strerror(error) << '\n';
  _exit(error == ENOENT ? kNotFoundExit : kNotRunExit);
}

// Becomes the command, with the simulator in front of libc.
[[noreturn]] void become_preloaded(const Settings& settings, std::vector<std::string> command) {
  set_up(settings, std::make_unique<Phone>().get());  // throws what the command would end with
  preload_simulator();
  for (const auto& [name, value] : to_environment(settings)) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> arguments(command.size() + 1);
  std::transform(command.begin(), command.end(), arguments.begin(),
                 [](std::string& argument) { return argument.data(); });
  become(arguments.data());
}

#ifdef SPECTRALSIM_FUSE
std::string why_no_kernel_nodes() { return KernelNodes::why_not(); }

int run_on_kernel_nodes(const Settings& settings, const std::vector<std::string>& command) {
  Phone phone;
  set_up(settings, &phone);
  KernelNodes nodes(&phone);
  const int status = nodes.run({command, {}});
  if (!write_trace(settings, phone)) throw std::runtime_error("cannot write " + settings.trace);
  return status;
}
#else
std::string why_no_kernel_nodes() {
  return "this program was built without libfuse (Debian package libfuse3-dev)";
}

int run_on_kernel_nodes(const Settings&, const std::vector<std::string>&) { return -1; }
#endif

}  // namespace

int run(const Settings& settings, const std::string& nodes,
        const std::vector<std::string>& command) {
  const bool is_real = settings.time == "real";
  const std::string why_not = why_no_kernel_nodes();
  if (nodes == "kernel" && !is_real) {
    throw std::invalid_argument(
        "the kernel's nodes are on real time: --time virtual needs --nodes preload");
  }
  if (nodes == "kernel" && !why_not.empty()) {
    throw std::runtime_error("no kernel nodes here: " + why_not);
  }
  clear_environment();
  if (nodes == "kernel" || (nodes == "auto" && is_real && why_not.empty())) {
    return run_on_kernel_nodes(settings, command);
  }
  become_preloaded(settings, command);
}

void enter_sandbox_if_asked([[maybe_unused]] int argc, [[maybe_unused]] char** argv) {
#ifdef SPECTRALSIM_FUSE
  if (argc <= 3 || std::strcmp(argv[1], Sandbox::kEntry) != 0) return;
  Sandbox::enter(argv[2]);
  become(argv + 3);
#endif
}

}  // namespace spectralsim
