#pragma once

// The packets of the sensor hub's tunnel, as they came.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/report.h"

namespace spectralsensorctl {

struct TunnelPacket {
  std::uint16_t id;  // 0 flicker, 15 VSYNC
  std::uint16_t auxiliary;
  std::uint64_t time_stamp;
  std::uint32_t sequence;
  std::uint16_t length;               // of the payload, bytes
  std::vector<std::int16_t> samples;  // of a flicker payload
};

struct TunnelStream {
  std::vector<TunnelPacket> packets;
  std::size_t left_over = 0;    // bytes at the end that are no whole packet
  bool is_out_of_step = false;  // since no packet begins there
};

// Takes a stream apart, up to where there is no packet.
TunnelStream parse_stream(const std::string& bytes);

// Prints a line a packet.
void print_stream(Format format, const TunnelStream& stream);

}  // namespace spectralsensorctl
