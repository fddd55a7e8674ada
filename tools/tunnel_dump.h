#pragma once

// The packets of the sensor hub's tunnel.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/record.h"

namespace spectralsensorctl {

struct TunnelPacket {
  std::uint16_t id;  // 0 flicker, 15 VSYNC
  std::uint16_t auxiliary;
  std::uint64_t time_stamp;
  std::uint32_t sequence;
  std::uint16_t length;               // bytes of the payload
  std::vector<std::int16_t> samples;  // empty unless it is a flicker payload
};

struct TunnelStream {
  std::vector<TunnelPacket> packets;
  std::size_t left_over = 0;    // bytes after the last whole packet
  bool is_out_of_step = false;  // whether those bytes do not begin a packet
};

// Splits a stream into packets, up to the first bytes that are not a whole packet.
TunnelStream parse_stream(const std::string& bytes);

// Prints a line for each packet. `time` is when the stream had been read.
void print_stream(Format format, const TunnelStream& stream, const Moment& time);

}  // namespace spectralsensorctl
