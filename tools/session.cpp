#include "tools/session.h"

#include <atomic>
#include <cstdio>
#include <iterator>
#include <string>

namespace spectralsensorctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

std::atomic<int> g_signal{0};
std::atomic<bool> g_left_powered{false};
std::atomic<InterruptGuard::Stop> g_stop{nullptr};

void on_interrupt(int signal) {
  g_signal.store(signal);
  if (InterruptGuard::Stop stop = g_stop.load()) stop();
}

}  // namespace

bool interrupted() { return interrupting_signal() != 0; }

int interrupting_signal() { return g_signal.load(); }

bool left_powered() { return g_left_powered.load(); }

void retry_power_off() {
  const std::string why = explain_power_off();
  if (why.empty()) return;
  std::fprintf(stderr, "spectralsensorctl: the sensor is still powered: %s\n", why.c_str());
  g_left_powered.store(true);
}

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
