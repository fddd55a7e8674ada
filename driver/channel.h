#pragma once

// The six channels: their identifiers, masks and indices.

#include <cstdint>

namespace spectral {

constexpr int kChannels = 6;
constexpr std::uint8_t kAllChannels = 0x3F;
constexpr std::uint8_t kDcChannels = 0x1F;  // channels 1..5, each with a DC enable bit of its own
constexpr std::uint8_t kChannel4 = 0x08;
constexpr std::uint8_t kChannel6 = 0x20;  // behind the AC enable

// What channel_index returns for anything but a single channel: an index that callers refuse.
constexpr int kBadChannelIndex = kChannels;

constexpr bool is_one_hot(std::uint32_t id) { return id != 0 && (id & (id - 1)) == 0; }

// The position of the single set bit of a one-hot identifier (0..31), else kBadChannelIndex.
constexpr int channel_index(std::uint32_t id) {
  if (!is_one_hot(id)) return kBadChannelIndex;
  int index = 0;
  while ((id >> index & 1) == 0) ++index;
  return index;
}

constexpr bool is_channel_index(int index) { return index >= 0 && index < kChannels; }

constexpr bool has_channel(std::uint32_t mask, int index) { return (mask >> index & 1) != 0; }

// Whether a mask names at least one channel and nothing else.
constexpr bool is_channel_mask(std::uint32_t mask) { return mask != 0 && mask <= kAllChannels; }

}  // namespace spectral
