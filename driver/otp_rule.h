#pragma once

// The layout of the chip's one-time-programmable memory: packing of its sixteen registers into two
// 64-bit words, the fields within them and the unit's id text.
//
// Each register goes into the words with its bit order reversed, so that a field reads out of the
// words as one run of bits, whose lowest-numbered bit is the field's most significant.

#include <cstdint>

namespace spectral {

struct OtpParameters {
  std::uint16_t osc_trim = 0x00E3;  // 9 bits
  std::uint8_t osc2_trim = 0x07;    // 4 bits
  std::uint8_t color_map = 0;       // 3 bits
  std::uint8_t slope[6] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80};
};

std::uint8_t reverse_bits(std::uint8_t byte);

// `count` bits (0..31) of the 128-bit value high:low from bit `start` (0..127).
std::uint32_t otp_bits(std::uint64_t low, std::uint64_t high, int start, int count);

// The lowest `count` bits (0..31) of `field` in reverse order.
std::uint32_t reverse_field(std::uint32_t field, int count);

// Word 0, bits 0..59, of its eight registers; word 0, bits 60..63, of the first register of the
// second bank; word 1 of the eight registers of that bank.
std::uint64_t pack_otp_bank0(const std::uint8_t (&bank0)[8]);
std::uint64_t pack_otp_bank0_top(std::uint8_t first_of_bank1);
std::uint64_t pack_otp_bank1(const std::uint8_t (&bank1)[8]);

// The layout's version, 0..7; only 5, 6 and 7 are known layouts, all alike.
std::uint32_t otp_version(std::uint64_t word1);
constexpr bool is_known_otp_version(std::uint32_t version) { return version >= 5 && version <= 7; }

// The parameters that the words hold. An unprogrammed slope (0) is neutral; 0 is a legal trim.
OtpParameters decode_otp(std::uint64_t word0, std::uint64_t word1);

char hex_digit(std::uint8_t nibble);

// The id text's next character: each shows the XOR of all nibbles so far.
char chain_nibble(std::uint8_t nibble, std::uint8_t* chain);

constexpr int kUidCharacters = 14;
constexpr int kUnknownUidCharacters = 15;  // of 'f', for an unknown layout

// Writes the kUidCharacters characters of the unit's id, without a NUL.
void encode_uid(std::uint64_t word0, std::uint64_t word1, char* text);

}  // namespace spectral
