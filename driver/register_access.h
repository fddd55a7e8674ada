#pragma once

// The one way to a register. Each function tests the record's state before every access and returns
// SPECTRAL_NO_DEVICE without a device; it makes one system call per access, logs a failed one, and
// returns that call's result unchanged. Nothing here locks: all single reads share one transfer
// block.

#include <cstddef>
#include <cstdint>

#include "driver/register_map.h"
#include "spectral_status.h"
#include "vd6281.h"

namespace spectral {

constexpr char kDriverTag[] = "ilsservice-driver-device";

// Reads one register by one ioctl on "/dev/vd6281"; a failure leaves `value` untouched.
int read_register(VD6281_device* dev, Register which, std::uint8_t* value);

// Writes one register by one write to "iridel_write_byte": address and value as the text "0x%x",
// with its NUL.
int write_register(VD6281_device* dev, Register which, std::uint8_t value);

// Reads a register and writes it back with the bits of `mask` replaced by those of `bits`. Where
// `before` is given it gets the value that was read, once the write has succeeded.
int update_register(VD6281_device* dev, Register which, std::uint8_t mask, std::uint8_t bits,
                    std::uint8_t* before = nullptr);

// Reads a prepared list of registers by one ioctl; a failure is logged under the name of
// `operation`.
int read_list(VD6281_device* dev, VD6281_Transfer_t* list, const char* operation);

// The value of the list's register number `index` after a read.
inline std::uint8_t list_value(const VD6281_Transfer_t& list, int index) {
  return static_cast<std::uint8_t>(list.data[index]);
}

struct RegisterWrite {
  Register which;
  std::uint8_t value;
};

// Writes a fixed sequence up to the first failure, whose status it returns.
template <std::size_t kSteps>
int write_registers(VD6281_device* dev, const RegisterWrite (&sequence)[kSteps]) {
  for (const RegisterWrite& step : sequence) {
    if (int status = write_register(dev, step.which, step.value)) return status;
  }
  return SPECTRAL_OK;
}

}  // namespace spectral
