// The sensor hub's tunnel: setting the streams up and tearing them down, gathering the flicker
// payloads of one capture, and dumping the stream to files. Its packets are in
// tunnel_stream_rule.h.

#include <sys/ioctl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "driver/flag.h"
#include "driver/nodes.h"
#include "driver/register_access.h"
#include "driver/status.h"
#include "flicker/tunnel_stream_rule.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

using spectral::kBadArgument;
using spectral::kDriverTag;
using spectral::kNoDevice;
using spectral::kOk;
using spectral::Packet;

namespace {

struct sensor_tunnel_req {
  std::uint32_t reserved0;
  std::uint32_t sensor_code;
  std::uint32_t param;
  std::uint32_t tunnel_id;
};
static_assert(sizeof(sensor_tunnel_req) == 16, "the hub's size of it");

constexpr sensor_tunnel_req kFlickerStream = {0, 36897, 1, 0};
constexpr sensor_tunnel_req kVsyncStream = {0, 17376, 1, 15};

constexpr unsigned int kMaxCaptureMs = 1000;
constexpr unsigned int kLengthMask = 0xFFFF;
constexpr unsigned int kMsPerPayload = 10;

constexpr char kUnparsedPath[] = "/data/unparsed_flicker_data";
constexpr char kDumpName[] = "/data/flicker_data";

int route(std::FILE* tunnel, std::uint32_t request) { return ioctl(fileno(tunnel), request, 0UL); }

int stream(std::FILE* tunnel, std::uint32_t request, sensor_tunnel_req which) {
  return ioctl(fileno(tunnel), request, &which);
}

// Closes a dump file, or the tunnel; a pointer to a closed file is never kept.
void close_file(std::FILE** file) {
  std::fclose(*file);
  *file = nullptr;
}

void close_dump_file(std::FILE** file) {
  if (*file == nullptr) return;
  std::fflush(*file);
  close_file(file);
}

bool is_too_long(const char* operation, unsigned int len_ms) {
  if (len_ms <= kMaxCaptureMs) return false;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: maximum length is 1000 ms, requested length: %d ms",
                     operation, static_cast<int>(len_ms));
  return true;
}

int payloads_in(unsigned int len_ms) {
  return static_cast<int>((len_ms & kLengthMask) / kMsPerPayload);
}

void log_out_of_step(const char* operation, const std::uint8_t* at) {
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Could not find the magic number, reading again", operation);
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: buf_itr[0] %x buf_itr[1] %x buf_itr[2] %x buf_itr[3] %x ",
                     operation, at[0], at[1], at[2], at[3]);
}

// What the two readers of the stream do with it.
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
  // Takes flicker payloads only; the VSYNC stream's are of another length.
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
  // Every id has a file of its own, under one and the same name.
  bool packet_begins() {
    if (m_dev->id_valid == 0 || m_dev->cur_id >= spectral::kTrackedTunnelIds) return true;
    std::FILE*& file = m_dev->dump_fp[m_dev->cur_id];
    if (file != nullptr) return true;
    char name[256] = {};
    std::snprintf(name, sizeof name, "%s.wav", kDumpName);
    file = std::fopen(name, "wb");
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
  kEnded,      // the target is reached, or there is no more to come
  kOutOfStep,  // logged
  kNoFile,     // logged
};

// Parses the packets of what was read, until there are `target` payloads.
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
    if (!spectral::parse_payload(dev, &packet)) break;
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

// Routes both streams into the open tunnel. A failure is logged.
bool route_streams(const VD6281_device* dev) {
  constexpr char kName[] = "VD6281_QuilTunnelSetup";
  if (int status = route(dev->tun_dev, spectral::SENSOR_TUNNEL_ROUTE_SETUP)) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Tunnel setup failed for VSYNC sensor %d", kName,
                       status);
    return false;
  }
  if (dev->tun_dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag,
                       "tun_dev is NULL after flicker tunnel setup (possibly service or FW crash)");
    return false;
  }
  if (int status = stream(dev->tun_dev, spectral::SENSOR_TUNNEL_SETUP, kFlickerStream)) {
    // Logged as the VSYNC sensor's, as the route's failure is: keep it.
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Tunnel setup failed for VSYNC sensor %d", kName,
                       status);
    return false;
  }
  if (dev->tun_dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag,
                       "tun_dev is NULL after vsync tunnel setup (possibly service or FW crash)");
    return false;
  }
  if (int status = stream(dev->tun_dev, spectral::SENSOR_TUNNEL_SETUP, kVsyncStream)) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Tunnel setup failed %d", kName, status);
    return false;
  }
  return true;
}

}  // namespace

int SpectralSensorDevice::VD6281_QuilInit() {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  constexpr std::size_t kBlock = offsetof(VD6281_device, tun_dev);
  std::memset(reinterpret_cast<std::uint8_t*>(dev) + kBlock, 0, sizeof *dev - kBlock);
  std::copy(std::begin(spectral::kTunnelMagic), std::end(spectral::kTunnelMagic), dev->magic);
  dev->id_valid = 1;
  dev->hdr_size = spectral::kPacketHeaderSize;
  return kOk;
}

int SpectralSensorDevice::VD6281_QuilTunnelSetup() {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  dev->tun_dev = std::fopen(spectral::kTunnelPath, "r");
  if (dev->tun_dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "Failed to open the tunnel device node");
  } else if (route_streams(dev)) {
    return kOk;
  }
  return VD6281_QuilTunnelTerminate();
}

int SpectralSensorDevice::VD6281_QuilResetRdBuf() {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  dev->rd_len = 0;
  dev->carry_len = 0;
  dev->parsed_bytes = 0;
  std::memset(dev->rd_buf, 0, sizeof dev->rd_buf);
  std::memset(dev->flicker_buf, 0, sizeof dev->flicker_buf);
  std::memset(dev->last_seq, 0, sizeof dev->last_seq);
  std::memset(dev->seq_seen, 0, sizeof dev->seq_seen);
  std::memset(dev->seq_lost, 0, sizeof dev->seq_lost);
  std::memset(dev->pkt_ts, 0, sizeof dev->pkt_ts);
  dev->pkt_start = nullptr;
  dev->buf_itr = nullptr;
  return kOk;
}

unsigned char* SpectralSensorDevice::VD6281_GetFlickerDataBuffer(unsigned int len_ms) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr || is_too_long(Gatherer::kName, len_ms)) return nullptr;
  Gatherer gatherer(dev, m_flkEnableFlag);
  const ReadEnd end = read_stream(dev, &gatherer, payloads_in(len_ms));
  return end == ReadEnd::kOutOfStep ? nullptr : dev->flicker_buf;
}

int SpectralSensorDevice::VD6281_QuilTunnelTerminate() {
  constexpr char kName[] = "VD6281_QuilTunnelTerminate";
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  close_dump_file(&dev->unparsed_fp);
  for (std::FILE*& file : dev->dump_fp) close_dump_file(&file);
  if (dev->tun_dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR tun_dev is nullptr", kName);
    return kOk;
  }
  // The stream set up last goes first; each is logged under the other's name.
  if (int status = stream(dev->tun_dev, spectral::SENSOR_TUNNEL_TERMINATE, kVsyncStream)) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Sensor Tunnel terminate failed %d", kName, status);
  }
  if (int status = stream(dev->tun_dev, spectral::SENSOR_TUNNEL_TERMINATE, kFlickerStream)) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Vsync sensor terminate failed %d", kName, status);
  }
  const int status = route(dev->tun_dev, spectral::SENSOR_TUNNEL_ROUTE_TERMINATE);
  if (status != kOk) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Route terminate failed %d", kName, status);
  }
  close_file(&dev->tun_dev);
  return status;
}

int SpectralSensorDevice::VD6281_QuilDumpFlickerDataToFile(unsigned int len_ms) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (is_too_long(Dumper::kName, len_ms)) return kBadArgument;
  dev->unparsed_fp = std::fopen(kUnparsedPath, "wb");
  if (dev->unparsed_fp == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: Failed to open the file %s", Dumper::kName, kUnparsedPath);
    return VD6281_QuilTunnelTerminate();
  }
  Dumper dumper(dev);
  const ReadEnd end = read_stream(dev, &dumper, payloads_in(len_ms));
  return end == ReadEnd::kEnded ? kOk : VD6281_QuilTunnelTerminate();
}
