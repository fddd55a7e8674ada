// The configuration that a freshly reset chip gets at bring-up.

#include "driver/bring_up_rule.h"
#include "driver/channel.h"
#include "driver/exposure_gain_rule.h"
#include "driver/otp_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::Register;
using spectral::RegisterWrite;
using spectral::write_register;
using spectral::write_registers;

namespace {

constexpr std::uint8_t kOsc2TrimMask = 0x0F;

constexpr RegisterWrite kClampSetUp[] = {
    {Register::kClampEnable, 0x01},
    {Register::kClampSetting, 0x1F},
    {Register::kClampSetting2, 0x3F},
};

constexpr RegisterWrite kAnalogueSetUp[] = {
    {Register::kAnalogue0, 0x07}, {Register::kAnalogue1, 0x07}, {Register::kAnalogue2, 0x07},
    {Register::kAnalogue3, 0x1F}, {Register::kAnalogue4, 0x0F}, {Register::kAnalogue5, 0x1F},
};

int set_unity_gains(VD6281_device* dev) {
  constexpr std::uint8_t kCode = spectral::gain_code(spectral::kUnityGainIndex);
  for (int index = 0; index < spectral::kChannels; ++index) {
    if (int status = write_register(dev, Register::kChannelGain + index, kCode)) return status;
    dev->channel_gain[index] = spectral::kUnityGainQ8;
  }
  return SPECTRAL_OK;
}

}  // namespace

int SpectralSensorDevice::dev_configuration(VD6281_device* dev) {
  if (int status = opt_reset(dev)) return status;
  if (int status = opt_read_init(dev)) return status;
  otp_read_param(dev);
  otp_generate_uid(dev);
  if (int status = trim_oscillators(dev)) return status;
  if (int status = clamp_enable(dev)) return status;
  if (int status = write_registers(dev, kAnalogueSetUp)) return status;
  if (int status = set_unity_gains(dev)) return status;
  if (int status = set_pedestal_value(dev, spectral::kUsualPedestal)) return status;
  if (!is_cut_2_2(dev)) return SPECTRAL_OK;
  return write_register(dev, Register::kCut22Control, reg::kCut22Idle);
}

int SpectralSensorDevice::trim_oscillators(VD6281_device* dev) {
  spectral::OtpParameters trim;  // the defaults are the built-in trims
  if (dev->otp_usage_enable != 0) {
    trim.osc_trim = dev->otp_osc_trim;
    trim.osc2_trim = dev->otp_osc2_trim & kOsc2TrimMask;
  }
  const RegisterWrite sequence[] = {
      {Register::kOscTrimEnable, reg::kOn},
      {Register::kOscTrimHigh, static_cast<std::uint8_t>(trim.osc_trim >> 8 & 1)},
      {Register::kOscTrimLow, static_cast<std::uint8_t>(trim.osc_trim & 0xFF)},
      {Register::kOsc2Trim, trim.osc2_trim},
  };
  return write_registers(dev, sequence);
}

int SpectralSensorDevice::clamp_enable(VD6281_device* dev) {
  return write_registers(dev, kClampSetUp);
}
