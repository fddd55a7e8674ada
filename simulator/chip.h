#pragma once

// The simulated VD6281: its 256 registers and their behaviour.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>

#include "simulator/clock.h"
#include "simulator/otp.h"
#include "simulator/scene.h"

namespace spectralsim {

enum class Cut { k2_0, k2_1, k2_2 };

// A function that answers the read of a register in place of the powered chip. Its answer may be
// wider than the register's eight bits; an empty answer leaves the read to the chip. It is called
// under the kernel's lock, so it must not use the phone.
using RegisterSource = std::function<std::optional<std::uint32_t>(std::uint8_t address)>;

class __attribute__((visibility("default"))) Chip {
 public:
  explicit Chip(const Clock* clock);

  // Settings of the test bench.

  Chip& cut(Cut cut);
  Chip& identify(std::uint8_t device_id, std::uint8_t revision_id);
  Chip& otp(const Otp& otp);
  // Sets how many times the OTP status has to be read after a load until it shows ready; with 0 it
  // never does.
  Chip& otp_ready_on_read(int nth);
  Chip& scene(const Scene& scene);
  // Sets the standard deviation of a count's noise as a fraction of the count's square root (0 = no
  // noise), and the seed of the random numbers.
  Chip& noise(double part, std::uint64_t seed);
  // Makes every read of the register return this value, whatever the chip does.
  Chip& pin(std::uint8_t address, std::uint8_t value);
  Chip& unpin(std::uint8_t address);

  bool powered() const { return m_powered; }
  // The stored value of the register, without the effects of a read.
  std::uint8_t peek(std::uint8_t address) const { return m_registers[address]; }

  // One sample of the running flicker measurement for the sensor hub, with the channel's gain, the
  // pedestal and the converter's limit applied; 0 while no flicker measurement runs.
  std::int16_t flicker_sample(std::int64_t from_ns, std::int64_t to_ns);

  // Accesses by the kernel driver. Without power, read() returns nothing and write() returns false.

  void power(bool on);
  std::optional<std::uint8_t> read(std::uint8_t address);
  bool write(std::uint8_t address, std::uint8_t value);

 private:
  std::uint8_t& at(int first, int offset = 0) {
    return m_registers[static_cast<std::size_t>(first + offset)];
  }
  const std::uint8_t& at(int first, int offset = 0) const {
    return m_registers[static_cast<std::size_t>(first + offset)];
  }
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
  int m_otp_status_reads = -1;  // since the load; -1 = not loaded
  bool m_als_runs = false;
  bool m_synchronous = false;
  bool m_result_waits = false;
  std::int64_t m_exposure_ns = 0;
  std::int64_t m_period_ns = 0;
  std::int64_t m_result_due_ns = 0;
  std::int64_t m_flicker_started_ns = 0;
};

}  // namespace spectralsim
