#pragma once

// What is on the command line. The whole of an argument has to be a number, or nothing is taken
// from it.

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

// Above 0.
inline bool parse(const char* text, double* number) {
  char* rest = nullptr;
  const double parsed = std::strtod(text, &rest);
  if (rest == text || *rest != '\0' || !std::isfinite(parsed) || parsed <= 0.0) return false;
  *number = parsed;
  return true;
}

// Returns the exit status that it is given.
inline int show_help(const char* help, int status) {
  std::fputs(help, status == 0 ? stdout : stderr);
  return status;
}

}  // namespace sweep
