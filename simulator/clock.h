#pragma once

// The simulated phone's time: the real clock, or a virtual one on which every sleep, timed wait and
// clock read of the process takes no time and is exact.

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

  // Nanoseconds since the phone began, on either time.
  std::int64_t now_ns() const;

  // The virtual reading of one of the system's clocks; false for one that has none (CPU time).
  bool read(clockid_t id, timespec* reading) const;

  // Virtual time only: runs `action` once, on the thread whose sleep or timed wait passes `at_ns`
  // from now, which then counts as woken. What another thread would do in the middle of a wait is
  // done so, at an exact time.
  void after_ms(std::int64_t delay_ms, std::function<void()> action);

  // Virtual time only: passes to `deadline_ns` or, if one is due before, to the next action, which
  // it runs. Returns whether an action ran. No lock of the simulator may be held.
  bool advance_to(std::int64_t deadline_ns);

  // Lets all of `duration_ns` pass, on either time.
  void sleep_ns(std::int64_t duration_ns);

  // The phone's time, in now_ns, at which the system's clock `id` shows `when`.
  std::int64_t when_ns(clockid_t id, const timespec& when) const;

 private:
  static std::int64_t real_ns();

  bool m_virtual = true;
  std::int64_t m_real_start_ns = real_ns();
  mutable std::mutex m_mutex;
  // Written under the lock, read without: an allocator may look at the clock, within the lock too.
  std::atomic<std::int64_t> m_virtual_now_ns{0};
  std::multimap<std::int64_t, std::function<void()>> m_actions;
};

}  // namespace spectralsim
