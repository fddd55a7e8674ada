// Fuzzes the sensor hub's stream: any bytes, with reads that fail, come short or end, through a
// flicker measurement of either service, a capture of any length, and the dump.
//
// An input is
//   - what is done with the stream: a measurement by the device (0) or the layered service (1), a
//     capture by the device (2) or the layered service (3), or the dump (4),
//   - the length of the capture or dump in ms (2 bytes),
//   - a block with the outcome of each read: 0 complete, n = 1..199 at most 64 * n bytes,
//     200..229 a failure, 230..249 the end of the stream, 250..255 complete, with the enable flags
//     cleared,
//   - the stream in pieces, each a byte for its kind and the parameters of that kind:
//       0 bytes          a block
//       1 packet         id and sequence number (2 bytes each); the payload has 160 bytes
//       2 packet         id and payload length (2 bytes each)
//       3 wrong length   id, length in the header and length of the payload (2 bytes each)
//       4 packets        sequence number of the first (2 bytes), and their count

#include <cerrno>
#include <string_view>
#include <vector>

#include "flicker/tunnel_format.h"
#include "fuzz/support.h"

using fuzz::Bench;
using fuzz::Input;
using fuzz::require;
using spectral::kFlickerPayloadSize;
using spectralsim::Call;
using spectralsim::Fault;
using spectralsim::Hub;
using spectralsim::Node;

namespace {

constexpr std::size_t kLongestStream = 200000;
constexpr int kMostAtOnce = 120;

std::string packet(std::uint16_t id, std::uint32_t sequence, std::size_t length, char fill) {
  return Hub::packet(id, sequence, sequence, std::string(length, fill));
}

std::string piece(Input* input) {
  const int kind = input->below(5);
  if (kind == 0) return input->block();
  const auto first = input->take<std::uint16_t>();
  const auto second = kind == 4 ? std::uint16_t{0} : input->take<std::uint16_t>();
  switch (kind) {
    case 1:
      return packet(first, second, kFlickerPayloadSize, static_cast<char>(second | 1));
    case 2:
      return packet(first, 0, second, 'p');
    case 3: {
      std::string bytes = packet(first, 0, second, 'l');
      bytes.resize(spectral::kPacketHeaderSize + input->take<std::uint16_t>(), 'L');
      return bytes;
    }
    default: {
      std::string bytes;
      const int count = input->below(kMostAtOnce);
      for (int i = 0; i < count; ++i) {
        bytes += packet(0, first + static_cast<std::uint32_t>(i), kFlickerPayloadSize,
                        static_cast<char>(1 + i));
      }
      return bytes;
    }
  }
}

std::optional<Fault> outcome_of_read(Bench* bench, int outcome) {
  if (outcome == 0) return std::nullopt;
  if (outcome < 200) return Fault::read(Node::kTunnel).returning(64 * outcome);
  if (outcome < 230) return Fault::read(Node::kTunnel).with_errno(EIO);
  if (outcome < 250) return Fault::read(Node::kTunnel).returning(0);
  bench->device->SetEnableFlag(SPECTRAL_MODE_FLICKER, false);
  bench->layered->SetEnableFlag(SPECTRAL_MODE_FLICKER, false);
  return std::nullopt;
}

template <typename Service>
void measure(Service* service) {
  SpectralSensorOutput output = {};
  for (int i = 0; i < 2; ++i) {
    require(service->Process(SPECTRAL_MODE_FLICKER, &output) == 0,
            "a flicker measurement returns 0");
    fuzz::check(output.flicker);
    fuzz::check_frequencies(output.flicker);
  }
}

// Requires that every gathered payload is in the stream, and that zeros follow the last one.
void check_payloads(std::string_view stream, const std::vector<std::uint8_t>& out) {
  bool ended = false;
  for (std::size_t at = 0; at < out.size(); at += kFlickerPayloadSize) {
    const std::string_view payload(reinterpret_cast<const char*>(out.data()) + at,
                                   kFlickerPayloadSize);
    const bool empty = payload.find_first_not_of('\0') == std::string_view::npos;
    if (empty) {
      ended = true;
    } else {
      require(!ended || stream.find(std::string(kFlickerPayloadSize, '\0')) != stream.npos,
              "no payload follows an empty place");
      require(stream.find(payload) != stream.npos, "every payload is in the stream");
    }
  }
}

template <typename Service>
void capture(Service* service, std::uint16_t len_ms, const std::string& stream) {
  // The buffer holds as much as is copied and no more; a capture that is too long copies nothing.
  const std::size_t payloads = len_ms / 10;
  std::vector<std::uint8_t> out;
  out.reserve(1);  // a valid pointer even for an empty buffer
  out.resize(payloads <= 100 ? payloads * kFlickerPayloadSize : 0);
  service->ReadFLKData(len_ms, out.data());
  check_payloads(stream, out);
}

void dump(Bench* bench, std::uint16_t len_ms, const std::string& stream) {
  SpectralSensorDevice* device = bench->device;
  device->VD6281_QuilInit();
  device->VD6281_QuilTunnelSetup();
  device->VD6281_QuilResetRdBuf();
  device->VD6281_QuilDumpFlickerDataToFile(len_ms);
  device->VD6281_QuilTunnelTerminate();
  const std::string dumped = bench->phone.dumped(Node::kUnparsedFile);
  require(stream.compare(0, dumped.size(), dumped) == 0,
          "the raw dump is the beginning of the stream");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Input input(bytes, size);
  Bench bench;
  bench.phone.scene("dark");
  const int way = input.below(5);
  const auto len_ms = input.take<std::uint16_t>();
  const std::string outcomes = input.block();
  std::string stream;
  while (!input.is_at_end() && stream.size() < kLongestStream) stream += piece(&input);
  bench.phone.hub().send(stream);
  const bool layered = way % 2 != 0;
  if (layered) {
    bench.layered->Init(SPECTRAL_MODE_FLICKER);
  } else {
    bench.device->Init(SPECTRAL_MODE_FLICKER);
  }
  std::size_t reads = 0;
  bench.phone.fail_as([&](Call call, Node node, int) -> std::optional<Fault> {
    if (call != Call::kRead || node != Node::kTunnel || reads >= outcomes.size()) return {};
    return outcome_of_read(&bench, static_cast<std::uint8_t>(outcomes[reads++]));
  });
  if (way == 0) measure(bench.device);
  if (way == 1) measure(bench.layered);
  if (way == 2) capture(bench.device, len_ms, stream);
  if (way == 3) capture(bench.layered, len_ms, stream);
  if (way == 4) dump(&bench, len_ms, stream);
  bench.phone.heal();  // the outcomes end before the phone
  Bench::check_record();
  // An overrun of the record's buffers or tables would change the fields behind them. The header
  // size is still 0 where no capture was set up.
  const VD6281_device& record = Bench::record();
  require(record.hdr_size == 0 ||
              (record.hdr_size == spectral::kPacketHeaderSize &&
               std::memcmp(record.magic, spectral::kTunnelMagic, sizeof record.magic) == 0),
          "the fields behind the buffers and tables are intact");
  return 0;
}
