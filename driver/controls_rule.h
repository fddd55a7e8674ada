#pragma once

// Which controls there are, and which values they take.

#include <cstdint>

#include "driver/bring_up_rule.h"
#include "vd6281.h"

namespace spectral {

constexpr bool is_control(VD6281_Control_Id_t id) {
  switch (id) {
    case VD6281_CONTROL_PEDESTAL_ENABLE:
    case VD6281_CONTROL_PEDESTAL_VALUE:
    case VD6281_CONTROL_OUTPUT_DARK_ENABLE:
    case VD6281_CONTROL_SDA_DRIVE_VALUE:
    case VD6281_CONTROL_OTP_USAGE_ENABLE:
    case VD6281_CONTROL_WA_STATUS:
      return true;
  }
  return false;
}

// Whether a control may be set beside a running ALS measurement; every other one needs the idle
// state.
constexpr bool may_be_set_beside_als(VD6281_Control_Id_t id) {
  return id == VD6281_CONTROL_PEDESTAL_ENABLE || id == VD6281_CONTROL_PEDESTAL_VALUE;
}

// The drive strength is 4, 8, ... 32, a field of 0..7 in the register; the highest three can be
// read but not set.
constexpr unsigned int kSdaDriveStep = 4;
constexpr unsigned int kMaxSdaDrive = 20;

constexpr bool is_sda_drive(unsigned int drive) {
  return drive != 0 && drive <= kMaxSdaDrive && drive % kSdaDriveStep == 0;
}
constexpr std::uint8_t sda_drive_field(unsigned int drive) {
  return static_cast<std::uint8_t>(drive / kSdaDriveStep - 1);
}
constexpr unsigned int sda_drive_of(std::uint8_t field) { return (field + 1u) * kSdaDriveStep; }

// The value of the work-around control: the work-around's identifier in bits 30..0 and its flag in
// bit 31.
constexpr int kWorkAroundFlagShift = 31;
constexpr std::uint32_t kWorkAroundIdentifierMask = 0x7FFFFFFF;

// The index of the work-around that a control value names, or -1.
constexpr int work_around_of(std::uint32_t control_value) {
  return work_around_index(control_value & kWorkAroundIdentifierMask);
}

}  // namespace spectral
