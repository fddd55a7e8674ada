#pragma once

// The bytes and words that one thread may write while another reads them: the service's flags, and
// the record's state. To the embedding process they are plain fields, so they are accessed
// atomically here.

#include <cstdint>

#include "vd6281.h"

namespace spectral {

// The service's flags. SetEnableFlag writes the enable flags while a capture reads them; Init
// validates the calibration while a capture of the other mode's client reads whether it is valid.

inline bool is_set(const std::uint8_t& flag) {
  return __atomic_load_n(&flag, __ATOMIC_ACQUIRE) != 0;
}

inline void set_flag(std::uint8_t* flag, bool on) {
  __atomic_store_n(flag, static_cast<std::uint8_t>(on ? 1 : 0), __ATOMIC_RELEASE);
}

// The record's state. The last client of one mode may leave, and so read it, while a capture of the
// other mode changes it.

inline std::uint32_t state_of(const VD6281_device* dev) {
  return __atomic_load_n(&dev->state, __ATOMIC_RELAXED);
}

inline void set_state(VD6281_device* dev, std::uint32_t state) {
  __atomic_store_n(&dev->state, state, __ATOMIC_RELAXED);
}

inline bool als_runs(const VD6281_device* dev) {
  const std::uint32_t state = state_of(dev);
  return state == VD6281_STATE_ALS || state == VD6281_STATE_ALS_AND_FLICKER;
}

inline bool flicker_runs(const VD6281_device* dev) {
  const std::uint32_t state = state_of(dev);
  return state == VD6281_STATE_FLICKER || state == VD6281_STATE_ALS_AND_FLICKER;
}

}  // namespace spectral
