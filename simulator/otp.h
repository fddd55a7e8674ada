#pragma once

// The chip's one-time-programmable memory as the factory wrote it.

#include <array>
#include <cstdint>

namespace spectralsim {

class __attribute__((visibility("default"))) Otp {
 public:
  using Registers = std::array<std::uint8_t, 16>;  // 0x5B..0x6A

  Otp() = default;  // layout version 5; all other fields are neutral
  explicit Otp(const Registers& registers) : m_registers(registers) {}

  Otp& version(unsigned int value);                    // 0..7
  Otp& slope(int channel, std::uint8_t value);         // 0x80 = neutral
  Otp& color_map(unsigned int value);                  // 0..7
  Otp& osc_trim(unsigned int value);                   // 9 bits
  Otp& osc2_trim(unsigned int value);                  // 4 bits
  Otp& uid_bits(std::uint64_t value);                  // the 53 bits of the UID besides the version
  Otp& raw(std::uint8_t address, std::uint8_t value);  // one register, 0x5B..0x6A

  const Registers& registers() const { return m_registers; }

 private:
  std::uint8_t& at(std::uint8_t address);

  Registers m_registers = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x0E, 0x03,
                           0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x07};
};

}  // namespace spectralsim
