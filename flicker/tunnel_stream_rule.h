#pragma once

// Parsing the packet stream of the sensor hub's tunnel (tunnel_format.h).
//
// The parser works on the tunnel block of the device record alone. What was read is in rd_buf: the
// rd_len bytes from buf_itr on are not parsed yet, and a packet of which only the first part has
// been read is carried over to the next read. The parser stays within rd_buf whatever the stream
// holds.

#include <cstddef>
#include <cstdint>

#include "vd6281.h"

namespace spectral {

constexpr std::size_t kTunnelReadSize = 8192;
constexpr std::uint16_t kAcceptedTunnelIds = 33;  // 0..32: id 32 is accepted, but not tracked
constexpr std::uint16_t kTrackedTunnelIds = 32;   // 0..31: what the per-id tables have room for

struct Packet {
  std::uint32_t sequence;
  std::uint16_t length;         // of the payload, bytes
  const std::uint8_t* payload;  // meaningful once parse_payload has returned true
};

// Moves the bytes that are not parsed yet to the start of rd_buf. Returns how many bytes may be
// read behind them: 0 where rd_buf is full, which only a packet that can never fit brings about.
std::size_t carry_over(VD6281_device* dev);

// Takes in `count` bytes that were read to where carry_over left room.
void take_in(VD6281_device* dev, std::size_t count);

bool has_magic(const VD6281_device* dev);

// Reads the header at buf_itr, where has_magic holds, into the record and `packet`, and steps
// behind it.
void parse_header(VD6281_device* dev, Packet* packet);

// Whether the whole payload has been read; if not, steps back to the packet's start.
bool parse_payload(VD6281_device* dev, const Packet& packet);

// Counts the packets that were lost before this one, and steps behind it.
void finish_packet(VD6281_device* dev, const Packet& packet);

// Whether there may be another packet in what was read.
bool may_hold_packet(const VD6281_device* dev);

}  // namespace spectral
