#pragma once

#include <dlfcn.h>

namespace spectralsim {

// The function that a preempted symbol stands in front of.
template <typename Function>
Function* next_symbol(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace spectralsim
