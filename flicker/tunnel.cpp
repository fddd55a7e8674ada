// The sensor hub's tunnel: setting its two streams up, and tearing them down. Reading the streams
// is in tunnel_stream.cpp.

#include <sys/ioctl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "driver/nodes.h"
#include "driver/register_access.h"
#include "flicker/tunnel_format.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

using spectral::kDriverTag;

namespace {

struct sensor_tunnel_req {
  std::uint32_t reserved0;
  std::uint32_t sensor_code;
  std::uint32_t param;
  std::uint32_t tunnel_id;
};
static_assert(sizeof(sensor_tunnel_req) == 16, "the size that the hub's requests carry");

// The buffer of the tunnel's stream, of which there is one at a time. Without it the first read
// would allocate one, and would first ask the node, which is a character device, for terminal
// settings.
char g_tunnel_buffer[4096];

constexpr sensor_tunnel_req kFlickerStream = {0, 36897, 1, 0};
constexpr sensor_tunnel_req kVsyncStream = {0, 17376, 1, 15};

int route(std::FILE* tunnel, std::uint32_t request) { return ioctl(fileno(tunnel), request, 0UL); }

int stream(std::FILE* tunnel, std::uint32_t request, sensor_tunnel_req which) {
  return ioctl(fileno(tunnel), request, &which);
}

// Closes a dump file or the tunnel, and forgets the pointer to it.
void close_file(std::FILE** file) {
  std::fclose(*file);
  *file = nullptr;
}

void close_dump_file(std::FILE** file) {
  if (*file == nullptr) return;
  std::fflush(*file);
  close_file(file);
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
    // The message names the VSYNC sensor, as the route's does, although this is the flicker sensor:
    // both texts are fixed.
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
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  constexpr std::size_t kBlock = offsetof(VD6281_device, tun_dev);
  std::memset(reinterpret_cast<std::uint8_t*>(dev) + kBlock, 0, sizeof *dev - kBlock);
  std::copy(std::begin(spectral::kTunnelMagic), std::end(spectral::kTunnelMagic), dev->magic);
  dev->id_valid = 1;
  dev->hdr_size = spectral::kPacketHeaderSize;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_QuilTunnelSetup() {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  dev->tun_dev = std::fopen(spectral::kTunnelPath, "re");
  if (dev->tun_dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "Failed to open the tunnel device node");
  } else {
    std::setvbuf(dev->tun_dev, g_tunnel_buffer, _IOFBF, sizeof g_tunnel_buffer);
    if (route_streams(dev)) return SPECTRAL_OK;
  }
  return VD6281_QuilTunnelTerminate();
}

int SpectralSensorDevice::VD6281_QuilResetRdBuf() {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
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
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_QuilTunnelTerminate() {
  constexpr char kName[] = "VD6281_QuilTunnelTerminate";
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  close_dump_file(&dev->unparsed_fp);
  for (std::FILE*& file : dev->dump_fp) close_dump_file(&file);
  if (dev->tun_dev == nullptr) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR tun_dev is nullptr", kName);
    return SPECTRAL_OK;
  }
  // The stream that was set up last is torn down first. Each failure's message names the other
  // sensor: both texts are fixed.
  if (int status = stream(dev->tun_dev, spectral::SENSOR_TUNNEL_TERMINATE, kVsyncStream)) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Sensor Tunnel terminate failed %d", kName, status);
  }
  if (int status = stream(dev->tun_dev, spectral::SENSOR_TUNNEL_TERMINATE, kFlickerStream)) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Vsync sensor terminate failed %d", kName, status);
  }
  const int status = route(dev->tun_dev, spectral::SENSOR_TUNNEL_ROUTE_TERMINATE);
  if (status != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kDriverTag, "%s: ERROR Route terminate failed %d", kName, status);
  }
  close_file(&dev->tun_dev);
  return status;
}
