// Reading the streams of the sensor hub's tunnel: gathering the flicker payloads of one capture,
// and dumping everything to files.

#include <cstdio>
#include <cstring>

#include "driver/register_access.h"
#include "driver/shared_state.h"
#include "flicker/tunnel_format.h"
#include "flicker/tunnel_stream_rule.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

using spectral::kDriverTag;
using spectral::Packet;

namespace {

constexpr unsigned int kMaxCaptureMs = 1000;
constexpr unsigned int kLengthMask = 0xFFFF;

constexpr char kUnparsedPath[] = "/data/unparsed_flicker_data";
constexpr char kDumpName[] = "/data/flicker_data";

bool is_too_long(const char* operation, unsigned int len_ms) {
  if (len_ms <= kMaxCaptureMs) return false;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: maximum length is 1000 ms, requested length: %d ms",
                     operation, static_cast<int>(len_ms));
  return true;
}

int payloads_in(unsigned int len_ms) {
  return static_cast<int>(len_ms & kLengthMask) / spectral::kMsPerPayload;
}

void log_out_of_step(const char* operation, const std::uint8_t* at) {
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Could not find the magic number, reading again", operation);
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: buf_itr[0] %x buf_itr[1] %x buf_itr[2] %x buf_itr[3] %x ",
                     operation, at[0], at[1], at[2], at[3]);
}

// A reader says what happens to the stream while read_stream reads it. This one gathers the flicker
// payloads of a capture, until the flicker enable flag is cleared.
class Gatherer {
 public:
  static constexpr char kName[] = "VD6281_GetFlickerDataBuffer";

  Gatherer(VD6281_device* dev, const std::uint8_t& enabled) : m_dev(dev), m_enabled(enabled) {}

  bool goes_on() const { return spectral::is_set(m_enabled); }
  bool may_read() const {
    if (m_dev->tun_dev != nullptr) return true;
    SPECTRAL_LOG_ERROR(kDriverTag, "%s:tun_dev is null (possibly device FW crash)", kName);
    return false;
  }
  void read_failed() const {
    SPECTRAL_LOG_WARNING(kDriverTag, "%s:Failed to read data from the tunnel", kName);
  }
  void chunk_read(const std::uint8_t*, std::size_t) {}
  bool packet_begins() { return true; }
  // Takes the flicker payloads alone, by their length: those of the VSYNC stream have another.
  int take(const Packet& packet, int count) {
    if (m_dev->id_valid == 0 || packet.length != spectral::kFlickerPayloadSize) return 0;
    const auto place = static_cast<std::size_t>(count) * spectral::kFlickerPayloadSize;
    std::memcpy(m_dev->flicker_buf + place, packet.payload, spectral::kFlickerPayloadSize);
    return 1;
  }

 private:
  VD6281_device* m_dev;
  const std::uint8_t& m_enabled;
};

// This one writes the stream as it came to one file and all payloads to another.
class Dumper {
 public:
  static constexpr char kName[] = "VD6281_QuilDumpFlickerDataToFile";

  explicit Dumper(VD6281_device* dev) : m_dev(dev) {}

  bool goes_on() const { return true; }
  bool may_read() const { return true; }
  void read_failed() const {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s:Failed to read data from the tunnel", kName);
  }
  void chunk_read(const std::uint8_t* bytes, std::size_t count) {
    std::fwrite(bytes, 1, count, m_dev->unparsed_fp);
    std::fflush(m_dev->unparsed_fp);
  }
  // Opens the dump file of the packet's id. Every id has a file of its own, and all of them have
  // the same name.
  bool packet_begins() {
    if (m_dev->id_valid == 0 || m_dev->cur_id >= spectral::kTrackedTunnelIds) return true;
    std::FILE*& file = m_dev->dump_fp[m_dev->cur_id];
    if (file != nullptr) return true;
    char name[256] = {};
    std::snprintf(name, sizeof name, "%s.wav", kDumpName);
    file = std::fopen(name, "wbe");
    if (file != nullptr) return true;
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR: Failed to open the file %s", kName, name);
    return false;
  }
  int take(const Packet& packet, int) {
    if (m_dev->id_valid == 0) return 0;
    if (m_dev->cur_id < spectral::kTrackedTunnelIds) {
      std::fwrite(packet.payload, 1, packet.length, m_dev->dump_fp[m_dev->cur_id]);
    }
    return 1;
  }

 private:
  VD6281_device* m_dev;
};

enum class ReadEnd {
  kEnded,      // the target is reached, the stream has ended or the reader gave up
  kOutOfStep,  // no packet begins where one should; this is logged
  kNoFile,     // a dump file did not open; this is logged
};

// Parses the packets in what was read, until `count` has reached `target` payloads.
template <typename Reader>
ReadEnd parse_chunk(VD6281_device* dev, Reader* reader, int target, int* count) {
  do {
    if (!spectral::has_magic(dev)) {
      log_out_of_step(Reader::kName, dev->buf_itr);
      return ReadEnd::kOutOfStep;
    }
    Packet packet = {};
    spectral::parse_header(dev, &packet);
    if (dev->id_valid == 0) {
      SPECTRAL_LOG_ERROR(kDriverTag, "%s: Invalid tunnel id %d", Reader::kName, dev->cur_id);
    }
    if (!reader->packet_begins()) return ReadEnd::kNoFile;
    if (!spectral::parse_payload(dev, packet)) break;
    *count += reader->take(packet, *count);
    spectral::finish_packet(dev, packet);
  } while (spectral::may_hold_packet(dev) && *count < target && reader->goes_on());
  return ReadEnd::kEnded;
}

// Reads and parses until there are `target` payloads, the stream ends or the reader gives up.
template <typename Reader>
ReadEnd read_stream(VD6281_device* dev, Reader* reader, int target) {
  int count = 0;
  while (count < target && reader->goes_on()) {
    const std::size_t room = spectral::carry_over(dev);
    if (!reader->may_read()) break;
    std::uint8_t* const place = dev->rd_buf + dev->carry_len;
    const std::size_t got =
        room > 0 && dev->tun_dev != nullptr ? std::fread(place, 1, room, dev->tun_dev) : 0;
    if (got < 1) {
      reader->read_failed();
      break;
    }
    spectral::take_in(dev, got);
    reader->chunk_read(place, got);
    const ReadEnd end = parse_chunk(dev, reader, target, &count);
    if (end != ReadEnd::kEnded) return end;
  }
  return ReadEnd::kEnded;
}

}  // namespace

unsigned char* SpectralSensorDevice::VD6281_GetFlickerDataBuffer(unsigned int len_ms) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr || is_too_long(Gatherer::kName, len_ms)) return nullptr;
  Gatherer gatherer(dev, m_flkEnableFlag);
  const ReadEnd end = read_stream(dev, &gatherer, payloads_in(len_ms));
  return end == ReadEnd::kOutOfStep ? nullptr : dev->flicker_buf;
}

int SpectralSensorDevice::VD6281_QuilDumpFlickerDataToFile(unsigned int len_ms) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (is_too_long(Dumper::kName, len_ms)) return SPECTRAL_BAD_ARGUMENT;
  dev->unparsed_fp = std::fopen(kUnparsedPath, "wbe");
  if (dev->unparsed_fp == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to open the file %s", Dumper::kName, kUnparsedPath);
    return VD6281_QuilTunnelTerminate();
  }
  Dumper dumper(dev);
  const ReadEnd end = read_stream(dev, &dumper, payloads_in(len_ms));
  return end == ReadEnd::kEnded ? SPECTRAL_OK : VD6281_QuilTunnelTerminate();
}
