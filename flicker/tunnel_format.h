#pragma once

// The packets of the sensor hub's tunnel.
//
// A packet is a header of 28 bytes, little-endian, and its payload:
//    0  magic "EMOR"
//    4  u16  tunnel id
//    6  u16  auxiliary word
//   12  u64  time stamp
//   20  u32  sequence number, counted for each id
//   24  u16  payload length
// A flicker payload is 10 ms of samples: 20 records of 8 bytes, whose first word is the sample.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace spectral {

constexpr std::uint8_t kTunnelMagic[4] = {'E', 'M', 'O', 'R'};
constexpr std::uint32_t kPacketHeaderSize = 28;

namespace packet_layout {
constexpr int kId = 4;
constexpr int kAux = 6;
constexpr int kTimeStamp = 12;
constexpr int kSequence = 20;
constexpr int kLength = 24;
}  // namespace packet_layout

constexpr std::size_t kFlickerPayloadSize = 160;
constexpr int kMsPerPayload = 10;
constexpr std::size_t kRecordSize = 8;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are read as they stand");

template <typename Value>
Value little_endian(const std::uint8_t* at) {
  Value value = 0;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// The sample of a record, as the analysis takes it.
inline float sample_of(const std::uint8_t* record) {
  return static_cast<float>(little_endian<std::int16_t>(record));
}

}  // namespace spectral
