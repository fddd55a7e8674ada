#pragma once

// Channel identifiers and the arithmetic on channel masks.

#include <cstdint>

#include "driver/register_map.h"

namespace spectral {

constexpr int kBadChannelIndex = reg::kChannels;

constexpr bool is_one_hot(std::uint32_t id) { return id != 0 && (id & (id - 1)) == 0; }

// Position of the single set bit of a one-hot identifier (0..31), else kBadChannelIndex.
constexpr int channel_index(std::uint32_t id) {
  if (!is_one_hot(id)) return kBadChannelIndex;
  int index = 0;
  while ((id >> index & 1) == 0) ++index;
  return index;
}

constexpr bool is_channel_index(int index) { return index >= 0 && index < reg::kChannels; }

constexpr bool has_channel(std::uint32_t mask, int index) { return (mask >> index & 1) != 0; }

// A mask that names at least one channel and nothing else.
constexpr bool is_channel_mask(std::uint32_t mask) {
  return mask != 0 && mask <= reg::kAllChannels;
}

}  // namespace spectral
