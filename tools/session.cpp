#include "tools/session.h"

#include <atomic>

#include "driver/nodes.h"

namespace spectralsensorctl {

namespace {

std::atomic<bool> g_interrupted{false};
std::atomic<InterruptGuard::Stop> g_stop{nullptr};

void on_interrupt(int) {
  g_interrupted.store(true);
  if (InterruptGuard::Stop stop = g_stop.load()) stop();
}

}  // namespace

bool interrupted() { return g_interrupted.load(); }

InterruptGuard::InterruptGuard(Stop stop) {
  g_stop.store(stop);
  struct sigaction action = {};
  action.sa_handler = on_interrupt;
  sigaction(SIGINT, &action, &m_before);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &m_before, nullptr);
  disarm();
}

void InterruptGuard::disarm() { g_stop.store(nullptr); }

std::string explain_failed_init() {
  for (const char* node : {spectral::kEnablePath, spectral::kReadBytePath, spectral::kWriteBytePath,
                           spectral::kDevicePath}) {
    if (access(node, F_OK) == 0 && access(node, W_OK) == 0) continue;
    const std::string what = std::string(node) + ": " + std::strerror(errno);
    if (errno == ENOENT) {
      return what +
             "\nIs this a phone with the sensor, and its kernel driver loaded? Without one, try "
             "--simulate.";
    }
    return what + "\nTry as root, and look for an SELinux denial: dmesg | grep avc.";
  }
  return "the sensor does not come up; the log says at which step";
}

}  // namespace spectralsensorctl
