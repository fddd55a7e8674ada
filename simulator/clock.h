#pragma once

// The simulated phone's time. It follows the real clock, or a virtual clock with which the sleeps,
// timed waits and clock reads of the process take no real time and are exact.

#include <time.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

namespace spectralsim {

constexpr std::int64_t kNsPerMs = 1000000;
constexpr std::int64_t kNsPerSecond = 1000000000;

class __attribute__((visibility("default"))) Clock {
 public:
  bool is_virtual() const { return m_virtual; }
  void set_virtual(bool on) { m_virtual = on; }

  // Nanoseconds since the phone was created, in real or virtual time.
  std::int64_t now_ns() const;

  // Stores the virtual time of one of the system's clocks in `reading`. Returns false for a clock
  // without virtual time, such as one of CPU time.
  bool read(clockid_t id, timespec* reading) const;

  // Virtual time only: runs `action` once, `delay_ms` from now, on the thread whose sleep or timed
  // wait passes that time. A timed wait then counts as woken. A test uses this to do at an exact
  // time, in the middle of a wait, what another thread would do.
  void after_ms(std::int64_t delay_ms, std::function<void()> action);

  // Virtual time only: moves the time to `deadline_ns` or, if an action is due by then, to the next
  // action, and runs that action. Returns whether an action ran. The caller must hold no lock of
  // the simulator.
  bool advance_to(std::int64_t deadline_ns);

  // Returns when all of `duration_ns` has passed, in real or virtual time.
  void sleep_ns(std::int64_t duration_ns);

  // Virtual time only: the value of now_ns() at which the system's clock `id` shows `when`.
  std::int64_t when_ns(clockid_t id, const timespec& when) const;

 private:
  static std::int64_t real_ns();

  bool m_virtual = true;
  std::int64_t m_real_start_ns = real_ns();
  mutable std::mutex m_mutex;
  // Written under the lock but read without it, because an allocator may read the clock, also while
  // the lock is held.
  std::atomic<std::int64_t> m_virtual_now_ns{0};
  std::multimap<std::int64_t, std::function<void()>> m_actions;
};

}  // namespace spectralsim
