// The Android calls for a development host. They form a shared library of their own, so that a
// program can replace them by symbol interposition.
//
// Environment:
//   SPECTRALHOST_LOG            lowest priority shown: verbose, debug, info, warn, error (default),
//                               silent
//   SPECTRALHOST_LOG_FILE       file to which every log line is appended, whatever its priority
//   SPECTRALHOST_PROPERTY_FILE  file of "key=value" lines, like Android's build.prop
//   SPECTRALHOST_PROPERTY_KEY   value of the property KEY, whose dots are written as underscores,
//                               as in SPECTRALHOST_PROPERTY_ro_product_device; it takes precedence
//                               over the file
//
// On the simulated phone, the property ro.product.device comes from SPECTRALSIM_MODEL alone, and
// the two variables for properties have no effect on it.

#include "platform/android.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#define SPECTRALHOST_EXPORT __attribute__((visibility("default")))

namespace {

struct Level {
  const char* name;
  int priority;
};
constexpr Level kLevels[] = {{"verbose", 2}, {"debug", 3}, {"info", 4},
                             {"warn", 5},    {"error", 6}, {"silent", 8}};
constexpr char kPriorityLetters[] = "??VDIWEF";

int lowest_priority_shown() {
  const char* wanted = std::getenv("SPECTRALHOST_LOG");
  if (wanted == nullptr) return spectral::kLogError;
  for (const Level& level : kLevels) {
    if (std::strcmp(level.name, wanted) == 0) return level.priority;
  }
  return spectral::kLogError;
}

char priority_letter(int priority) {
  const bool known = priority >= 0 && priority < static_cast<int>(sizeof kPriorityLetters) - 1;
  return known ? kPriorityLetters[priority] : '?';
}

// Returns the descriptor of the log file, or -1 where there is none.
int open_log_file() {
  const char* path = std::getenv("SPECTRALHOST_LOG_FILE");
  if (path == nullptr) return -1;
  return open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
}

std::optional<std::string> property_from_environment(std::string key) {
  std::replace(key.begin(), key.end(), '.', '_');
  const char* value = std::getenv(("SPECTRALHOST_PROPERTY_" + key).c_str());
  if (value == nullptr) return std::nullopt;
  return value;
}

std::optional<std::string> property_from_file(const std::string& key) {
  const char* path = std::getenv("SPECTRALHOST_PROPERTY_FILE");
  if (path == nullptr) return std::nullopt;
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line)) {
    if (line.compare(0, key.size(), key) == 0 && line[key.size()] == '=') {
      return line.substr(key.size() + 1);
    }
  }
  return std::nullopt;
}

}  // namespace

extern "C" {

// Writes one line to stderr and to the log file in logcat's brief format, with a single write each.
// The file gets the message as it is, with a line end of its own if it has one.
SPECTRALHOST_EXPORT int __android_log_print(int priority, const char* tag, const char* format,
                                            ...) {
  static const int lowest = lowest_priority_shown();
  static const int file = open_log_file();
  if (priority < lowest && file < 0) return 0;
  char line[1024];
  const int head = std::snprintf(line, sizeof line, "%c/%s(%5d): ", priority_letter(priority), tag,
                                 static_cast<int>(getpid()));
  auto length = std::min(static_cast<std::size_t>(std::max(head, 0)), sizeof line - 1);
  va_list arguments;
  va_start(arguments, format);
  const int body = std::vsnprintf(line + length, sizeof line - length, format, arguments);
  va_end(arguments);
  length = std::min(length + static_cast<std::size_t>(std::max(body, 0)), sizeof line - 1);
  line[length] = '\n';
  if (file >= 0 && write(file, line, length + 1) < 0) return -1;
  if (priority < lowest) return 0;
  while (length > 0 && line[length - 1] == '\n') --length;  // logcat adds the line end itself
  line[length++] = '\n';
  std::fwrite(line, 1, length, stderr);
  return static_cast<int>(length);
}

SPECTRALHOST_EXPORT int property_get(const char* key, char* value, const char* default_value) {
  auto found = property_from_environment(key);
  if (!found) found = property_from_file(key);
  if (!found) found = default_value != nullptr ? default_value : "";
  const std::size_t length =
      found->copy(value, static_cast<std::size_t>(spectral::kPropertyValueMax) - 1);
  value[length] = '\0';
  return static_cast<int>(length);
}

}  // extern "C"

namespace android {

SPECTRALHOST_EXPORT std::int64_t elapsedRealtimeNano() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

}  // namespace android
