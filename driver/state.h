#pragma once

// What the record's state says about the two engines. The last client of one mode may leave, and
// look at it, while a capture of the other changes it.

#include <cstdint>

#include "vd6281.h"

namespace spectral {

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
