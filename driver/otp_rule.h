#pragma once

// What the chip's one-time-programmable memory holds: how its sixteen registers are packed into two
// 64-bit words, where the fields are in those words, and how the unit's id text is made of them.
//
// Each register goes into the words with its bit order reversed. A field is then one run of bits in
// the words, and the first bit of the run is the field's most significant one.

#include <cstdint>

namespace spectral {

struct OtpParameters {
  std::uint16_t osc_trim = 0x00E3;  // 9 bits
  std::uint8_t osc2_trim = 0x07;    // 4 bits
  std::uint8_t color_map = 0;       // 3 bits
  std::uint8_t slope[6] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
};

std::uint8_t reverse_bits(std::uint8_t byte);

// The `count` bits (0..31) of the 128-bit value high:low that begin at bit `start` (0..127).
std::uint32_t otp_bits(std::uint64_t low, std::uint64_t high, int start, int count);

// The lowest `count` bits (0..31) of `field` in reverse order.
std::uint32_t reverse_field(std::uint32_t field, int count);

// The packed words: bits 0..59 of word 0 come from the eight registers of bank 0, bits 60..63 from
// the first register of bank 1, and word 1 from all eight registers of bank 1.
std::uint64_t pack_otp_bank0(const std::uint8_t (&bank0)[8]);
std::uint64_t pack_otp_bank0_top(std::uint8_t first_of_bank1);
std::uint64_t pack_otp_bank1(const std::uint8_t (&bank1)[8]);

// The version of the layout, 0..7. Versions 5, 6 and 7 are known and have the same layout.
std::uint32_t otp_version(std::uint64_t word1);
constexpr bool is_known_otp_version(std::uint32_t version) { return version >= 5 && version <= 7; }

// The parameters that the words hold. A slope of 0 is unprogrammed and becomes the neutral one; a
// trim of 0 is legal.
OtpParameters decode_otp(std::uint64_t word0, std::uint64_t word1);

char hex_digit(std::uint8_t nibble);

// The next character of the id text: the hexadecimal digit of the XOR of all nibbles so far, which
// `chain` carries.
char chain_nibble(std::uint8_t nibble, std::uint8_t* chain);

constexpr int kUidCharacters = 14;
constexpr int kUnknownUidCharacters = 15;  // the id of an unknown layout is so many "f"

// Writes the unit's id: kUidCharacters characters, without a NUL.
void encode_uid(std::uint64_t word0, std::uint64_t word1, char* text);

}  // namespace spectral
