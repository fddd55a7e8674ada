#pragma once

// Which channel enables a start or a stop asks for. The DC enable (register 0x2E) is one bit for
// each of channels 1..5 that any engine uses; the AC enable (register 0x2D) is one switch, for
// channel 6 or, with work-around 3, for any measurement.
//
// Work-around 0: channel 6 alone in an ALS mode needs channel 4 switched on with it.

#include <cstdint>

#include "driver/register_map.h"

namespace spectral {

constexpr std::uint8_t dc_enable_for_start(std::uint8_t dc_enable, bool flicker,
                                           std::uint8_t channels, bool work_around_0) {
  const bool lone_channel_6 = work_around_0 && !flicker && channels == reg::kChannel6;
  const int extra = lone_channel_6 ? reg::kChannel4 : 0;
  return static_cast<std::uint8_t>(dc_enable | (channels & reg::kDcChannels) | extra);
}

constexpr std::uint8_t dc_enable_for_stop(std::uint8_t dc_enable, bool flicker,
                                          std::uint8_t als_channels, std::uint8_t flicker_channels,
                                          bool work_around_0) {
  const int stopped = (flicker ? flicker_channels : als_channels) & reg::kDcChannels;
  int remaining = dc_enable & ~stopped;
  if (work_around_0 && als_channels == reg::kChannel6) {  // the start switched channel 4 on
    const bool flicker_on_channel_4 = flicker_channels == reg::kChannel4;
    if (flicker && flicker_on_channel_4) remaining |= reg::kChannel4;
    if (!flicker && !flicker_on_channel_4) remaining &= ~reg::kChannel4;
  }
  return static_cast<std::uint8_t>(remaining);
}

constexpr bool needs_ac_enable(std::uint8_t channels, bool work_around_3) {
  return work_around_3 || (channels & reg::kChannel6) != 0;
}

constexpr bool frees_ac_enable(std::uint8_t stopped, std::uint8_t other, bool work_around_3) {
  return work_around_3 ? other == 0 : (stopped & reg::kChannel6) != 0;
}

}  // namespace spectral
