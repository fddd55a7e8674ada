#pragma once

// The mode wrappers' check of a channel argument.

#include <cstdint>

#include "driver/channel.h"
#include "platform/log.h"

namespace spectral {

// Whether `mask` is exactly one channel and one of `supported`; if not, says so in the log.
inline bool is_single_channel_of(std::uint32_t mask, std::uint32_t supported, const char* log_tag) {
  constexpr char kName[] = "IsValidSingleChannel";
  if (!is_one_hot(mask)) {
    SPECTRAL_LOG(kLogDebug, log_tag, "%s: Expect single channel, got channel mask 0x%x", kName,
                 mask);
    return false;
  }
  if ((mask & ~supported) != 0) {
    SPECTRAL_LOG(kLogDebug, log_tag, "%s: Supported channels mask 0x%x, got channel mask 0x%x",
                 kName, supported, mask);
    return false;
  }
  return true;
}

}  // namespace spectral
