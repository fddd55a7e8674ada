// clang's thread sanitizer does not know pthread_mutex_clocklock, by which std::timed_mutex waits,
// and would report every unlock behind it. Under this sanitizer it is made of two calls that it
// knows.

#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <cstdint>

namespace {

constexpr std::int64_t kNsPerSecond = 1000000000;

std::int64_t to_ns(const timespec& time) { return time.tv_sec * kNsPerSecond + time.tv_nsec; }

}  // namespace

extern "C" int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t id,
                                       const timespec* deadline) noexcept {
  const int result = pthread_mutex_trylock(mutex);
  if (result != EBUSY) return result;
  timespec now = {};
  timespec real = {};
  clock_gettime(id, &now);
  clock_gettime(CLOCK_REALTIME, &real);
  const std::int64_t until_ns = to_ns(real) + to_ns(*deadline) - to_ns(now);
  real = {until_ns / kNsPerSecond, until_ns % kNsPerSecond};
  return pthread_mutex_timedlock(mutex, &real);
}
