// The sensor hub's stream: any bytes, cut by failing, short and ending reads, through a flicker
// measurement of either service, a capture of any length and the dump.
//
// An input is a way (0..4), a length in ms (2 bytes), a block of the reads' outcomes (0
// whole, 1..199 at most so many 64 bytes, 200..229 a failure, 230..249 the end, the rest clears the
// enable flag), and the stream in pieces, each a kind and what it takes:
//   0 literal    a block
//   1 packet     id and sequence number (2 bytes each), and 160 bytes of payload
//   2 packet     id, length (2 bytes each)
//   3 a lie      id, the length it says, the length it has (2 bytes each)
//   4 payloads   a count, and the sequence number of the first (2 bytes)

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
    require(service->Process(SPECTRAL_MODE_FLICKER, &output) == 0, "a flicker measurement gives 0");
    fuzz::check(output.flicker);
    fuzz::check_frequencies(output.flicker);
  }
}

// Every payload that came out is one that went in, and behind the last there are zeros.
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
              "payloads lie one behind the other");
      require(stream.find(payload) != stream.npos, "a payload is the stream's");
    }
  }
}

template <typename Service>
void capture(Service* service, std::uint16_t len_ms, const std::string& stream) {
  // As much as is copied, and no more; what cannot be captured is not copied.
  const std::size_t payloads = len_ms / 10;
  std::vector<std::uint8_t> out;
  out.reserve(1);  // somewhere, even for nothing
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
  require(stream.compare(0, dumped.size(), dumped) == 0, "the raw dump is the stream's beginning");
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
  Bench::check_record();
  // The record's buffers lie side by side; a capture of nothing sets none of it up.
  const VD6281_device& record = Bench::record();
  require(record.hdr_size == 0 ||
              (record.hdr_size == spectral::kPacketHeaderSize &&
               std::memcmp(record.magic, spectral::kTunnelMagic, sizeof record.magic) == 0),
          "what lies behind the buffers and the tables is whole");
  return 0;
}
