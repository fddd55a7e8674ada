#include "simulator/otp.h"

#include "simulator/registers.h"

namespace spectralsim {

namespace {

// Registers that several fields share, and the number of registers that hold the UID alone.
constexpr std::uint8_t kColorMapAndTrim =
    static_cast<std::uint8_t>(chip::kOtpBank0 + 6);     // map in bits 7..5, trim bits 8..4
constexpr std::uint8_t kTrimLow = chip::kOtpBank0 + 7;  // trim bits 3..0
constexpr int kWholeUidRegisters = 6;  // the UID's other five bits stand above the version
constexpr std::uint8_t kVersion = chip::kOtpBank1 + 6;   // bits 2..0
constexpr std::uint8_t kOsc2Trim = chip::kOtpBank1 + 7;  // bits 3..0

void replace(std::uint8_t* target, unsigned int mask, unsigned int bits) {
  *target = static_cast<std::uint8_t>((*target & ~mask) | (bits & mask));
}

}  // namespace

std::uint8_t& Otp::at(std::uint8_t address) {
  return m_registers.at(static_cast<std::size_t>(address - chip::kOtpBank0));
}

Otp& Otp::version(unsigned int value) {
  replace(&at(kVersion), 0x07, value);
  return *this;
}

Otp& Otp::slope(int channel, std::uint8_t value) {
  at(static_cast<std::uint8_t>(chip::kOtpBank0 + channel)) = value;
  return *this;
}

Otp& Otp::color_map(unsigned int value) {
  replace(&at(kColorMapAndTrim), 0xE0, value << 5);
  return *this;
}

Otp& Otp::osc_trim(unsigned int value) {
  replace(&at(kColorMapAndTrim), 0x1F, value >> 4);
  replace(&at(kTrimLow), 0x0F, value);
  return *this;
}

Otp& Otp::osc2_trim(unsigned int value) {
  replace(&at(kOsc2Trim), 0x0F, value);
  return *this;
}

Otp& Otp::uid_bits(std::uint64_t value) {
  for (int i = 0; i < kWholeUidRegisters; ++i) {
    at(static_cast<std::uint8_t>(chip::kOtpBank1 + i)) =
        static_cast<std::uint8_t>(value >> (8 * i));
  }
  replace(&at(kVersion), 0xF8, static_cast<unsigned int>(value >> 48) << 3);
  return *this;
}

Otp& Otp::raw(std::uint8_t address, std::uint8_t value) {
  at(address) = value;
  return *this;
}

}  // namespace spectralsim
