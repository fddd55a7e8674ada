#include "benchmarks/floor.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "driver/nodes.h"
#include "driver/register_map.h"
#include "flicker/tunnel_format.h"
#include "flicker/tunnel_stream_rule.h"

namespace bench {

namespace {

using spectralsim::Call;
using spectralsim::Event;
using spectralsim::Node;

constexpr std::size_t kSecondOfPayloads = 100;

[[noreturn]] void give_up(const char* what) {
  std::fprintf(stderr, "the bare loop fails: %s\n", what);
  std::abort();
}

const char* path_of(Node node) {
  switch (node) {
    case Node::kDevice:
      return spectral::kDevicePath;
    case Node::kEnable:
      return spectral::kEnablePath;
    case Node::kReadByte:
      return spectral::kReadBytePath;
    case Node::kWriteByte:
      return spectral::kWriteBytePath;
    case Node::kFactoryFile:
      return spectral::kFactoryFilePath;
    default:
      give_up("a node that it cannot open");
  }
}

int flags_of(Node node) {
  if (node == Node::kFactoryFile) return O_RDONLY;
  return node == Node::kDevice || node == Node::kEnable ? O_RDWR : O_WRONLY;
}

}  // namespace

Floor::Floor(const spectralsim::Trace& recorded, Waits waits, std::int64_t exposure_ms)
    : m_exposure_ms(exposure_ms) {
  for (const Event& event : recorded) {
    if (event.call != Call::kLog) take(event, waits);
  }
}

void Floor::take(const Event& event, Waits waits) {
  Step step;
  step.event = event;
  if (event.is_register_read()) {
    const bool looks = event.count == 1 && event.address == address_of(spectral::Register::kStatus);
    step.sleeps = looks && waits == Waits::kPolling && m_looked;
    step.waits = looks && waits == Waits::kOnce && !m_looked;
    m_looked = m_looked || looks;
    step.block.mode = event.count == 1 ? 1 : 0;
    step.block.count = static_cast<std::uint32_t>(event.count);
    for (int i = 0; i < event.count; ++i) {
      step.block.reg[i] = static_cast<std::uint8_t>(event.address + i);
    }
  } else if (event.call == Call::kIoctl) {
    std::sscanf(event.text.c_str(), " %x/%u", &step.words[1], &step.words[3]);
    step.words[2] = 1;
  } else if (event.call == Call::kRead) {
    // A read that returned nothing was at the end of the file, where a read of one byte returns
    // nothing as well.
    step.event.text.resize(event.result > 0 ? static_cast<std::size_t>(event.result) : 1);
  }
  m_steps.push_back(step);
}

void Floor::run() {
  bool tunnel_read = false;
  for (Step& step : m_steps) {
    const bool reads_tunnel = step.event.call == Call::kRead && step.event.node == Node::kTunnel;
    // One pass stands for all recorded reads of the tunnel, since stdio splits them as it likes.
    if (reads_tunnel && !tunnel_read) read_tunnel();
    tunnel_read = tunnel_read || reads_tunnel;
    if (!reads_tunnel) issue(&step);
  }
}

void Floor::issue(Step* step) {
  const Event& event = step->event;
  int& opened = m_fd_of_recorded.at(static_cast<std::size_t>(event.fd));
  const int fd = opened != 0 ? opened : event.fd;
  switch (event.call) {
    case Call::kOpen:
      opened = opens(event.node);
      break;
    case Call::kClose:
      closes(event.node, fd);
      opened = 0;
      break;
    case Call::kRead:
      if (read(fd, step->event.text.data(), step->event.text.size()) != event.result) {
        give_up("read");
      }
      break;
    case Call::kWrite:
      if (write(fd, event.text.data(), event.text.size()) < 0) give_up("write");
      break;
    case Call::kIoctl:
      request(step, fd);
      break;
    default:
      give_up("a call that it cannot issue");
  }
}

int Floor::opens(Node node) {
  if (node == Node::kTunnel) {
    static char buffer[4096];  // as the library gives the stream one
    m_tunnel = std::fopen(spectral::kTunnelPath, "re");
    if (m_tunnel == nullptr) give_up("fopen");
    std::setvbuf(m_tunnel, buffer, _IOFBF, sizeof buffer);
    return fileno(m_tunnel);
  }
  const int fd = open(path_of(node), flags_of(node));
  if (fd < 0) give_up("open");
  return fd;
}

void Floor::closes(Node node, int fd) {
  if ((node == Node::kTunnel ? std::fclose(m_tunnel) : close(fd)) != 0) give_up("close");
}

void Floor::request(Step* step, int fd) {
  if (step->event.node == Node::kTunnel) {
    const auto number = static_cast<std::uint32_t>(step->event.address);
    for (const std::uint32_t code :
         {spectral::SENSOR_TUNNEL_ROUTE_SETUP, spectral::SENSOR_TUNNEL_SETUP,
          spectral::SENSOR_TUNNEL_TERMINATE, spectral::SENSOR_TUNNEL_ROUTE_TERMINATE}) {
      if ((code & 0xFF) == number && ioctl(fd, code, step->words) != 0) give_up("ioctl");
    }
    return;
  }
  if (step->sleeps) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (step->waits) {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto until = std::chrono::steady_clock::now();
    const auto deadline = until + std::chrono::milliseconds(m_exposure_ms);
    while (until < deadline) {  // in slices, as the library's wait sleeps
      until = std::min(until + std::chrono::milliseconds(20), deadline);
      m_wake.wait_until(lock, until);
    }
  }
  if (ioctl(fd, spectral::kReadRegistersRequest, &step->block) != 0) give_up("ioctl");
}

// Reads one second of flicker payloads and the packets between them, as the library reads them.
void Floor::read_tunnel() {
  static unsigned char bytes[2 * spectral::kTunnelReadSize];
  std::size_t payloads = 0;
  std::size_t left = 0;
  while (payloads < kSecondOfPayloads) {
    const std::size_t more = std::fread(bytes + left, 1, spectral::kTunnelReadSize, m_tunnel);
    if (more == 0) give_up("fread");
    const std::size_t got = left + more;
    std::size_t at = 0;
    while (payloads < kSecondOfPayloads && got - at > spectral::kPacketHeaderSize) {
      const auto length =
          spectral::little_endian<std::uint16_t>(bytes + at + spectral::packet_layout::kLength);
      if (got - at < spectral::kPacketHeaderSize + length) break;
      if (length == spectral::kFlickerPayloadSize) ++payloads;
      at += spectral::kPacketHeaderSize + length;
    }
    std::memmove(bytes, bytes + at, got - at);
    left = got - at;
  }
}

}  // namespace bench
