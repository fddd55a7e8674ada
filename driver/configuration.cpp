// The working configuration that a freshly reset chip gets.

#include "driver/otp_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/status.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::kOk;
using spectral::RegisterWrite;
using spectral::write_register;
using spectral::write_registers;

namespace {

constexpr std::uint8_t kOsc2TrimMask = 0x0F;
constexpr std::uint8_t kUnityGainCode = 0x0D;
constexpr std::uint16_t kUnityGain = 256;

constexpr RegisterWrite kClampSetUp[] = {
    {reg::kClampEnable, 0x01},
    {reg::kClampSetting, 0x1F},
    {reg::kClampSetting2, 0x3F},
};

constexpr RegisterWrite kAnalogueSetUp[] = {
    {reg::kAnalogue0, 0x07}, {reg::kAnalogue1, 0x07}, {reg::kAnalogue2, 0x07},
    {reg::kAnalogue3, 0x1F}, {reg::kAnalogue4, 0x0F}, {reg::kAnalogue5, 0x1F},
};

int set_unity_gains(VD6281_device* dev) {
  for (int index = 0; index < reg::kChannels; ++index) {
    const auto address = static_cast<std::uint8_t>(reg::kChannelGain + index);
    if (int status = write_register(dev, address, kUnityGainCode)) return status;
    dev->channel_gain[index] = kUnityGain;
  }
  return kOk;
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
  if (int status = set_pedestal_value(dev, reg::kUsualPedestal)) return status;
  if (!is_cut_2_2(dev)) return kOk;
  return write_register(dev, reg::kCut22Control, reg::kCut22Idle);
}

int SpectralSensorDevice::trim_oscillators(VD6281_device* dev) {
  spectral::OtpParameters trim;  // the built-in values are the OTP's defaults
  if (dev->otp_usage_enable != 0) {
    trim.osc_trim = dev->otp_osc_trim;
    trim.osc2_trim = dev->otp_osc2_trim & kOsc2TrimMask;
  }
  const RegisterWrite sequence[] = {
      {reg::kOscTrimEnable, reg::kOn},
      {reg::kOscTrimHigh, static_cast<std::uint8_t>(trim.osc_trim >> 8 & 1)},
      {reg::kOscTrimLow, static_cast<std::uint8_t>(trim.osc_trim & 0xFF)},
      {reg::kOsc2Trim, trim.osc2_trim},
  };
  return write_registers(dev, sequence);
}

int SpectralSensorDevice::clamp_enable(VD6281_device* dev) {
  return write_registers(dev, kClampSetUp);
}
