#pragma once

#include <limits>

namespace spectral {

// A float without its fraction as an integer: what does not fit saturates, NaN is 0.
template <typename Integer>
constexpr Integer truncate_to(float value) {
  if (value != value) return 0;
  if (value <= static_cast<float>(std::numeric_limits<Integer>::min())) {
    return std::numeric_limits<Integer>::min();
  }
  if (value >= static_cast<float>(std::numeric_limits<Integer>::max())) {
    return std::numeric_limits<Integer>::max();
  }
  return static_cast<Integer>(value);
}

}  // namespace spectral
