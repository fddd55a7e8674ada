#pragma once

// What the records of all commands have in common: the version of the format, the time, and the way
// in which a value is written.

#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace spectralsensorctl {

enum class Format { kTable, kJson, kCsv };

// The version of the JSON and CSV output, whose fields docs/tool.md lists. It is increased whenever
// a field is added, removed or renamed, or gets another meaning or unit.
constexpr int kFormatVersion = 1;

// Keeps its fields in the order in which they are added.
using Json = nlohmann::ordered_json;

// A time by two clocks.
struct Moment {
  timespec utc;
  std::uint64_t boot_ns;  // nanoseconds since boot, including the time asleep
};

inline Moment now() {
  Moment moment = {};
  clock_gettime(CLOCK_REALTIME, &moment.utc);
  timespec boot = {};
  clock_gettime(CLOCK_BOOTTIME, &boot);
  constexpr std::uint64_t kNsPerSecond = 1000000000;
  moment.boot_ns = static_cast<std::uint64_t>(boot.tv_sec) * kNsPerSecond +
                   static_cast<std::uint64_t>(boot.tv_nsec);
  return moment;
}

// The time in ISO 8601, such as "2026-11-21T09:30:00.125Z".
inline std::string utc_text(const Moment& moment) {
  tm fields = {};
  gmtime_r(&moment.utc.tv_sec, &fields);
  char second[32];
  const std::size_t length = std::strftime(second, sizeof second, "%Y-%m-%dT%H:%M:%S", &fields);
  char fraction[16];
  std::snprintf(fraction, sizeof fraction, ".%03dZ",
                static_cast<int>(moment.utc.tv_nsec / 1000000));
  return std::string(second, length) + fraction;
}

// The fields with which each record of a measurement begins.
inline Json measurement_fields(int number, const Moment& time) {
  return {{"number", number}, {"time_utc", utc_text(time)}, {"time_boot_ns", time.boot_ns}};
}

// Converts a float to the double that is printed with the float's own digits.
inline double tidy(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
  return std::strtod(text, nullptr);
}

// Prints an object of JSON on a line, with the version of the format ahead of its fields.
inline void print_json(const Json& fields) {
  Json record = {{"format", kFormatVersion}};
  record.update(fields);
  // Bytes that are not UTF-8 may come from a file; they are replaced.
  std::printf("%s\n", record.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

// The values as a line of CSV, each with the digits that it has in JSON. A null is an empty field
// and a truth value is 1 or 0.
inline std::string csv_line(const std::vector<Json>& values) {
  std::string line;
  for (const Json& value : values) {
    if (value.is_string()) line += value.get<std::string>();
    if (value.is_boolean()) line += value.get<bool>() ? "1" : "0";
    if (value.is_number()) line += value.dump();
    line += ',';
  }
  if (!line.empty()) line.back() = '\n';
  return line;
}

// The names or the values of an object's fields.
inline std::vector<Json> names_of(const Json& fields) {
  std::vector<Json> names;
  for (const auto& field : fields.items()) names.emplace_back(field.key());
  return names;
}
inline std::vector<Json> values_of(const Json& fields) {
  return std::vector<Json>(fields.begin(), fields.end());
}

inline void print_csv(const std::vector<Json>& values) {
  std::fputs(csv_line(values).c_str(), stdout);
}

}  // namespace spectralsensorctl
