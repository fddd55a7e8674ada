#pragma once

// What the fuzz targets share: taking values from an input, the phone on which every input starts,
// and the checks of what must hold.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#ifdef FUZZ_ON_KERNEL_NODES
#include "fuzz/on_kernel_nodes.h"
#endif
#include "simulator/phone.h"
#include "spectral_sensor.h"

namespace fuzz {

// Aborts the program unless `holds`; both a fuzzer and a test see that as a crash.
void require(bool holds, const char* what);

// Takes the bytes of an input as values, and zeros behind its end.
class Input {
 public:
  Input(const std::uint8_t* bytes, std::size_t size) : m_at(bytes), m_end(bytes + size) {}

  bool is_at_end() const { return m_at == m_end; }

  template <typename Value>
  Value take() {
    static_assert(std::is_arithmetic_v<Value>);
    Value value = 0;
    const std::size_t count = std::min(sizeof value, left());
    if (count > 0) std::memcpy(&value, m_at, count);
    m_at += count;
    return value;
  }
  std::uint8_t byte() { return take<std::uint8_t>(); }
  bool flag() { return byte() % 2 != 0; }
  int below(int end) { return byte() % end; }

  std::string bytes(std::size_t most) {
    std::string taken(m_at, m_at + std::min(most, left()));
    m_at += taken.size();
    return taken;
  }
  // Takes a length byte and as many bytes.
  std::string block() { return bytes(byte()); }

 private:
  std::size_t left() const { return static_cast<std::size_t>(m_end - m_at); }

  const std::uint8_t* m_at;
  const std::uint8_t* m_end;
};

// Decides which accesses fail, and how, by pairs of bytes. The first byte of a pair is the number
// of accesses that succeed before the next fault, and the second, signed, is the result of that
// fault. A negative result makes the access fail with its absolute value as the errno; any other
// result is what the access returns.
class FaultScript {
 public:
  explicit FaultScript(std::string pairs) : m_pairs(std::move(pairs)) {}

  std::optional<spectralsim::Fault> next(spectralsim::Call call, spectralsim::Node node);

 private:
  std::string m_pairs;
  std::size_t m_at = 0;
  int m_gone_well = 0;
};

// Aborts the program when an input takes longer than ten seconds of real time, or two minutes on
// the kernel's own nodes, where the phone's time is real. libFuzzer's own time limit does not
// serve, because it would read the clock of the simulated phone.
class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

// A fresh phone with both services on it. The destructor tears everything down, and requires that
// all descriptors are closed and the power is off, whatever has failed before.
class Bench {
 public:
  Bench();
  ~Bench();
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // Makes accesses fail from now on, as a FaultScript of `pairs` decides.
  void fail_as(std::string pairs);

  // Creates and destroys the instances of both services.
  void create();
  void destroy();

  static VD6281_device& record() { return SpectralSensorDevice::m_VD6281Device[0]; }
  // Requires what holds for the device record between any two operations.
  static void check_record();

  spectralsim::Phone phone;
#ifdef FUZZ_ON_KERNEL_NODES
  OnKernelNodes nodes{&phone};
#endif
  SpectralSensorDevice* device = nullptr;
  SpectralSensor* layered = nullptr;

 private:
  Watch m_watch;
};

// Requires what holds for every result of a measurement, whatever chip and stream have delivered.
void check(const ALSResult& result);
void check(const FlickerResult& result);
// Requires that each frequency is none or within 50..1000 Hz. This holds only for a result whose
// frequencies all come from the analysis.
void check_frequencies(const FlickerResult& result);

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
