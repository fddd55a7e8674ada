#include "tools/tunnel_dump.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "flicker/tunnel_stream_rule.h"

namespace spectralsensorctl {

namespace {

constexpr std::size_t kRecordSize = 8;  // its first word is the sample

TunnelPacket parse_packet(const std::uint8_t* header) {
  namespace layout = spectral::packet_layout;
  TunnelPacket packet = {};
  packet.id = spectral::little_endian<std::uint16_t>(header + layout::kId);
  packet.auxiliary = spectral::little_endian<std::uint16_t>(header + layout::kAux);
  packet.time_stamp = spectral::little_endian<std::uint64_t>(header + layout::kTimeStamp);
  packet.sequence = spectral::little_endian<std::uint32_t>(header + layout::kSequence);
  packet.length = spectral::little_endian<std::uint16_t>(header + layout::kLength);
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
  while (bytes.size() - at >= spectral::kPacketHeaderSize) {
    const auto* header = reinterpret_cast<const std::uint8_t*>(bytes.data() + at);
    stream.is_out_of_step =
        std::memcmp(header, spectral::kTunnelMagic, sizeof spectral::kTunnelMagic) != 0;
    if (stream.is_out_of_step) break;
    TunnelPacket packet = parse_packet(header);
    const std::size_t whole = spectral::kPacketHeaderSize + packet.length;
    if (bytes.size() - at < whole) break;
    if (packet.length == spectral::kFlickerPayloadSize) {
      const std::uint8_t* payload = header + spectral::kPacketHeaderSize;
      for (std::size_t i = 0; i < packet.length; i += kRecordSize) {
        packet.samples.push_back(spectral::little_endian<std::int16_t>(payload + i));
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
    for (std::size_t i = 0; i < spectral::kFlickerPayloadSize / kRecordSize; ++i) {
      std::printf(",sample_%zu_counts", i);
    }
    std::printf("\n");
  }
  std::size_t number = 0;
  for (const TunnelPacket& packet : stream.packets) print_line(format, ++number, packet);
}

}  // namespace spectralsensorctl
