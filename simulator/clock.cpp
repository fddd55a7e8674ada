#include "simulator/clock.h"

#include <algorithm>
#include <utility>

#include "simulator/next.h"

namespace spectralsim {

namespace {

// The virtual clocks at the creation of a phone: it was started 20 minutes ago and has been awake
// for 5 of them, and the date is 1 January 2025, 00:00 UTC.
constexpr std::int64_t kMonotonicStart = 300 * kNsPerSecond;
constexpr std::int64_t kBootStart = 1200 * kNsPerSecond;
constexpr std::int64_t kRealtimeStart = 1735689600 * kNsPerSecond;

std::int64_t to_ns(const timespec& time) { return time.tv_sec * kNsPerSecond + time.tv_nsec; }

// The time of a system clock at the start of virtual time, or -1 for a clock without virtual time.
std::int64_t start_of(clockid_t id) {
  switch (id) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
      return kRealtimeStart;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_MONOTONIC_COARSE:
      return kMonotonicStart;
    case CLOCK_BOOTTIME:
      return kBootStart;
    default:
      return -1;
  }
}

}  // namespace

std::int64_t Clock::now_ns() const {
  return m_virtual ? m_virtual_now_ns.load() : real_ns() - m_real_start_ns;
}

std::int64_t Clock::real_ns() {
  static Next<int(clockid_t, timespec*)> system("clock_gettime");
  timespec now = {};
  system(CLOCK_MONOTONIC, &now);
  return to_ns(now);
}

bool Clock::read(clockid_t id, timespec* reading) const {
  const std::int64_t start = start_of(id);
  if (start < 0) return false;
  const std::int64_t time = start + now_ns();
  reading->tv_sec = time / kNsPerSecond;
  reading->tv_nsec = time % kNsPerSecond;
  return true;
}

void Clock::after_ms(std::int64_t delay_ms, std::function<void()> action) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_actions.emplace(m_virtual_now_ns + delay_ms * kNsPerMs, std::move(action));
}

bool Clock::advance_to(std::int64_t deadline_ns) {
  std::function<void()> action;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto next = m_actions.begin();
    if (next == m_actions.end() || next->first > deadline_ns) {
      m_virtual_now_ns = std::max(m_virtual_now_ns.load(), deadline_ns);
      return false;
    }
    m_virtual_now_ns = std::max(m_virtual_now_ns.load(), next->first);
    action = std::move(next->second);
    m_actions.erase(next);
  }
  action();
  return true;
}

void Clock::sleep_ns(std::int64_t duration_ns) {
  if (!m_virtual) {
    static Next<int(const timespec*, timespec*)> system("nanosleep");
    timespec duration = {duration_ns / kNsPerSecond, duration_ns % kNsPerSecond};
    while (system(&duration, &duration) != 0) {
    }
    return;
  }
  const std::int64_t deadline_ns = now_ns() + std::max<std::int64_t>(duration_ns, 0);
  while (advance_to(deadline_ns)) {
  }
}

std::int64_t Clock::when_ns(clockid_t id, const timespec& when) const {
  return to_ns(when) - start_of(id);
}

}  // namespace spectralsim
