#pragma once

// All log lines are written by these macros. They are macros and not functions so that the compiler
// checks every format against its arguments.

#include "platform/android.h"

#define SPECTRAL_LOG(priority, tag, ...) \
  static_cast<void>(__android_log_print(priority, tag, __VA_ARGS__))
#define SPECTRAL_LOG_ERROR(tag, ...) SPECTRAL_LOG(::spectral::kLogError, tag, __VA_ARGS__)
#define SPECTRAL_LOG_WARNING(tag, ...) SPECTRAL_LOG(::spectral::kLogWarning, tag, __VA_ARGS__)
