// The controls: the two operations that every control is reached through, and an accessor pair for
// each.

#include "driver/controls_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::read_register;
using spectral::Register;
using spectral::update_register;
using spectral::write_register;

namespace {

// Whether the state lets a control be set.
bool may_set(const VD6281_device* dev, VD6281_Control_Id_t id) {
  if (spectral::may_be_set_beside_als(id)) return !spectral::flicker_runs(dev);
  return dev->state == VD6281_STATE_IDLE;
}

}  // namespace

int SpectralSensorDevice::VD6281_SetControl(VD6281_Control_Id_t id, unsigned int value) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (!spectral::is_control(id)) return SPECTRAL_BAD_ARGUMENT;
  if (!may_set(dev, id)) return SPECTRAL_RUNNING;
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
  return SPECTRAL_BAD_ARGUMENT;
}

int SpectralSensorDevice::VD6281_GetControl(VD6281_Control_Id_t id, unsigned int* value) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (value == nullptr) return SPECTRAL_BAD_ARGUMENT;
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
  return SPECTRAL_BAD_ARGUMENT;
}

int SpectralSensorDevice::get_pedestal_enable(VD6281_device* dev, unsigned int* value) {
  std::uint8_t control = 0;  // after a failed read the answer is "enabled"
  const int status = read_register(dev, Register::kFlickerControl, &control);
  *value = (control & reg::kPedestalDisable) == 0 ? 1 : 0;
  return status;
}

int SpectralSensorDevice::set_pedestal_enable(VD6281_device* dev, unsigned int value) {
  return update_register(dev, Register::kFlickerControl, reg::kPedestalDisable,
                         value == 0 ? reg::kPedestalDisable : std::uint8_t{0});
}

int SpectralSensorDevice::get_pedestal_value(VD6281_device* dev, unsigned int* value) {
  std::uint8_t pedestal = 0;
  const int status = read_register(dev, Register::kPedestalValue, &pedestal);
  *value = pedestal & reg::kPedestalMask;
  return status;
}

int SpectralSensorDevice::set_pedestal_value(VD6281_device* dev, unsigned int value) {
  const auto pedestal = static_cast<std::uint8_t>(value & reg::kPedestalMask);
  return -write_register(dev, Register::kPedestalValue, pedestal);
}

int SpectralSensorDevice::get_otp_usage_enable(VD6281_device* dev, unsigned int* value) {
  *value = dev->otp_usage_enable;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::set_otp_usage_enable(VD6281_device* dev, unsigned int value) {
  dev->otp_usage_enable = value;
  return trim_oscillators(dev);
}

int SpectralSensorDevice::get_output_dark_enable(VD6281_device* dev, unsigned int* value) {
  *value = dev->output_dark_enable;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::set_output_dark_enable(VD6281_device* dev, unsigned int value) {
  const std::uint8_t output = value != 0 ? reg::kDarkOutputOn : reg::kDarkOutputOff;
  if (int status = write_register(dev, Register::kAnalogue1, output)) return status;
  dev->output_dark_enable = value;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::get_sda_drive_value(VD6281_device* dev, unsigned int* value) {
  std::uint8_t drive = 0;
  const int status = read_register(dev, Register::kSdaDrive, &drive);
  *value = spectral::sda_drive_of(drive & reg::kSdaDriveMask);
  return status;
}

int SpectralSensorDevice::set_sda_drive_value(VD6281_device* dev, unsigned int value) {
  if (!spectral::is_sda_drive(value)) return SPECTRAL_UNSUPPORTED;
  return update_register(dev, Register::kSdaDrive, reg::kSdaDriveMask,
                         spectral::sda_drive_field(value));
}

// The flag is ORed into the caller's value, so an identifier passed with bit 31 set always reads 1.
int SpectralSensorDevice::get_wa_status(VD6281_device* dev, unsigned int* value) {
  const int index = spectral::work_around_of(*value);
  if (index < 0) return SPECTRAL_UNSUPPORTED;
  *value |= static_cast<std::uint32_t>(dev->wa[index]) << spectral::kWorkAroundFlagShift;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::set_wa_status(VD6281_device* dev, unsigned int value) {
  const int index = spectral::work_around_of(value);
  if (index < 0) return SPECTRAL_UNSUPPORTED;
  dev->wa[index] = static_cast<std::uint8_t>(value >> spectral::kWorkAroundFlagShift);
  return SPECTRAL_OK;
}
