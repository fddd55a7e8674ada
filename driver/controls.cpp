// The secondary settings: one accessor pair each, and the two operations that dispatch to them.

#include "driver/bring_up_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/state.h"
#include "driver/status.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::kBadArgument;
using spectral::kNoDevice;
using spectral::kOk;
using spectral::kRefusedRunning;
using spectral::kUnsupported;
using spectral::read_register;
using spectral::update_register;
using spectral::write_register;

namespace {

// A work-around control's value: the identifier, and its flag on top.
constexpr int kWorkAroundFlagShift = 31;
constexpr std::uint32_t kWorkAroundIdentifierMask = 0x7FFFFFFF;

// Drive strengths are field + 1 steps of this; the highest two that can be read cannot be set.
constexpr unsigned int kSdaDriveStep = 4;
constexpr unsigned int kMaxSdaDrive = 20;

int work_around_index(std::uint32_t control_value) {
  return spectral::work_around_index(control_value & kWorkAroundIdentifierMask);
}

// The state in which a control may be set.
bool may_set(const VD6281_device* dev, VD6281_Control_Id_t id) {
  switch (id) {
    case VD6281_CONTROL_PEDESTAL_ENABLE:
    case VD6281_CONTROL_PEDESTAL_VALUE:
      return !spectral::flicker_runs(dev);
    default:
      return dev->state == VD6281_STATE_IDLE;
  }
}

bool is_control(VD6281_Control_Id_t id) {
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

}  // namespace

int SpectralSensorDevice::VD6281_SetControl(VD6281_Control_Id_t id, unsigned int value) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (!is_control(id)) return kBadArgument;
  if (!may_set(dev, id)) return kRefusedRunning;
  switch (id) {
    case VD6281_CONTROL_PEDESTAL_ENABLE:
      return set_pedestal_enable(dev, value);
    case VD6281_CONTROL_PEDESTAL_VALUE:
      return set_pedestal_value(dev, value);
    case VD6281_CONTROL_OUTPUT_DARK_ENABLE:
      return set_output_dark_enable(dev, value);
    case VD6281_CONTROL_SDA_DRIVE_VALUE:
      return set_sda_drive_value(dev, value);
    case VD6281_CONTROL_OTP_USAGE_ENABLE:
      return set_otp_usage_enable(dev, value);
    case VD6281_CONTROL_WA_STATUS:
      return set_wa_status(dev, value);
  }
  return kBadArgument;
}

int SpectralSensorDevice::VD6281_GetControl(VD6281_Control_Id_t id, unsigned int* value) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (value == nullptr) return kBadArgument;
  switch (id) {
    case VD6281_CONTROL_PEDESTAL_ENABLE:
      return get_pedestal_enable(dev, value);
    case VD6281_CONTROL_PEDESTAL_VALUE:
      return get_pedestal_value(dev, value);
    case VD6281_CONTROL_OUTPUT_DARK_ENABLE:
      return get_output_dark_enable(dev, value);
    case VD6281_CONTROL_SDA_DRIVE_VALUE:
      return get_sda_drive_value(dev, value);
    case VD6281_CONTROL_OTP_USAGE_ENABLE:
      return get_otp_usage_enable(dev, value);
    case VD6281_CONTROL_WA_STATUS:
      return get_wa_status(dev, value);
  }
  return kBadArgument;
}

int SpectralSensorDevice::get_pedestal_enable(VD6281_device* dev, unsigned int* value) {
  std::uint8_t control = 0;  // the answer on a failure: enabled
  const int status = read_register(dev, reg::kFlickerControl, &control);
  *value = (control & reg::kPedestalDisable) == 0 ? 1 : 0;
  return status;
}

int SpectralSensorDevice::set_pedestal_enable(VD6281_device* dev, unsigned int value) {
  return update_register(dev, reg::kFlickerControl, reg::kPedestalDisable,
                         value == 0 ? reg::kPedestalDisable : std::uint8_t{0});
}

int SpectralSensorDevice::get_pedestal_value(VD6281_device* dev, unsigned int* value) {
  std::uint8_t pedestal = 0;
  const int status = read_register(dev, reg::kPedestalValue, &pedestal);
  *value = pedestal & reg::kPedestalMask;
  return status;
}

int SpectralSensorDevice::set_pedestal_value(VD6281_device* dev, unsigned int value) {
  const auto pedestal = static_cast<std::uint8_t>(value & reg::kPedestalMask);
  return -write_register(dev, reg::kPedestalValue, pedestal);
}

int SpectralSensorDevice::get_otp_usage_enable(VD6281_device* dev, unsigned int* value) {
  *value = dev->otp_usage_enable;
  return kOk;
}

int SpectralSensorDevice::set_otp_usage_enable(VD6281_device* dev, unsigned int value) {
  dev->otp_usage_enable = value;
  return trim_oscillators(dev);
}

int SpectralSensorDevice::get_output_dark_enable(VD6281_device* dev, unsigned int* value) {
  *value = dev->output_dark_enable;
  return kOk;
}

int SpectralSensorDevice::set_output_dark_enable(VD6281_device* dev, unsigned int value) {
  const std::uint8_t output = value != 0 ? reg::kDarkOutputOn : reg::kDarkOutputOff;
  if (int status = write_register(dev, reg::kAnalogue1, output)) return status;
  dev->output_dark_enable = value;
  return kOk;
}

int SpectralSensorDevice::get_sda_drive_value(VD6281_device* dev, unsigned int* value) {
  std::uint8_t drive = 0;
  const int status = read_register(dev, reg::kSdaDrive, &drive);
  *value = ((drive & reg::kSdaDriveMask) + 1u) * kSdaDriveStep;
  return status;
}

int SpectralSensorDevice::set_sda_drive_value(VD6281_device* dev, unsigned int value) {
  if (value == 0 || value > kMaxSdaDrive || value % kSdaDriveStep != 0) return kUnsupported;
  const auto field = static_cast<std::uint8_t>(value / kSdaDriveStep - 1);
  return update_register(dev, reg::kSdaDrive, reg::kSdaDriveMask, field);
}

// The flag is ORed into the caller's value, so an identifier passed with bit 31 set always reads 1.
int SpectralSensorDevice::get_wa_status(VD6281_device* dev, unsigned int* value) {
  const int index = work_around_index(*value);
  if (index < 0) return kUnsupported;
  *value |= static_cast<std::uint32_t>(dev->wa[index]) << kWorkAroundFlagShift;
  return kOk;
}

int SpectralSensorDevice::set_wa_status(VD6281_device* dev, unsigned int value) {
  const int index = work_around_index(value);
  if (index < 0) return kUnsupported;
  dev->wa[index] = static_cast<std::uint8_t>(value >> kWorkAroundFlagShift);
  return kOk;
}
