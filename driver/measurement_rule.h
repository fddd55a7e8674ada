#pragma once

// What a start or a stop of the two engines, ALS and flicker, sets on the chip: which channel
// enables it asks for, what it needs while the other engine runs, and the flicker output.
//
// The DC enable (register 0x2E) has one bit for each of channels 1..5 that any engine uses. The AC
// enable (register 0x2D) is one switch: for channel 6, or under work-around 3 for any measurement.
// Under work-around 0, channel 6 alone in an ALS mode needs channel 4 switched on with it.

#include <cstdint>

#include "driver/channel.h"
#include "vd6281.h"

namespace spectral {

constexpr std::uint8_t dc_enable_for_start(std::uint8_t dc_enable, bool flicker,
                                           std::uint8_t channels, bool work_around_0) {
  const bool lone_channel_6 = work_around_0 && !flicker && channels == kChannel6;
  const int extra = lone_channel_6 ? kChannel4 : 0;
  return static_cast<std::uint8_t>(dc_enable | (channels & kDcChannels) | extra);
}

constexpr std::uint8_t dc_enable_for_stop(std::uint8_t dc_enable, bool flicker,
                                          std::uint8_t als_channels, std::uint8_t flicker_channels,
                                          bool work_around_0) {
  const int stopped = (flicker ? flicker_channels : als_channels) & kDcChannels;
  int remaining = dc_enable & ~stopped;
  if (work_around_0 && als_channels == kChannel6) {  // the ALS start switched channel 4 on
    const bool flicker_on_channel_4 = flicker_channels == kChannel4;
    if (flicker && flicker_on_channel_4) remaining |= kChannel4;
    if (!flicker && !flicker_on_channel_4) remaining &= ~kChannel4;
  }
  return static_cast<std::uint8_t>(remaining);
}

// Whether a start on these channels needs the AC enable on.
constexpr bool needs_ac_enable(std::uint8_t channels, bool work_around_3) {
  return work_around_3 || (channels & kChannel6) != 0;
}

// Whether a stop of one engine's channels switches the AC enable off, beside the other's channels.
constexpr bool frees_ac_enable(std::uint8_t stopped, std::uint8_t other, bool work_around_3) {
  return work_around_3 ? other == 0 : (stopped & kChannel6) != 0;
}

// What an ALS start beside a running flicker measurement needs, in the order in which it is done.
struct FlickerPause {
  bool for_channel_6;  // pauses flicker, as ALS takes channel 6 too (work-around 4)
  bool join;           // announces the start to the measurement control (work-around 1)
  bool always;         // pauses flicker (work-around 5)
};

constexpr FlickerPause flicker_pause(const std::uint8_t (&work_arounds)[7], bool beside_flicker,
                                     std::uint8_t channels) {
  if (!beside_flicker) return {};
  const bool takes_channel_6 = (channels & kChannel6) != 0;
  return {work_arounds[4] != 0 && takes_channel_6, work_arounds[1] != 0, work_arounds[5] != 0};
}

// The registers that a flicker output type sets.
struct FlickerOutput {
  std::uint8_t ac_mode;  // bits 5..4 of the flicker control
  std::uint8_t setting;
  std::uint8_t setting2;
  std::uint8_t cut_2_2_control;
};

constexpr FlickerOutput flicker_output(std::uint32_t type) {
  constexpr FlickerOutput kOutputs[] = {
      {0x00, 2, 15, 1}, {0x20, 1, 15, 1}, {0x10, 0, 0, 0}, {0x00, 1, 0, 5}, {0x00, 0, 0, 2},
  };
  constexpr FlickerOutput kOther = {0x00, 0, 0, 1};
  return type < sizeof kOutputs / sizeof kOutputs[0] ? kOutputs[type] : kOther;
}

constexpr bool has_flicker_output(std::uint32_t type, bool is_cut_2_0, bool is_cut_2_2) {
  switch (type) {
    case VD6281_FLICKER_OUTPUT_0:
    case VD6281_FLICKER_OUTPUT_1:
      return true;
    case VD6281_FLICKER_OUTPUT_2:
      return !is_cut_2_0;
    case VD6281_FLICKER_OUTPUT_3:
    case VD6281_FLICKER_OUTPUT_4:
      return is_cut_2_2;
    default:
      return false;
  }
}

// The channel select, in bits 3..1 of the flicker control: 1 for channel 6, index + 2 for the
// others.
constexpr std::uint8_t flicker_select(int channel_index) {
  const int select = channel_index == kChannels - 1 ? 1 : channel_index + 2;
  return static_cast<std::uint8_t>(select << 1);
}

}  // namespace spectral
