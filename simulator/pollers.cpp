#include "simulator/pollers.h"

#include <algorithm>
#include <utility>

namespace spectralsim {

Pollers::~Pollers() {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ends = true;
    m_wake.notify_all();
  }
  if (m_thread.joinable()) m_thread.join();
  for (const Poller& poller : m_waiting) fuse_pollhandle_destroy(poller.handle);
}

void Pollers::wake_later(fuse_pollhandle* handle, std::chrono::nanoseconds after) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_thread.joinable()) m_thread = std::thread([this] { run(); });
  m_waiting.push_back({handle, std::chrono::steady_clock::now() + after});
  m_wake.notify_all();
}

void Pollers::run() {
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_ends) {
    const auto now = std::chrono::steady_clock::now();
    auto next = now + std::chrono::hours(1);
    std::vector<Poller> waiting;
    for (const Poller& poller : m_waiting) {
      if (poller.due > now) {
        waiting.push_back(poller);
        next = std::min(next, poller.due);
      } else {
        fuse_lowlevel_notify_poll(poller.handle);
        fuse_pollhandle_destroy(poller.handle);
      }
    }
    m_waiting = std::move(waiting);
    m_wake.wait_until(lock, next);
  }
}

}  // namespace spectralsim
