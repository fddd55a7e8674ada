#pragma once

// The service's bytes that one thread may write while another's capture reads them. They are plain
// bytes to the embedding process, so they are reached atomically here.

#include <cstdint>

namespace spectral {

inline bool is_set(const std::uint8_t& flag) {
  return __atomic_load_n(&flag, __ATOMIC_ACQUIRE) != 0;
}

inline void set_flag(std::uint8_t* flag, bool on) {
  __atomic_store_n(flag, static_cast<std::uint8_t>(on ? 1 : 0), __ATOMIC_RELEASE);
}

}  // namespace spectral
