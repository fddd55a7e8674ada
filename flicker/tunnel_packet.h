#pragma once

// The packet stream of the sensor hub's tunnel, and its parser.
//
// A packet is a header of 28 bytes, little-endian, and its payload:
//    0  magic "EMOR"
//    4  u16  tunnel id
//    6  u16  auxiliary word
//   12  u64  time stamp
//   20  u32  sequence number, per id
//   24  u16  payload length
// The parser works on the tunnel block of the device record alone: what was read lies at rd_buf,
// rd_len bytes of it from buf_itr on are not yet parsed, and a packet that is not all there is
// carried over to the next read. It stays within rd_buf whatever the stream says.

#include <cstddef>
#include <cstdint>

#include "vd6281.h"

namespace spectral {

constexpr std::uint8_t kTunnelMagic[4] = {'E', 'M', 'O', 'R'};
constexpr std::uint32_t kPacketHeaderSize = 28;
constexpr std::size_t kTunnelReadSize = 8192;
constexpr std::size_t kFlickerPayloadSize = 160;
constexpr std::uint16_t kAcceptedTunnelIds = 33;
constexpr std::uint16_t kTrackedTunnelIds = 32;  // one less than are accepted: so it is

struct Packet {
  std::uint32_t sequence;
  std::uint16_t length;         // of the payload
  const std::uint8_t* payload;  // where it is whole
};

enum class ParseResult {
  kPacket,      // a whole packet
  kIncomplete,  // more of it has to be read
  kOutOfStep,   // no packet begins here
};

// Moves what is left to the start of rd_buf. Returns how many bytes may be read behind it: 0 where
// the packet that waits there can never fit.
std::size_t carry_over(VD6281_device* dev);

// Takes in `count` bytes that were read to where carry_over left room.
void take_in(VD6281_device* dev, std::size_t count);

bool has_magic(const VD6281_device* dev);

// Reads the header at buf_itr into the record and `packet`, and steps behind it. has_magic holds.
void parse_header(VD6281_device* dev, Packet* packet);

// Whether the payload is all there; if not, steps back to the packet's start.
bool parse_payload(VD6281_device* dev, Packet* packet);

// Counts the packets lost before this one, and steps behind it.
void finish_packet(VD6281_device* dev, const Packet& packet);

// Whether there may be another packet in what was read.
inline bool may_hold_packet(const VD6281_device* dev) {
  return dev->rd_len > static_cast<std::int32_t>(kPacketHeaderSize);
}

}  // namespace spectral
