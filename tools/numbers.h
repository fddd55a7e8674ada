#pragma once

// The numbers that the tool takes as arguments.

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>

namespace spectralsensorctl {

// A whole number in decimal, also with leading zeros, or in hexadecimal after "0x".
inline std::optional<unsigned int> parse_whole_number(const std::string& text) {
  const bool is_hexadecimal = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
  const char* const end = text.data() + text.size();
  unsigned int number = 0;
  const auto [rest, error] = std::from_chars(text.data() + (is_hexadecimal ? 2 : 0), end, number,
                                             is_hexadecimal ? 16 : 10);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

// A finite number, such as "2.5".
inline std::optional<double> parse_number(const std::string& text) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !std::isfinite(number)) return std::nullopt;
  return number;
}

}  // namespace spectralsensorctl
