#include "driver/otp_rule.h"

namespace spectral {

namespace {

constexpr std::uint8_t kNeutralSlope = 0x80;

// The places of the fields, as bits of word1:word0.
struct Field {
  int start;
  int count;
};
constexpr int kSlopeBits = 8;  // channel k at bit 8k
constexpr Field kColorMap = {48, 3};
constexpr Field kOscTrim = {51, 9};
constexpr int kUidSeed = 60;  // word 0
constexpr int kWord1 = 64;
constexpr int kUidStreamEnd = kWord1 + 49;
constexpr int kUidNibble = 4;
constexpr Field kVersion = {kWord1 + 49, 3};
constexpr Field kOsc2Trim = {kWord1 + 52, 4};

std::uint32_t field_value(std::uint64_t word0, std::uint64_t word1, Field field) {
  return reverse_field(otp_bits(word0, word1, field.start, field.count), field.count);
}

}  // namespace

std::uint8_t reverse_bits(std::uint8_t byte) {
  return static_cast<std::uint8_t>(reverse_field(byte, 8));
}

std::uint32_t otp_bits(std::uint64_t low, std::uint64_t high, int start, int count) {
  std::uint64_t from_start = 0;
  if (start >= kWord1) {
    from_start = high >> (start - kWord1);
  } else if (start > 0) {
    from_start = low >> start | high << (kWord1 - start);
  } else {
    from_start = low;
  }
  return static_cast<std::uint32_t>(from_start) & ((1u << count) - 1u);
}

std::uint32_t reverse_field(std::uint32_t field, int count) {
  std::uint32_t reversed = 0;
  for (int i = 0; i < count; ++i) reversed |= (field >> i & 1u) << (count - 1 - i);
  return reversed;
}

std::uint64_t pack_otp_bank0(const std::uint8_t (&bank0)[8]) {
  std::uint64_t word = 0;
  for (int k = 0; k < 7; ++k) word |= std::uint64_t{reverse_bits(bank0[k])} << (8 * k);
  return word | std::uint64_t{reverse_bits(bank0[7])} >> 4 << 56;
}

std::uint64_t pack_otp_bank0_top(std::uint8_t first_of_bank1) {
  return std::uint64_t{reverse_bits(first_of_bank1)} << kUidSeed;
}

std::uint64_t pack_otp_bank1(const std::uint8_t (&bank1)[8]) {
  std::uint64_t word = std::uint64_t{reverse_bits(bank1[0])} >> 4;
  for (int m = 0; m < 6; ++m) word |= std::uint64_t{reverse_bits(bank1[1 + m])} << (4 + 8 * m);
  return word | std::uint64_t{reverse_bits(bank1[7])} >> 4 << 52;
}

std::uint32_t otp_version(std::uint64_t word1) { return field_value(0, word1, kVersion); }

OtpParameters decode_otp(std::uint64_t word0, std::uint64_t word1) {
  OtpParameters parameters;
  for (int k = 0; k < 6; ++k) {
    const auto slope = field_value(word0, word1, {kSlopeBits * k, kSlopeBits});
    parameters.slope[k] = slope == 0 ? kNeutralSlope : static_cast<std::uint8_t>(slope);
  }
  parameters.osc_trim = static_cast<std::uint16_t>(field_value(word0, word1, kOscTrim));
  parameters.color_map = static_cast<std::uint8_t>(field_value(word0, word1, kColorMap));
  parameters.osc2_trim = static_cast<std::uint8_t>(field_value(word0, word1, kOsc2Trim));
  return parameters;
}

char hex_digit(std::uint8_t nibble) {
  return static_cast<char>(nibble < 10 ? '0' + nibble : 'a' + (nibble - 10));
}

char chain_nibble(std::uint8_t nibble, std::uint8_t* chain) {
  *chain ^= nibble;
  return hex_digit(*chain);
}

void encode_uid(std::uint64_t word0, std::uint64_t word1, char* text) {
  // The first nibble is the version and, behind it, the first of the four seed bits. The nibbles
  // that follow are the other seed bits and then the id's bits, four at a time.
  const auto version = otp_version(word1);
  std::uint8_t chain = 0;
  const auto head = static_cast<std::uint8_t>(version << 1 | otp_bits(word0, word1, kUidSeed, 1));
  *text++ = chain_nibble(head, &chain);
  for (int start = kUidSeed + 1; start < kUidStreamEnd; start += kUidNibble) {
    const auto nibble = field_value(word0, word1, {start, kUidNibble});
    *text++ = chain_nibble(static_cast<std::uint8_t>(nibble), &chain);
  }
}

}  // namespace spectral
