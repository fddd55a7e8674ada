#pragma once

// The simulated VD6281: 256 registers with the behaviour behind them.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>

#include "driver/register_map.h"
#include "simulator/clock.h"
#include "simulator/otp.h"
#include "simulator/scene.h"

namespace spectralsim {

enum class Cut { k2_0, k2_1, k2_2 };

// Answers a read of a register in the powered chip's place, with more than the register's eight
// bits if it likes; nothing where the chip is to answer. It must not use the phone.
using RegisterSource = std::function<std::optional<std::uint32_t>(std::uint8_t address)>;

class __attribute__((visibility("default"))) Chip {
 public:
  explicit Chip(const Clock* clock);

  // What the test bench sets.

  Chip& cut(Cut cut);
  Chip& identify(std::uint8_t device_id, std::uint8_t revision_id);
  Chip& otp(const Otp& otp);
  // On which read of the OTP status after a load it first shows ready; 0 = never.
  Chip& otp_ready_on_read(int nth);
  Chip& scene(const Scene& scene);
  // Noise of a count, as a part of its square root (0 = none), and the seed it is drawn from.
  Chip& noise(double part, std::uint64_t seed);
  // Makes every read of a register answer this value, whatever the chip does.
  Chip& pin(std::uint8_t address, std::uint8_t value);
  Chip& unpin(std::uint8_t address);

  bool powered() const { return m_powered; }
  // The register as it is, without the effects of reading it.
  std::uint8_t peek(std::uint8_t address) const { return m_registers[address]; }

  // What the sensor hub takes: one sample of the running flicker measurement, with its channel's
  // gain, the converter's limit and the pedestal; 0 while none runs.
  std::int16_t flicker_sample(std::int64_t from_ns, std::int64_t to_ns);

  // What the kernel driver does. A chip without power answers nothing.

  void power(bool on);
  std::optional<std::uint8_t> read(std::uint8_t address);
  bool write(std::uint8_t address, std::uint8_t value);

 private:
  std::uint8_t& at(spectral::Register which) { return m_registers[address_of(which)]; }
  const std::uint8_t& at(spectral::Register which) const { return m_registers[address_of(which)]; }
  void reset();
  void start_als(bool synchronous);
  void finish_measurements();
  void latch_result(std::int64_t from_ns, std::int64_t to_ns);
  double measured_counts(int channel, double from_ms, double to_ms);
  std::uint8_t read_otp_status();
  double noisy(double size);
  bool flicker_runs() const;
  double flicker_level(std::int64_t from_ns, std::int64_t to_ns) const;
  std::uint8_t read_detector(std::uint8_t address) const;

  const Clock* m_clock;
  std::uint8_t m_device_id = 0x70;
  std::uint8_t m_revision_id = 0xBC;
  Otp m_otp;
  int m_otp_ready_on_read = 2;
  Scene m_scene;
  double m_noise = 0.25;
  std::mt19937_64 m_random;
  std::array<std::optional<std::uint8_t>, 256> m_pins = {};

  bool m_powered = false;
  std::array<std::uint8_t, 256> m_registers = {};
  int m_otp_status_reads = -1;  // since the load; -1 = no load
  bool m_als_runs = false;
  bool m_synchronous = false;
  bool m_result_waits = false;
  std::int64_t m_exposure_ns = 0;
  std::int64_t m_period_ns = 0;
  std::int64_t m_result_due_ns = 0;
  std::int64_t m_flicker_started_ns = 0;
};

}  // namespace spectralsim
