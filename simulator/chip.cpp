#include "simulator/chip.h"

#include <algorithm>
#include <cmath>

#include "simulator/registers.h"

namespace spectralsim {

using chip::kChannel6;
using chip::kChannels;

namespace {

// The amplifier's gain for each code 1..15. With any other code no light is measured.
constexpr double kGainOfCode[] = {0.0, 66.67, 50.0, 33.33, 25.0, 16.67, 10.0, 7.14,
                                  5.0, 3.33,  2.5,  1.67,  1.25, 1.0,   0.83, 0.71};

constexpr double kExposureStepMs = 1.6;
constexpr std::int64_t kExposureStepNs = 1600000;
constexpr std::int64_t kPeriodStepNs = 20500000;
constexpr double kCountsPerStep = 910.0;  // the converter's limit in each exposure step
constexpr double kFullScale = 65535.0;
constexpr double kFractions = 256.0;  // units of the 24-bit result in a count

constexpr std::uint8_t kCut20Revision = 0xBA;

// The flicker path saturates at the same light as the ALS converter; a sample then has its highest
// value.
constexpr double kFlickerLimit = kCountsPerStep / kExposureStepMs;  // counts per millisecond
constexpr double kHighestSample = 32767.0;
constexpr int kPedestalStep = 16;
constexpr double kFlickerNoise = 4.0;  // standard deviation of a sample where the noise is set to 1

// The detector looks for saturated samples in a window of this length. Its tick counter runs at
// 16 kHz; the tick and the period counter have these limits.
constexpr std::int64_t kSaturationWindowNs = 40 * kNsPerMs;
constexpr int kSaturationSamples = 80;
constexpr double kTicksPerSecond = 16000.0;
constexpr double kMostTicks = 65535.0;
constexpr double kMostPeriods = 255.0;
constexpr int kGoodCycles = 200;

double gain_of_code(std::uint8_t code) {
  return code < std::size(kGainOfCode) ? kGainOfCode[code] : 0.0;
}

bool is_read_only(std::uint8_t address) {
  return address <= chip::kRevisionId ||
         (address >= chip::kResults && address < chip::kExposureHigh) ||
         (address >= chip::kOtpStatus && address < chip::kAfterOtp);
}

}  // namespace

Chip::Chip(const Clock* clock) : m_clock(clock), m_scene(Scene::named("office")) {}

Chip& Chip::cut(Cut cut) {
  return identify(0x70, static_cast<std::uint8_t>(kCut20Revision + static_cast<int>(cut)));
}

Chip& Chip::identify(std::uint8_t device_id, std::uint8_t revision_id) {
  m_device_id = device_id;
  m_revision_id = revision_id;
  return *this;
}

Chip& Chip::otp(const Otp& otp) {
  m_otp = otp;
  return *this;
}

Chip& Chip::otp_ready_on_read(int nth) {
  m_otp_ready_on_read = nth;
  return *this;
}

Chip& Chip::scene(const Scene& scene) {
  m_scene = scene;
  return *this;
}

Chip& Chip::noise(double part, std::uint64_t seed) {
  m_noise = part;
  m_random.seed(seed);
  return *this;
}

Chip& Chip::pin(std::uint8_t address, std::uint8_t value) {
  m_pins[address] = value;
  return *this;
}

Chip& Chip::unpin(std::uint8_t address) {
  m_pins[address].reset();
  return *this;
}

void Chip::power(bool on) {
  if (on && !m_powered) reset();
  m_powered = on;
}

void Chip::reset() {
  m_registers.fill(0);
  m_otp_status_reads = -1;
  m_als_runs = false;
  m_result_waits = false;
}

std::optional<std::uint8_t> Chip::read(std::uint8_t address) {
  if (!m_powered) return std::nullopt;
  finish_measurements();
  std::uint8_t value = m_registers[address];
  switch (address) {
    case chip::kDeviceId:
      value = m_device_id;
      break;
    case chip::kRevisionId:
      value = m_revision_id;
      break;
    case chip::kStatus:
      value = m_result_waits ? 0 : chip::kNoResult;
      break;
    case chip::kOtpStatus:
      value = read_otp_status();
      break;
    default:
      if (address >= chip::kDetector && address < chip::kDetector + chip::kDetectorRegisters) {
        value = read_detector(address);
      }
      break;
  }
  return m_pins[address].value_or(value);
}

bool Chip::write(std::uint8_t address, std::uint8_t value) {
  if (!m_powered) return false;
  finish_measurements();
  if (is_read_only(address)) return true;
  const bool flicker_ran = flicker_runs();
  m_registers[address] = value;
  if (flicker_runs() && !flicker_ran) m_flicker_started_ns = m_clock->now_ns();
  switch (address) {
    case chip::kStatus:
      if ((value & chip::kAcknowledge) != 0) m_result_waits = false;
      break;
    case chip::kMeasurement:
      m_als_runs = false;
      m_result_waits = false;
      if (value == chip::kSingleShot || value == chip::kSynchronous) {
        start_als(value == chip::kSynchronous);
      }
      break;
    case chip::kOtpControl:
      m_otp_status_reads = 0;
      break;
    case chip::kReset:
      if (value != 0) reset();
      break;
    default:
      break;
  }
  return true;
}

std::uint8_t Chip::read_otp_status() {
  if (m_otp_status_reads < 0 || m_otp_ready_on_read == 0) return 0;
  if (++m_otp_status_reads < m_otp_ready_on_read) return 0;
  m_otp_status_reads = m_otp_ready_on_read;
  std::copy(m_otp.registers().begin(), m_otp.registers().end(),
            m_registers.begin() + chip::kOtpBank0);
  return chip::kOtpReady;
}

void Chip::start_als(bool synchronous) {
  const int count = (at(chip::kExposureHigh) & 0x03) << 8 | at(chip::kExposureLow);
  m_als_runs = true;
  m_synchronous = synchronous;
  m_exposure_ns = std::max(count, 1) * kExposureStepNs;
  m_period_ns = std::max(m_exposure_ns, at(chip::kPeriod) * kPeriodStepNs);
  m_result_due_ns = m_clock->now_ns() + m_exposure_ns;
}

// Completes the measurements that are due by now. A newer result replaces one that was not
// acknowledged.
void Chip::finish_measurements() {
  if (!m_als_runs) return;
  const std::int64_t now_ns = m_clock->now_ns();
  if (now_ns < m_result_due_ns) return;
  if (m_synchronous) m_result_due_ns += (now_ns - m_result_due_ns) / m_period_ns * m_period_ns;
  latch_result(m_result_due_ns - m_exposure_ns, m_result_due_ns);
  m_result_waits = true;
  m_result_due_ns += m_period_ns;
  m_als_runs = m_synchronous;
}

void Chip::latch_result(std::int64_t from_ns, std::int64_t to_ns) {
  const double from_ms = static_cast<double>(from_ns) / kNsPerMs;
  const double to_ms = static_cast<double>(to_ns) / kNsPerMs;
  for (int channel = 0; channel < kChannels; ++channel) {
    const double counts = measured_counts(channel, from_ms, to_ms);
    const auto raw = static_cast<std::uint32_t>(counts * kFractions);
    auto* const result = &at(chip::kResults, chip::kResultStride * channel);
    result[0] = static_cast<std::uint8_t>(raw >> 16);
    result[1] = static_cast<std::uint8_t>(raw >> 8);
    result[2] = static_cast<std::uint8_t>(raw);
  }
}

double Chip::measured_counts(int channel, double from_ms, double to_ms) {
  const std::uint8_t bit = static_cast<std::uint8_t>(1u << channel);
  const bool enabled =
      bit == kChannel6 ? at(chip::kAcEnable) != 0 : (at(chip::kDcEnable) & bit) != 0;
  if (!enabled) return 0.0;
  const double exposure_ms = to_ms - from_ms;
  const std::uint8_t gain_code = at(chip::kGain, channel);
  double counts = m_scene.mean(channel, from_ms, to_ms) * gain_of_code(gain_code) * exposure_ms;
  counts += noisy(std::sqrt(counts));
  const double limit = std::min(kCountsPerStep * exposure_ms / kExposureStepMs, kFullScale);
  return std::clamp(counts, 0.0, limit);
}

// A random deviation with the standard deviation `size`, scaled by the noise setting.
double Chip::noisy(double size) {
  if (m_noise <= 0.0) return 0.0;
  double normal = -6.0;  // a sum of twelve uniform numbers is close to normal, and portable
  for (int i = 0; i < 12; ++i) normal += static_cast<double>(m_random() >> 11) * 0x1p-53;
  return m_noise * size * normal;
}

bool Chip::flicker_runs() const { return (at(chip::kFlickerControl) & chip::kFlickerRun) != 0; }

// The light on the selected channel times the channel's gain, relative to the level at address the
// flicker path saturates.
double Chip::flicker_level(std::int64_t from_ns, std::int64_t to_ns) const {
  const int select = (at(chip::kFlickerControl) & chip::kFlickerSelect) >> 1;
  const int channel = select == 1 ? kChannels - 1 : select - 2;
  if (!flicker_runs() || channel < 0 || channel >= kChannels) return 0.0;
  const double from_s = static_cast<double>(from_ns) / kNsPerSecond;
  const double to_s = static_cast<double>(to_ns) / kNsPerSecond;
  const std::uint8_t gain_code = at(chip::kGain, channel);
  return m_scene.mean(channel, from_s * 1000, to_s * 1000) * m_scene.modulation(from_s, to_s) *
         gain_of_code(gain_code) / kFlickerLimit;
}

std::int16_t Chip::flicker_sample(std::int64_t from_ns, std::int64_t to_ns) {
  if (!m_powered || !flicker_runs()) return 0;
  const bool has_pedestal = (at(chip::kFlickerControl) & chip::kPedestalOff) == 0;
  const int pedestal = has_pedestal ? at(chip::kPedestal) * kPedestalStep : 0;
  const double sample =
      flicker_level(from_ns, to_ns) * kHighestSample + pedestal + noisy(kFlickerNoise);
  return static_cast<std::int16_t>(std::clamp(sample, 0.0, kHighestSample));
}

// Returns one of the detector's registers. The first two hold the saturation counter, address
// counts saturated samples in the window that begins now. The others hold the ticks, periods and
// good cycles of the scene's strongest frequency since the start of the measurement. They stop when
// the tick or the period counter is full; the good cycles are 0 until then.
std::uint8_t Chip::read_detector(std::uint8_t address) const {
  if (!flicker_runs()) return 0;
  const std::int64_t now_ns = m_clock->now_ns();
  const int offset = address - chip::kDetector;
  if (offset < 2) {
    int saturated = 0;
    constexpr std::int64_t kSampleNs = kSaturationWindowNs / kSaturationSamples;
    for (int i = 0; i < kSaturationSamples; ++i) {
      const std::int64_t from_ns = now_ns + i * kSampleNs;
      saturated += flicker_level(from_ns, from_ns + kSampleNs) >= 1.0 ? 1 : 0;
    }
    return static_cast<std::uint8_t>(offset == 0 ? saturated >> 8 : saturated);
  }
  const double hz = m_scene.strongest_hz();
  const double full_s = std::min(kMostTicks / kTicksPerSecond,
                                 hz > 0.0 ? kMostPeriods / hz : kMostTicks / kTicksPerSecond);
  const double elapsed_s =
      std::min(static_cast<double>(now_ns - m_flicker_started_ns) / kNsPerSecond, full_s);
  const auto ticks = static_cast<int>(std::lround(elapsed_s * kTicksPerSecond));
  const auto periods = static_cast<int>(elapsed_s * hz + 1e-6);
  const int good = hz > 0.0 && elapsed_s >= full_s ? kGoodCycles : 0;
  const int counters[] = {ticks >> 8, ticks & 0xFF, periods, good >> 8, good & 0xFF};
  return static_cast<std::uint8_t>(counters[offset - 2]);
}

}  // namespace spectralsim
