// Gathering one second of the sensor hub's packets next to reading the same bytes with fread and
// copying the payloads out.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "simulator/hub.h"
#include "spectral_sensor_device.h"

namespace {

constexpr unsigned int kCaptureMs = 1000;
constexpr std::size_t kHeader = 28;
constexpr std::size_t kPayload = 160;
constexpr std::size_t kReadSize = 8192;

// A second of flicker packets with the VSYNC packets between them.
std::string second_of_packets() {
  std::string bytes;
  for (std::uint32_t i = 0; i < 100; ++i) {
    bytes += spectralsim::Hub::packet(0, i, i, std::string(kPayload, 'x'));
    if (i % 3 == 2) bytes += spectralsim::Hub::packet(15, i / 3, i, std::string(16, 'v'));
  }
  return bytes;
}

// The bytes as a file, which stdio reads by system calls as it reads the tunnel; the same for both.
class Stream {
 public:
  Stream() : m_size(second_of_packets().size()), m_file(std::tmpfile()) {
    std::fwrite(second_of_packets().data(), 1, m_size, m_file);
  }
  ~Stream() { std::fclose(m_file); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  std::FILE* file() { return m_file; }
  std::size_t size() const { return m_size; }

 private:
  std::size_t m_size;
  std::FILE* m_file;
};

void read_and_copy(benchmark::State& state) {
  Stream stream;
  static char bytes[65536];
  static char payloads[16384];
  while (state.KeepRunning()) {
    std::rewind(stream.file());
    std::size_t got = 0;
    while (got < stream.size()) got += std::fread(bytes + got, 1, kReadSize, stream.file());
    std::size_t at = 0;
    for (std::size_t i = 0; i < 100; ++i) {
      std::memcpy(payloads + i * kPayload, bytes + at + kHeader, kPayload);
      at += kHeader + kPayload + (i % 3 == 2 ? kHeader + 16 : 0);
    }
    benchmark::DoNotOptimize(payloads);
  }
}
BENCHMARK(read_and_copy)->Name("gathering a second of packets/floor");

void gather(benchmark::State& state) {
  Stream stream;
  SpectralSensorDevice sensor;
  VD6281_device& dev = SpectralSensorDevice::m_VD6281Device[0];
  dev.state = VD6281_STATE_IDLE;
  sensor.VD6281_QuilInit();
  dev.tun_dev = stream.file();
  while (state.KeepRunning()) {
    std::rewind(stream.file());
    dev.rd_len = 0;
    if (sensor.VD6281_GetFlickerDataBuffer(kCaptureMs) == nullptr) {
      state.SkipWithError("out of step");
    }
    benchmark::DoNotOptimize(dev.flicker_buf);
  }
  dev.tun_dev = nullptr;
  dev.state = VD6281_STATE_NONE;
}
BENCHMARK(gather)->Name("gathering a second of packets/library");

}  // namespace
