#pragma once

// The one way to a register. Each function tests the record's state before every access (-4 without
// a device), makes one system call per access, logs its failure and returns its result unchanged.
// None locks: all single reads share one transfer block.

#include <cstddef>
#include <cstdint>

#include "vd6281.h"

namespace spectral {

constexpr char kDriverTag[] = "ilsservice-driver-device";

// Reads one register by ioctl; a failure leaves `value` untouched.
int read_register(VD6281_device* dev, std::uint8_t address, std::uint8_t* value);

// Writes one register as the text "0x%x" of address and value to the write attribute.
int write_register(VD6281_device* dev, std::uint8_t address, std::uint8_t value);

// Reads a register and writes it with the bits of `mask` replaced by those of `bits`. Where
// `before` is given it gets the value read, once the write has succeeded.
int update_register(VD6281_device* dev, std::uint8_t address, std::uint8_t mask, std::uint8_t bits,
                    std::uint8_t* before = nullptr);

// Reads a prepared list by one ioctl; a failure is logged under the name of `operation`.
int read_list(VD6281_device* dev, VD6281_Transfer_t* list, const char* operation);

// Value of the list's register number `index` after a read.
inline std::uint8_t list_value(const VD6281_Transfer_t& list, int index) {
  return static_cast<std::uint8_t>(list.data[index]);
}

struct RegisterWrite {
  std::uint8_t address;
  std::uint8_t value;
};

// Writes a fixed sequence up to the first failure.
template <std::size_t N>
int write_registers(VD6281_device* dev, const RegisterWrite (&sequence)[N]) {
  for (const RegisterWrite& step : sequence) {
    if (int status = write_register(dev, step.address, step.value)) return status;
  }
  return 0;
}

}  // namespace spectral
