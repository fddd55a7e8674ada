#include "tools/tunnel_dump.h"

#include <cstdio>
#include <cstring>
#include <utility>

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

constexpr std::size_t kSamples = kFlickerPayloadSize / kRecordSize;  // of a flicker packet

// The fields of a packet besides its samples.
Json packet_fields(std::size_t number, const TunnelPacket& packet, const Moment& time) {
  Json fields = measurement_fields(static_cast<int>(number), time);
  fields["id"] = packet.id;
  fields["auxiliary"] = packet.auxiliary;
  fields["timestamp_ns"] = packet.time_stamp;
  fields["sequence"] = packet.sequence;
  fields["length_bytes"] = packet.length;
  return fields;
}

void print_head(Format format) {
  if (format == Format::kTable) {
    std::printf(
        "   #  time (UTC)                 id    aux     timestamp, ns    sequence  bytes  samples, "
        "counts\n");
  } else if (format == Format::kCsv) {
    std::vector<Json> names = names_of(packet_fields(0, {}, {}));
    for (std::size_t i = 0; i < kSamples; ++i) {
      names.emplace_back("sample_" + std::to_string(i) + "_counts");
    }
    print_csv(names);
  }
}

void print_packet(Format format, std::size_t number, const TunnelPacket& packet,
                  const Moment& time) {
  if (format == Format::kJson) {
    Json fields = packet_fields(number, packet, time);
    fields["samples_counts"] = packet.samples;
    print_json(fields);
  } else if (format == Format::kCsv) {
    std::vector<Json> values = values_of(packet_fields(number, packet, time));
    const std::size_t fields = values.size();
    values.insert(values.end(), packet.samples.begin(), packet.samples.end());
    values.resize(fields + kSamples);  // a packet without samples has empty fields
    print_csv(values);
  } else {
    std::printf("%4zu  %s  %3u  %5u  %16llu  %10u  %5u", number, utc_text(time).c_str(), packet.id,
                packet.auxiliary, static_cast<unsigned long long>(packet.time_stamp),
                packet.sequence, packet.length);
    for (const std::int16_t sample : packet.samples) std::printf(" %6d", sample);
    std::printf("\n");
  }
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

void print_stream(Format format, const TunnelStream& stream, const Moment& time) {
  print_head(format);
  std::size_t number = 0;
  for (const TunnelPacket& packet : stream.packets) print_packet(format, ++number, packet, time);
}

}  // namespace spectralsensorctl
