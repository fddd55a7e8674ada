#pragma once

// What the record's state says about the two engines.

#include "vd6281.h"

namespace spectral {

inline bool als_runs(const VD6281_device* dev) {
  return dev->state == VD6281_STATE_ALS || dev->state == VD6281_STATE_ALS_AND_FLICKER;
}

inline bool flicker_runs(const VD6281_device* dev) {
  return dev->state == VD6281_STATE_FLICKER || dev->state == VD6281_STATE_ALS_AND_FLICKER;
}

}  // namespace spectral
