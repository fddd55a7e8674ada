#include "tools/session.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <atomic>

#include "driver/nodes.h"
#include "flicker/analysis_library.h"

namespace spectralsensorctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> g_interrupted{false};
std::atomic<InterruptGuard::Stop> g_stop{nullptr};

void on_interrupt(int) {
  g_interrupted.store(true);
  if (InterruptGuard::Stop stop = g_stop.load()) stop();
}

// Why the analysis library does not load; empty where it does.
std::string explain_analysis() {
  void* const library = dlopen(spectral::kAnalysisLibraryPath, RTLD_NOW);
  if (library == nullptr) {
    const char* why = dlerror();
    return std::string(why != nullptr ? why : spectral::kAnalysisLibraryPath) +
           "\nFlicker needs the analysis library there; libflicker_analysis.so is one.";
  }
  dlclose(library);
  return "";
}

}  // namespace

bool interrupted() { return g_interrupted.load(); }

InterruptGuard::InterruptGuard(Stop stop) {
  g_stop.store(stop);
  struct sigaction action = {};
  action.sa_handler = on_interrupt;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &action, &m_before[i]);
  }
}

InterruptGuard::~InterruptGuard() {
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    sigaction(kSignals[i], &m_before[i], nullptr);
  }
  disarm();
}

void InterruptGuard::disarm() { g_stop.store(nullptr); }

std::string explain_node(const char* node, int flags) {
  const int fd = open(node, flags | O_CLOEXEC);
  if (fd >= 0) {
    close(fd);
    return "";
  }
  const std::string what = std::string(node) + ": " + std::strerror(errno);
  if (errno == ENOENT || errno == ENODEV || errno == ENXIO) {
    return what +
           "\nIs this a phone with the sensor, and its kernel driver loaded? Without one, try "
           "--simulate.";
  }
  return what + "\nTry as root, and look for an SELinux denial: dmesg | grep avc.";
}

std::string explain_failed_init(int mode) {
  struct Opened {
    const char* node;
    int flags;
  };
  for (const Opened& opened : {Opened{spectral::kEnablePath, O_RDWR},
                               {spectral::kReadBytePath, O_WRONLY},
                               {spectral::kWriteBytePath, O_WRONLY},
                               {spectral::kDevicePath, O_RDWR}}) {
    if (std::string why = explain_node(opened.node, opened.flags); !why.empty()) return why;
  }
  std::string why = mode == SPECTRAL_MODE_FLICKER ? explain_analysis() : "";
  return why.empty() ? "the sensor does not come up; the log says at which step" : why;
}

}  // namespace spectralsensorctl
