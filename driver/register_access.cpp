#include "driver/register_access.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <iterator>

#include "driver/nodes.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

namespace spectral {

namespace {

int issue_read(const VD6281_device* dev, VD6281_Transfer_t* block, const char* operation) {
  const int status = ioctl(dev->fd_dev, kReadRegistersRequest, block);
  if (status != 0) SPECTRAL_LOG_ERROR(kDriverTag, "%s ioctl failed", operation);
  return status;
}

}  // namespace

int read_register(VD6281_device* dev, Register which, std::uint8_t* value) {
  if (dev->state == VD6281_STATE_NONE) return SPECTRAL_NO_DEVICE;
  VD6281_Transfer_t& block = dev->single_xfer;
  block.mode = 1;
  block.count = 1;
  block.reg[0] = address_of(which);
  if (int status = issue_read(dev, &block, "VD6281_RdByte")) return status;
  *value = list_value(block, 0);
  return SPECTRAL_OK;
}

int write_register(VD6281_device* dev, Register which, std::uint8_t value) {
  if (dev->state == VD6281_STATE_NONE) return SPECTRAL_NO_DEVICE;
  char text[] = "0x----";  // the NUL behind the digits is written too
  const unsigned int number = address_of(which) * 256u + value;
  char* const end = std::to_chars(text + 2, std::end(text) - 1, number, 16).ptr;
  *end = '\0';
  const auto size = static_cast<std::size_t>(end + 1 - text);
  const int written = static_cast<int>(write(dev->fd_write_byte, text, size));
  if (written >= 0) return SPECTRAL_OK;  // a short count is a success
  SPECTRAL_LOG_ERROR(kDriverTag, "%s failed, addr = 0x%x, data = %d\n", "VD6281_WrByte",
                     address_of(which), value);
  return written;
}

int update_register(VD6281_device* dev, Register which, std::uint8_t mask, std::uint8_t bits,
                    std::uint8_t* before) {
  std::uint8_t old = 0;
  if (int status = read_register(dev, which, &old)) return status;
  const auto updated = static_cast<std::uint8_t>((old & ~mask) | (bits & mask));
  if (int status = write_register(dev, which, updated)) return status;
  if (before != nullptr) *before = old;
  return SPECTRAL_OK;
}

int read_list(VD6281_device* dev, VD6281_Transfer_t* list, const char* operation) {
  if (dev->state == VD6281_STATE_NONE) return SPECTRAL_NO_DEVICE;
  return issue_read(dev, list, operation);
}

}  // namespace spectral

using spectral::Register;

int SpectralSensorDevice::VD6281_RdByte(unsigned char addr, unsigned char* data) {
  return spectral::read_register(&m_VD6281Device[0], static_cast<Register>(addr), data);
}

int SpectralSensorDevice::VD6281_WrByte(unsigned char addr, unsigned char data) {
  return spectral::write_register(&m_VD6281Device[0], static_cast<Register>(addr), data);
}

int SpectralSensorDevice::VD6281_RdMultipleBytes(unsigned char addr, unsigned char* data,
                                                 int count) {
  for (int i = 0; i < count; ++i) {
    const Register which = static_cast<Register>(addr) + i;
    if (int status = spectral::read_register(&m_VD6281Device[0], which, &data[i])) return status;
  }
  return SPECTRAL_OK;
}
