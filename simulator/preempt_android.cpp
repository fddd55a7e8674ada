// Preempts the Android calls of the platform. Log lines are added to the trace and passed on to the
// log, and the property with the phone's model is answered here. The boot clock is not preempted,
// because the platform reads it through libc.

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/android.h"
#include "simulator/kernel.h"
#include "simulator/next.h"

#define SIM_PREEMPTS __attribute__((visibility("default")))

using spectralsim::Kernel;
using spectralsim::Next;

extern "C" {

SIM_PREEMPTS int __android_log_print(int priority, const char* tag, const char* format, ...) {
  using Function = int(int, const char*, const char*, ...);
  static Next<Function> next("__android_log_print");
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (Kernel* kernel = Kernel::current()) kernel->log(priority, tag, text);
  return next.get() != nullptr ? next(priority, tag, "%s", static_cast<const char*>(text)) : 0;
}

SIM_PREEMPTS int property_get(const char* key, char* value, const char* default_value) {
  static Next<int(const char*, char*, const char*)> next("property_get");
  const Kernel* kernel = Kernel::current();
  std::string found = default_value != nullptr ? default_value : "";
  if (kernel != nullptr && std::strcmp(key, "ro.product.device") == 0) {
    found = kernel->model().value_or(found);
  } else if (next.get() != nullptr) {
    return next(key, value, default_value);
  }
  value[found.copy(value, spectral::kPropertyValueMax - 1)] = '\0';
  return static_cast<int>(std::strlen(value));
}

}  // extern "C"
