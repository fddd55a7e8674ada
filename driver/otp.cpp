// Reading the OTP into the record.

#include <algorithm>

#include "driver/otp_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::Register;

namespace {

// Widths and positions of fields count modulo these, so that no shift is undefined.
constexpr int kWidthMask = 31;
constexpr int kWordMask = 63;
constexpr int kBothWordsMask = 127;

int read_bank(VD6281_device* dev, Register first, std::uint8_t (&bank)[reg::kOtpBankRegisters]) {
  for (int i = 0; i < reg::kOtpBankRegisters; ++i) {
    if (int status = spectral::read_register(dev, first + i, &bank[i])) return status;
  }
  return SPECTRAL_OK;
}

bool has_known_layout(const VD6281_device* dev) {
  return spectral::is_known_otp_version(spectral::otp_version(dev->otp_bank1));
}

void store_parameters(VD6281_device* dev, const spectral::OtpParameters& parameters) {
  dev->otp_osc_trim = parameters.osc_trim;
  dev->otp_osc2_trim = parameters.osc2_trim;
  dev->otp_color_map = parameters.color_map;
  std::copy(std::begin(parameters.slope), std::end(parameters.slope), dev->otp_slope);
}

}  // namespace

int SpectralSensorDevice::opt_read_init(VD6281_device* dev) {
  dev->otp_bank0 = 0;
  std::uint8_t bank[reg::kOtpBankRegisters] = {};
  if (int status = read_bank(dev, Register::kOtpBank0, bank)) return status;
  dev->otp_bank0 = spectral::pack_otp_bank0(bank);
  if (int status = read_bank(dev, Register::kOtpBank1, bank)) return status;
  dev->otp_bank0 |= spectral::pack_otp_bank0_top(bank[0]);
  dev->otp_bank1 = spectral::pack_otp_bank1(bank);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::otp_read_param(VD6281_device* dev) {
  store_parameters(dev, spectral::OtpParameters{});
  if (has_known_layout(dev)) otp_read_param_v1_v2_v3(dev);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::otp_read_param_v1_v2_v3(VD6281_device* dev) {
  store_parameters(dev, spectral::decode_otp(dev->otp_bank0, dev->otp_bank1));
  return SPECTRAL_OK;
}

// The NUL behind the characters is the record's own, from its zero-fill.
int SpectralSensorDevice::otp_generate_uid(VD6281_device* dev) {
  if (has_known_layout(dev)) return otp_generate_uid_v1_v2_v3(dev);
  std::fill_n(dev->uid, spectral::kUnknownUidCharacters, 'f');
  return SPECTRAL_OK;
}

int SpectralSensorDevice::otp_generate_uid_v1_v2_v3(VD6281_device* dev) {
  spectral::encode_uid(dev->otp_bank0, dev->otp_bank1, dev->uid);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::otp_read_bank(VD6281_device* dev, int bank, int lsb, int msb,
                                        unsigned int* value) {
  const std::uint64_t word = bank == 0 ? dev->otp_bank0 : dev->otp_bank1;
  *value = spectral::otp_bits(word, 0, lsb & kWordMask, (msb - lsb + 1) & kWidthMask);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::otp_read(VD6281_device* dev, int start, int count, unsigned int* value,
                                   int reverse) {
  const int width = count & kWidthMask;
  const auto field =
      spectral::otp_bits(dev->otp_bank0, dev->otp_bank1, start & kBothWordsMask, width);
  *value = reverse != 0 ? spectral::reverse_field(field, width) : field;
  return SPECTRAL_OK;
}

unsigned char SpectralSensorDevice::byte_bit_reversal(unsigned char b) {
  return spectral::reverse_bits(b);
}

char SpectralSensorDevice::nible_to_ascii(unsigned char n) { return spectral::hex_digit(n); }

char SpectralSensorDevice::encode_nible(unsigned char n, unsigned char* acc) {
  return spectral::chain_nibble(n, acc);
}

int SpectralSensorDevice::VD6281_GetUid(char** uid) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (uid == nullptr) return SPECTRAL_BAD_ARGUMENT;
  *uid = dev->uid;
  return SPECTRAL_OK;
}
