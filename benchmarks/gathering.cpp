// Measures the gathering of one second of the sensor hub's packets, next to reading the same bytes
// with fread and copying the payloads out.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "flicker/tunnel_format.h"
#include "flicker/tunnel_stream_rule.h"
#include "simulator/hub.h"
#include "spectral_sensor_device.h"

namespace {

constexpr unsigned int kCaptureMs = 1000;
constexpr std::size_t kHeader = spectral::kPacketHeaderSize;
constexpr std::size_t kPayload = spectral::kFlickerPayloadSize;
constexpr std::size_t kVsyncPayload = 16;
constexpr std::size_t kPayloads = 100;

[[noreturn]] void give_up(const char* what) {
  std::fprintf(stderr, "gathering a second of packets: %s\n", what);
  std::abort();
}

bool is_before_vsync(std::size_t packet) { return packet % 3 == 2; }

std::string payload(std::size_t packet) {
  return std::string(kPayload, static_cast<char>('!' + packet % 90));
}

// A second of flicker packets with the VSYNC packets between them.
std::string second_of_packets() {
  std::string bytes;
  for (std::uint32_t i = 0; i < kPayloads; ++i) {
    bytes += spectralsim::Hub::packet(0, i, i, payload(i));
    if (is_before_vsync(i)) {
      bytes += spectralsim::Hub::packet(15, i / 3, i, std::string(kVsyncPayload, 'v'));
    }
  }
  return bytes;
}

void verify(const void* copied) {
  std::string all;
  for (std::size_t i = 0; i < kPayloads; ++i) all += payload(i);
  if (std::memcmp(copied, all.data(), all.size()) != 0) give_up("other payloads");
}

// The packets in a temporary file, which stdio reads by system calls, as it reads the tunnel. The
// library and its floor read the same file.
class Stream {
 public:
  Stream() : m_file(std::tmpfile()) {
    if (m_file == nullptr) give_up("no temporary file");
    const std::string bytes = second_of_packets();
    m_size = bytes.size();
    if (std::fwrite(bytes.data(), 1, m_size, m_file) != m_size || std::fflush(m_file) != 0) {
      give_up("the temporary file cannot be written");
    }
  }
  ~Stream() { std::fclose(m_file); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  std::FILE* file() { return m_file; }
  std::size_t size() const { return m_size; }

 private:
  std::FILE* m_file;
  std::size_t m_size = 0;
};

char g_bytes[65536];
char g_payloads[kPayloads * kPayload];

void read_and_copy(Stream* stream) {
  std::rewind(stream->file());
  std::size_t got = 0;
  while (got < stream->size()) {
    const std::size_t more =
        std::fread(g_bytes + got, 1, spectral::kTunnelReadSize, stream->file());
    if (more == 0) give_up("a short file");
    got += more;
  }
  std::size_t at = 0;
  for (std::size_t i = 0; i < kPayloads; ++i) {
    std::memcpy(g_payloads + i * kPayload, g_bytes + at + kHeader, kPayload);
    at += kHeader + kPayload + (is_before_vsync(i) ? kHeader + kVsyncPayload : 0);
  }
}

void floor_gathers(benchmark::State& state) {
  Stream stream;
  read_and_copy(&stream);
  verify(g_payloads);
  while (state.KeepRunning()) {
    read_and_copy(&stream);
    benchmark::DoNotOptimize(g_payloads);
  }
}
BENCHMARK(floor_gathers)->Name("gathering a second of packets/floor");

void gather(SpectralSensorDevice* sensor, VD6281_device* dev) {
  std::rewind(dev->tun_dev);
  dev->rd_len = 0;
  if (sensor->VD6281_GetFlickerDataBuffer(kCaptureMs) == nullptr) give_up("out of step");
}

void library_gathers(benchmark::State& state) {
  Stream stream;
  SpectralSensorDevice sensor;
  VD6281_device& dev = SpectralSensorDevice::m_VD6281Device[0];
  dev.state = VD6281_STATE_IDLE;
  sensor.VD6281_QuilInit();
  dev.tun_dev = stream.file();
  std::memset(dev.flicker_buf, 0, sizeof dev.flicker_buf);
  gather(&sensor, &dev);
  verify(dev.flicker_buf);
  while (state.KeepRunning()) {
    gather(&sensor, &dev);
    benchmark::DoNotOptimize(dev.flicker_buf);
  }
  dev.tun_dev = nullptr;
  dev.state = VD6281_STATE_NONE;
}
BENCHMARK(library_gathers)->Name("gathering a second of packets/library");

}  // namespace
