#pragma once

// Parsing of command-line arguments. An argument must be a number as a whole; otherwise `parse`
// returns false and leaves `number` as it is.

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace sweep {

inline bool parse(const char* text, std::uint64_t* number) {
  const char* end = text + std::strlen(text);
  std::uint64_t parsed = 0;
  const auto [rest, error] = std::from_chars(text, end, parsed);
  if (error != std::errc() || rest != end) return false;
  *number = parsed;
  return true;
}

// Accepts finite numbers above 0 only.
inline bool parse(const char* text, double* number) {
  char* rest = nullptr;
  const double parsed = std::strtod(text, &rest);
  if (rest == text || *rest != '\0' || !std::isfinite(parsed) || parsed <= 0.0) return false;
  *number = parsed;
  return true;
}

// Prints the help, to stdout for status 0 and else to stderr, and returns `status`.
inline int show_help(const char* help, int status) {
  std::fputs(help, status == 0 ? stdout : stderr);
  return status;
}

}  // namespace sweep
