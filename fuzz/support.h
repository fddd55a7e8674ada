#pragma once

// What the fuzz targets share: taking values from an input, the phone that every input starts on,
// and what must hold at its end.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "simulator/phone.h"
#include "spectral_sensor.h"

namespace fuzz {

// Ends the program where something does not hold, which both a fuzzer and a test take for a crash.
void require(bool holds, const char* what);

// An input's bytes as values, zeros behind its end.
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
  // A length byte and as many bytes.
  std::string block() { return bytes(byte()); }

 private:
  std::size_t left() const { return static_cast<std::size_t>(m_end - m_at); }

  const std::uint8_t* m_at;
  const std::uint8_t* m_end;
};

// Which of all accesses fail, and how, by pairs of bytes: the accesses that go well before the next
// failure, and its result. A negative one is a failure, with itself as the errno.
class FaultScript {
 public:
  explicit FaultScript(std::string pairs) : m_pairs(std::move(pairs)) {}

  std::optional<spectralsim::Fault> next(spectralsim::Call call, spectralsim::Node node);

 private:
  std::string m_pairs;
  std::size_t m_at = 0;
  int m_gone_well = 0;
};

// Ends the program when an input takes longer than ten real seconds: libFuzzer's own watch reads a
// clock, which is the phone's here.
class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

// A fresh phone with both services on it. At the end everything is torn down, and must be closed
// and switched off whatever has failed before.
class Bench {
 public:
  Bench();
  ~Bench();
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // From here on accesses fail as the script says.
  void fail_as(std::string pairs);

  // Makes the instances, and gives them back.
  void create();
  void destroy();

  static VD6281_device& record() { return SpectralSensorDevice::m_VD6281Device[0]; }
  // What holds for the record between any two operations.
  static void check_record();

  spectralsim::Phone phone;
  SpectralSensorDevice* device = nullptr;
  SpectralSensor* layered = nullptr;

 private:
  Watch m_watch;
};

// What holds for every result of a measurement, whatever the chip and the stream have said.
void check(const ALSResult& result);
void check(const FlickerResult& result);
// Of a result that nobody but the analysis had a hand in.
void check_frequencies(const FlickerResult& result);

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);
