#pragma once

// What the chip's flicker detector has counted: light periods, the ticks of its 16 kHz clock in the
// same time, and two counters of quality. A measurement is complete once one of the first two
// counters is full.

#include <cstdint>

namespace spectral {

struct DetectorCounters {
  std::uint16_t saturation;   // A, registers 0x33:0x34
  std::uint16_t ticks;        // P, registers 0x35:0x36
  std::uint8_t periods;       // N, register 0x37
  std::uint16_t good_cycles;  // B, registers 0x38:0x39 without its lowest bit
};

constexpr std::uint32_t kDetectorTicksPerSecond = 16000;
constexpr std::uint8_t kPeriodsFull = 255;
constexpr std::uint16_t kTicksFull = 65535;
constexpr std::uint16_t kMinGoodCycles = 10;
constexpr std::uint16_t kSaturatedCount = 3;  // this count or more means saturation

constexpr std::uint8_t kConfidenceMeasured = 1;
constexpr std::uint8_t kConfidenceGood = 100;

constexpr bool is_complete(const DetectorCounters& counters) {
  return counters.periods == kPeriodsFull || counters.ticks == kTicksFull;
}

// The frequency in whole hertz, 0 for counters without ticks.
constexpr std::uint32_t detected_frequency(const DetectorCounters& counters) {
  if (counters.ticks == 0) return 0;
  return counters.periods * kDetectorTicksPerSecond / counters.ticks;
}

constexpr std::uint8_t detector_confidence(const DetectorCounters& counters) {
  const bool good = counters.good_cycles >= kMinGoodCycles && counters.saturation < kSaturatedCount;
  return good ? kConfidenceGood : kConfidenceMeasured;
}

}  // namespace spectral
