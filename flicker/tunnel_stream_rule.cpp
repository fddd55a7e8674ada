#include "flicker/tunnel_stream_rule.h"

#include <algorithm>
#include <cstring>

#include "flicker/tunnel_format.h"

namespace spectral {

std::size_t carry_over(VD6281_device* dev) {
  dev->carry_len = 0;
  if (dev->rd_len >= 1) {
    dev->carry_len = dev->rd_len;
    std::memmove(dev->rd_buf, dev->buf_itr, static_cast<std::size_t>(dev->rd_len));
  }
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

bool parse_payload(VD6281_device* dev, const Packet& packet) {
  if (dev->rd_len >= packet.length) return true;
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
  // The sum is unsigned, as an endless stream makes it wrap.
  dev->parsed_bytes = static_cast<std::int32_t>(static_cast<std::uint32_t>(dev->parsed_bytes) +
                                                dev->hdr_size + packet.length);
}

bool may_hold_packet(const VD6281_device* dev) {
  return dev->rd_len > static_cast<std::int32_t>(kPacketHeaderSize);
}

}  // namespace spectral
