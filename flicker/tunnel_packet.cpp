#include "flicker/tunnel_packet.h"

#include <algorithm>
#include <cstring>

namespace spectral {

namespace {

constexpr int kIdOffset = 4;
constexpr int kAuxOffset = 6;
constexpr int kTimeStampOffset = 12;
constexpr int kSequenceOffset = 20;
constexpr int kLengthOffset = 24;

template <typename Value>
Value little_endian(const std::uint8_t* at) {
  Value value = 0;
  for (std::size_t i = 0; i < sizeof(Value); ++i) {
    value = static_cast<Value>(value | static_cast<Value>(Value{at[i]} << (8 * i)));
  }
  return value;
}

// Whether the packet at the start of rd_buf has its whole header there and is longer than rd_buf.
bool can_never_fit(const VD6281_device* dev) {
  if (dev->carry_len < static_cast<std::int32_t>(kPacketHeaderSize)) return false;
  const auto length = little_endian<std::uint16_t>(dev->rd_buf + kLengthOffset);
  return kPacketHeaderSize + length > sizeof dev->rd_buf;
}

}  // namespace

std::size_t carry_over(VD6281_device* dev) {
  dev->carry_len = 0;
  if (dev->rd_len >= 1) {
    dev->carry_len = dev->rd_len;
    std::memmove(dev->rd_buf, dev->buf_itr, static_cast<std::size_t>(dev->rd_len));
  }
  if (can_never_fit(dev)) return 0;
  const std::size_t room = sizeof dev->rd_buf - static_cast<std::size_t>(dev->carry_len);
  return std::min(room, kTunnelReadSize);
}

void take_in(VD6281_device* dev, std::size_t count) {
  dev->buf_itr = dev->rd_buf;
  dev->rd_len = dev->carry_len + static_cast<std::int32_t>(count);
}

bool has_magic(const VD6281_device* dev) {
  return std::memcmp(dev->buf_itr, dev->magic, sizeof dev->magic) == 0;
}

void parse_header(VD6281_device* dev, Packet* packet) {
  const std::uint8_t* header = dev->buf_itr;
  dev->pkt_start = dev->buf_itr;
  dev->cur_id = little_endian<std::uint16_t>(header + kIdOffset);
  dev->cur_aux = little_endian<std::uint16_t>(header + kAuxOffset);
  dev->id_valid = dev->cur_id < kAcceptedTunnelIds ? 1 : 0;
  if (dev->cur_id < kTrackedTunnelIds) {
    dev->pkt_ts[dev->cur_id] = little_endian<std::uint64_t>(header + kTimeStampOffset);
  }
  packet->sequence = little_endian<std::uint32_t>(header + kSequenceOffset);
  packet->length = little_endian<std::uint16_t>(header + kLengthOffset);
  dev->buf_itr += kPacketHeaderSize;
  dev->rd_len -= static_cast<std::int32_t>(kPacketHeaderSize);
  packet->payload = dev->buf_itr;
}

bool parse_payload(VD6281_device* dev, Packet* packet) {
  if (dev->rd_len >= packet->length) return true;
  dev->rd_len += static_cast<std::int32_t>(dev->hdr_size);
  dev->buf_itr = dev->pkt_start;
  return false;
}

void finish_packet(VD6281_device* dev, const Packet& packet) {
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

}  // namespace spectral
