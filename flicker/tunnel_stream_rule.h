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

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

namespace packet_layout {
constexpr int kId = 4;
constexpr int kAux = 6;
constexpr int kTimeStamp = 12;
constexpr int kSequence = 20;
constexpr int kLength = 24;
}  // namespace packet_layout

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "as the stream is");

template <typename Value>
Value little_endian(const std::uint8_t* at) {
  Value value = 0;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// Moves what is left to the start of rd_buf. Returns how many bytes may be read behind it: 0 where
// it is full, which only a packet that can never fit brings about.
inline std::size_t carry_over(VD6281_device* dev) {
  dev->carry_len = 0;
  if (dev->rd_len >= 1) {
    dev->carry_len = dev->rd_len;
    std::memmove(dev->rd_buf, dev->buf_itr, static_cast<std::size_t>(dev->rd_len));
  }
  const std::size_t room = sizeof dev->rd_buf - static_cast<std::size_t>(dev->carry_len);
  return std::min(room, kTunnelReadSize);
}

// Takes in `count` bytes that were read to where carry_over left room.
inline void take_in(VD6281_device* dev, std::size_t count) {
  dev->buf_itr = dev->rd_buf;
  dev->rd_len = dev->carry_len + static_cast<std::int32_t>(count);
}

inline bool has_magic(const VD6281_device* dev) {
  return std::memcmp(dev->buf_itr, dev->magic, sizeof dev->magic) == 0;
}

// Reads the header at buf_itr into the record and `packet`, and steps behind it. has_magic holds.
inline void parse_header(VD6281_device* dev, Packet* packet) {
  const std::uint8_t* header = dev->buf_itr;
  dev->pkt_start = dev->buf_itr;
  dev->cur_id = little_endian<std::uint16_t>(header + packet_layout::kId);
  dev->cur_aux = little_endian<std::uint16_t>(header + packet_layout::kAux);
  dev->id_valid = dev->cur_id < kAcceptedTunnelIds ? 1 : 0;
  if (dev->cur_id < kTrackedTunnelIds) {
    dev->pkt_ts[dev->cur_id] = little_endian<std::uint64_t>(header + packet_layout::kTimeStamp);
  }
  packet->sequence = little_endian<std::uint32_t>(header + packet_layout::kSequence);
  packet->length = little_endian<std::uint16_t>(header + packet_layout::kLength);
  dev->buf_itr += kPacketHeaderSize;
  dev->rd_len -= static_cast<std::int32_t>(kPacketHeaderSize);
  packet->payload = dev->buf_itr;
}

// Whether the payload is all there; if not, steps back to the packet's start.
inline bool parse_payload(VD6281_device* dev, Packet* packet) {
  if (dev->rd_len >= packet->length) return true;
  dev->rd_len += static_cast<std::int32_t>(dev->hdr_size);
  dev->buf_itr = dev->pkt_start;
  return false;
}

// Counts the packets lost before this one, and steps behind it.
inline void finish_packet(VD6281_device* dev, const Packet& packet) {
  const std::uint16_t id = dev->cur_id;
  if (id < kTrackedTunnelIds) {
    if (dev->seq_seen[id] != 0) dev->seq_lost[id] += packet.sequence - dev->last_seq[id] - 1;
    dev->last_seq[id] = packet.sequence;
    dev->seq_seen[id] = 1;
  }
  dev->buf_itr += packet.length;
  dev->rd_len -= packet.length;
  // Endless streams wrap it.
  dev->parsed_bytes = static_cast<std::int32_t>(static_cast<std::uint32_t>(dev->parsed_bytes) +
                                                dev->hdr_size + packet.length);
}

// Whether there may be another packet in what was read.
inline bool may_hold_packet(const VD6281_device* dev) {
  return dev->rd_len > static_cast<std::int32_t>(kPacketHeaderSize);
}

}  // namespace spectral
