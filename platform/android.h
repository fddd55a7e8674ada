#pragma once

// The calls of the Android platform that the library makes. On the phone they come from liblog,
// libcutils and libutils; on a development host they come from platform/host/.

#include <cstdint>

extern "C" {

// Writes one line to the system log.
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Copies the value of the system property `key`, or `default_value` if the property is not set,
// into `value` (kPropertyValueMax bytes) and returns its length.
int property_get(const char* key, char* value, const char* default_value);
}

namespace android {

// Nanoseconds since boot, including the time asleep.
std::int64_t elapsedRealtimeNano();

}  // namespace android

namespace spectral {

constexpr int kPropertyValueMax = 92;

constexpr int kLogDebug = 3;
constexpr int kLogInfo = 4;
constexpr int kLogWarning = 5;
constexpr int kLogError = 6;

}  // namespace spectral
