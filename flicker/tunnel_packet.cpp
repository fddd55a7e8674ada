#include "flicker/tunnel_packet.h"

#include <algorithm>

namespace spectral {

namespace {

// Whether a packet at the start of rd_buf has its whole header there and is longer than rd_buf.
// Bytes that are no packet are left to the parser.
bool can_never_fit(const VD6281_device* dev) {
  if (dev->carry_len < static_cast<std::int32_t>(kPacketHeaderSize)) return false;
  if (std::memcmp(dev->rd_buf, dev->magic, sizeof dev->magic) != 0) return false;
  const auto length = little_endian<std::uint16_t>(dev->rd_buf + packet_layout::kLength);
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

}  // namespace spectral
