// Preempts the sleeps, timed waits and clock reads of libc. In virtual time they follow the phone's
// clock; in real time they pass through.

#include <pthread.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "simulator/kernel.h"
#include "simulator/next.h"

#define SIM_PREEMPTS __attribute__((visibility("default")))

using spectralsim::Clock;
using spectralsim::Kernel;
using spectralsim::kNsPerSecond;
using spectralsim::Next;

namespace {

constexpr std::int64_t kNsPerUs = 1000;

Clock* virtual_clock() {
  Kernel* kernel = Kernel::current();
  return kernel != nullptr && kernel->clock().is_virtual() ? &kernel->clock() : nullptr;
}

std::int64_t to_ns(const timespec& time) { return time.tv_sec * kNsPerSecond + time.tv_nsec; }

// Waits on a condition with the mutex released. An action of the clock that runs during the wait
// counts as a wake-up, whether it signalled the condition or not.
int wait_virtually(Clock* clock, pthread_mutex_t* mutex, clockid_t id, const timespec* deadline) {
  pthread_mutex_unlock(mutex);
  const bool woken = clock->advance_to(clock->when_ns(id, *deadline));
  pthread_mutex_lock(mutex);
  return woken ? 0 : ETIMEDOUT;
}

int lock_virtually(Clock* clock, pthread_mutex_t* mutex, clockid_t id, const timespec* deadline) {
  for (;;) {
    const int result = pthread_mutex_trylock(mutex);
    if (result != EBUSY) return result;
    if (!clock->advance_to(clock->when_ns(id, *deadline))) return ETIMEDOUT;
  }
}

}  // namespace

extern "C" {

SIM_PREEMPTS int clock_gettime(clockid_t id, timespec* now) noexcept {
  static Next<int(clockid_t, timespec*)> next("clock_gettime");
  const Clock* clock = virtual_clock();
  return clock != nullptr && clock->read(id, now) ? 0 : next(id, now);
}

SIM_PREEMPTS int gettimeofday(timeval* now, void* zone) noexcept {
  static Next<int(timeval*, void*)> next("gettimeofday");
  timespec precise = {};
  const Clock* clock = virtual_clock();
  if (clock == nullptr || !clock->read(CLOCK_REALTIME, &precise)) return next(now, zone);
  now->tv_sec = precise.tv_sec;
  now->tv_usec = precise.tv_nsec / kNsPerUs;
  return 0;
}

SIM_PREEMPTS time_t time(time_t* now) noexcept {
  timespec precise = {};
  clock_gettime(CLOCK_REALTIME, &precise);
  if (now != nullptr) *now = precise.tv_sec;
  return precise.tv_sec;
}

SIM_PREEMPTS int nanosleep(const timespec* duration, timespec* remaining) {
  static Next<int(const timespec*, timespec*)> next("nanosleep");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(duration, remaining);
  clock->sleep_ns(to_ns(*duration));
  return 0;
}

SIM_PREEMPTS int clock_nanosleep(clockid_t id, int flags, const timespec* time,
                                 timespec* remaining) {
  static Next<int(clockid_t, int, const timespec*, timespec*)> next("clock_nanosleep");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(id, flags, time, remaining);
  const bool absolute = (flags & TIMER_ABSTIME) != 0;
  clock->sleep_ns(absolute ? clock->when_ns(id, *time) - clock->now_ns() : to_ns(*time));
  return 0;
}

SIM_PREEMPTS int usleep(useconds_t duration_us) {
  static Next<int(useconds_t)> next("usleep");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(duration_us);
  clock->sleep_ns(duration_us * kNsPerUs);
  return 0;
}

SIM_PREEMPTS unsigned int sleep(unsigned int duration_s) {
  static Next<unsigned int(unsigned int)> next("sleep");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(duration_s);
  clock->sleep_ns(duration_s * kNsPerSecond);
  return 0;
}

SIM_PREEMPTS int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                        const timespec* deadline) {
  using Function = int(pthread_cond_t*, pthread_mutex_t*, const timespec*);
  static Next<Function> next("pthread_cond_timedwait", "GLIBC_2.3.2");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(condition, mutex, deadline);
  return wait_virtually(clock, mutex, CLOCK_REALTIME, deadline);
}

SIM_PREEMPTS int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                        clockid_t id, const timespec* deadline) {
  using Function = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
  static Next<Function> next("pthread_cond_clockwait");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(condition, mutex, id, deadline);
  return wait_virtually(clock, mutex, id, deadline);
}

SIM_PREEMPTS int pthread_mutex_timedlock(pthread_mutex_t* mutex,
                                         const timespec* deadline) noexcept {
  static Next<int(pthread_mutex_t*, const timespec*)> next("pthread_mutex_timedlock");
  Clock* clock = virtual_clock();
  if (clock == nullptr) return next(mutex, deadline);
  return lock_virtually(clock, mutex, CLOCK_REALTIME, deadline);
}

SIM_PREEMPTS int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t id,
                                         const timespec* deadline) noexcept {
  static Next<int(pthread_mutex_t*, clockid_t, const timespec*)> next("pthread_mutex_clocklock");
  Clock* clock = virtual_clock();
  if (clock != nullptr) return lock_virtually(clock, mutex, id, deadline);
  // The lock is first tried by a call that clang's thread sanitizer knows, because it does not know
  // pthread_mutex_clocklock.
  const int result = pthread_mutex_trylock(mutex);
  return result == EBUSY ? next(mutex, id, deadline) : result;
}

}  // extern "C"
