#include "tools/tunnel_dump.h"

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "tools/phone_facts.h"

namespace spectralsensorctl {

namespace {

template <typename Value>
Value little_endian(const std::uint8_t* at) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are read as they stand");
  Value value = 0;
  std::memcpy(&value, at, sizeof value);
  return value;
}

TunnelPacket parse_packet(const std::uint8_t* header) {
  TunnelPacket packet = {};
  packet.id = little_endian<std::uint16_t>(header + kIdAt);
  packet.auxiliary = little_endian<std::uint16_t>(header + kAuxiliaryAt);
  packet.time_stamp = little_endian<std::uint64_t>(header + kTimeStampAt);
  packet.sequence = little_endian<std::uint32_t>(header + kSequenceAt);
  packet.length = little_endian<std::uint16_t>(header + kLengthAt);
  return packet;
}

void print_line(Format format, std::size_t number, const TunnelPacket& packet) {
  if (format == Format::kJson) {
    const nlohmann::ordered_json line = {{"number", number},
                                         {"id", packet.id},
                                         {"auxiliary", packet.auxiliary},
                                         {"timestamp_ns", packet.time_stamp},
                                         {"sequence", packet.sequence},
                                         {"length_bytes", packet.length},
                                         {"samples_counts", packet.samples}};
    std::printf("%s\n", line.dump().c_str());
    return;
  }
  const char* row =
      format == Format::kCsv ? "%zu,%u,%u,%llu,%u,%u" : "%4zu  %3u  %5u  %16llu  %10u  %5u";
  std::printf(row, number, packet.id, packet.auxiliary,
              static_cast<unsigned long long>(packet.time_stamp), packet.sequence, packet.length);
  for (const std::int16_t sample : packet.samples) {
    std::printf(format == Format::kCsv ? ",%d" : " %6d", sample);
  }
  std::printf("\n");
}

}  // namespace

TunnelStream parse_stream(const std::string& bytes) {
  TunnelStream stream;
  std::size_t at = 0;
  while (bytes.size() - at >= kPacketHeaderSize) {
    const auto* header = reinterpret_cast<const std::uint8_t*>(bytes.data() + at);
    stream.is_out_of_step = std::memcmp(header, kTunnelMagic, sizeof kTunnelMagic) != 0;
    if (stream.is_out_of_step) break;
    TunnelPacket packet = parse_packet(header);
    const std::size_t whole = kPacketHeaderSize + packet.length;
    if (bytes.size() - at < whole) break;
    if (packet.length == kFlickerPayloadSize) {
      const std::uint8_t* payload = header + kPacketHeaderSize;
      for (std::size_t i = 0; i < packet.length; i += kRecordSize) {
        packet.samples.push_back(little_endian<std::int16_t>(payload + i));
      }
    }
    stream.packets.push_back(std::move(packet));
    at += whole;
  }
  stream.left_over = bytes.size() - at;
  return stream;
}

void print_stream(Format format, const TunnelStream& stream) {
  if (format == Format::kTable) {
    std::printf("   #   id    aux     timestamp, ns    sequence  bytes  samples, counts\n");
  } else if (format == Format::kCsv) {
    std::printf("number,id,auxiliary,timestamp_ns,sequence,length_bytes");
    for (std::size_t i = 0; i < kFlickerPayloadSize / kRecordSize; ++i) {
      std::printf(",sample_%zu_counts", i);
    }
    std::printf("\n");
  }
  std::size_t number = 0;
  for (const TunnelPacket& packet : stream.packets) print_line(format, ++number, packet);
}

}  // namespace spectralsensorctl
