#pragma once

// Those who wait by poll(2) for a node that is served by FUSE.

#include <fuse_lowlevel.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace spectralsim {

class Pollers {
 public:
  Pollers() = default;
  ~Pollers();
  Pollers(const Pollers&) = delete;
  Pollers& operator=(const Pollers&) = delete;

  // Takes the handle over, and wakes the poller after this time, so that it asks again.
  void wake_later(fuse_pollhandle* handle, std::chrono::nanoseconds after);

 private:
  struct Poller {
    fuse_pollhandle* handle;
    std::chrono::steady_clock::time_point due;
  };

  void run();

  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::vector<Poller> m_waiting;
  bool m_ends = false;
  std::thread m_thread;  // started by the first poller
};

}  // namespace spectralsim
