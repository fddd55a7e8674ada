#include "tools/session.h"

#include <atomic>
#include <iterator>

namespace spectralsensorctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

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

}  // namespace spectralsensorctl
