#include "driver/register_access.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "driver/nodes.h"
#include "driver/status.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

namespace spectral {

namespace {

// Every byte as two digits, the first one in the lower half.
constexpr auto kHex = [] {
  std::array<std::uint16_t, 256> pairs = {};
  constexpr char kDigits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    pairs[i] = static_cast<std::uint16_t>(kDigits[i % 16] << 8 | kDigits[i / 16]);
  }
  return pairs;
}();
constexpr std::uint64_t kHexPrefix = 'x' << 8 | '0';

struct WriteText {
  char text[8];
  std::size_t length;
};

// "0x" and the digits of address and value as one number, without leading zeros, and the NUL, which
// is sent too. It is made in a word and stored at once: a text that is stored piece by piece is
// read back only when the pieces have reached the cache, a tenth of what a whole write takes.
WriteText write_text(std::uint8_t address, std::uint8_t value) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
                "the first character is the lowest byte");
  const auto number = static_cast<unsigned int>(address << 8 | value);
  const std::size_t zeros = number > 0xFFF ? 0 : number > 0xFF ? 1 : number > 0xF ? 2 : 3;
  const auto digits = static_cast<std::uint64_t>(kHex[value] << 16 | kHex[address]) >> (8 * zeros);
  const std::uint64_t word = digits << 16 | kHexPrefix;
  WriteText result;
  std::memcpy(result.text, &word, sizeof result.text);
  result.length = sizeof "0x0000" - zeros;
  return result;
}

int issue_read(const VD6281_device* dev, VD6281_Transfer_t* block, const char* operation) {
  const int status = ioctl(dev->fd_dev, kReadRegistersRequest, block);
  if (status != 0) SPECTRAL_LOG_ERROR(kDriverTag, "%s ioctl failed", operation);
  return status;
}

}  // namespace

int read_register(VD6281_device* dev, std::uint8_t address, std::uint8_t* value) {
  if (dev->state == VD6281_STATE_NONE) return kNoDevice;
  VD6281_Transfer_t& block = dev->single_xfer;
  block.mode = 1;
  block.count = 1;
  block.reg[0] = address;
  if (int status = issue_read(dev, &block, "VD6281_RdByte")) return status;
  *value = list_value(block, 0);
  return kOk;
}

int write_register(VD6281_device* dev, std::uint8_t address, std::uint8_t value) {
  if (dev->state == VD6281_STATE_NONE) return kNoDevice;
  const WriteText text = write_text(address, value);
  const int written = static_cast<int>(write(dev->fd_write_byte, text.text, text.length));
  if (written >= 0) return kOk;  // the attribute takes a short count as a write
  SPECTRAL_LOG_ERROR(kDriverTag, "%s failed, addr = 0x%x, data = %d\n", "VD6281_WrByte", address,
                     value);
  return written;
}

int update_register(VD6281_device* dev, std::uint8_t address, std::uint8_t mask, std::uint8_t bits,
                    std::uint8_t* before) {
  std::uint8_t old = 0;
  if (int status = read_register(dev, address, &old)) return status;
  const auto updated = static_cast<std::uint8_t>((old & ~mask) | (bits & mask));
  if (int status = write_register(dev, address, updated)) return status;
  if (before != nullptr) *before = old;
  return kOk;
}

int read_list(VD6281_device* dev, VD6281_Transfer_t* list, const char* operation) {
  if (dev->state == VD6281_STATE_NONE) return kNoDevice;
  return issue_read(dev, list, operation);
}

}  // namespace spectral

int SpectralSensorDevice::VD6281_RdByte(unsigned char addr, unsigned char* data) {
  return spectral::read_register(&m_VD6281Device[0], addr, data);
}

int SpectralSensorDevice::VD6281_WrByte(unsigned char addr, unsigned char data) {
  return spectral::write_register(&m_VD6281Device[0], addr, data);
}

int SpectralSensorDevice::VD6281_RdMultipleBytes(unsigned char addr, unsigned char* data,
                                                 int count) {
  for (int i = 0; i < count; ++i) {
    const auto address = static_cast<std::uint8_t>(addr + i);
    if (int status = spectral::read_register(&m_VD6281Device[0], address, &data[i])) return status;
  }
  return spectral::kOk;
}
