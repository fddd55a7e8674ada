// Setting and reading back the exposure, the gains and the inter-measurement period.

#include "driver/channel.h"
#include "driver/exposure_gain_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

using spectral::als_runs;
using spectral::channel_index;
using spectral::is_channel_index;
using spectral::read_register;
using spectral::Register;
using spectral::write_register;

namespace {

int read_period(VD6281_device* dev, unsigned int* period) {
  std::uint8_t count = 0;
  if (int status = read_register(dev, Register::kInterMeasurementPeriod, &count)) return status;
  *period = count * spectral::kPeriodStepUs;
  return SPECTRAL_OK;
}

}  // namespace

int SpectralSensorDevice::channelId_2_index(VD6281_Channel_Id_t id) { return channel_index(id); }

int SpectralSensorDevice::VD6281_SetExposureTime(unsigned int exposure, unsigned int* applied) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (applied == nullptr) return SPECTRAL_BAD_ARGUMENT;
  if (als_runs(dev)) return SPECTRAL_ALS_RUNNING;
  if (int status = set_exposure(dev, exposure, 1)) return status;
  return get_exposure(dev, applied);
}

int SpectralSensorDevice::VD6281_GetExposureTime(unsigned int* exposure) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (exposure == nullptr) return SPECTRAL_BAD_ARGUMENT;
  return get_exposure(dev, exposure);
}

int SpectralSensorDevice::set_exposure(VD6281_device* dev, unsigned int exposure, int store) {
  const std::uint32_t count = spectral::exposure_count(exposure);
  const auto low = static_cast<std::uint8_t>(count & 0xFF);
  const auto high = static_cast<std::uint8_t>(count >> 8);
  if (int status = write_register(dev, Register::kExposureLow, low)) return status;
  if (int status = write_register(dev, Register::kExposureHigh, high)) return status;
  if (store != 0) dev->exposure = count * spectral::kExposureStepUs;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::get_exposure(VD6281_device* dev, unsigned int* exposure) {
  *exposure = dev->exposure;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_SetGain(VD6281_Channel_Id_t channel, unsigned short gain,
                                         unsigned short* applied) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (applied == nullptr) return SPECTRAL_BAD_ARGUMENT;
  const int index = channel_index(channel);
  if (!is_channel_index(index)) return SPECTRAL_BAD_ARGUMENT;
  if ((channel & (dev->als_channels | dev->flicker_channels)) != 0) return SPECTRAL_CHANNEL_BUSY;
  if (int status = set_channel_gain(dev, index, gain)) return status;
  return get_channel_gain(dev, index, applied);
}

int SpectralSensorDevice::VD6281_GetGain(VD6281_Channel_Id_t channel, unsigned short* gain) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (gain == nullptr) return SPECTRAL_BAD_ARGUMENT;
  const int index = channel_index(channel);
  if (!is_channel_index(index)) return SPECTRAL_BAD_ARGUMENT;
  return get_channel_gain(dev, index, gain);
}

int SpectralSensorDevice::set_channel_gain(VD6281_device* dev, int index, unsigned short gain) {
  const int entry = spectral::gain_index(gain);
  if (int status =
          write_register(dev, Register::kChannelGain + index, spectral::gain_code(entry))) {
    return status;
  }
  dev->channel_gain[index] = spectral::kGainQ8[entry];
  return SPECTRAL_OK;
}

int SpectralSensorDevice::get_channel_gain(VD6281_device* dev, int index, unsigned short* gain) {
  *gain = dev->channel_gain[index];
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_SetInterMeasurementTime(unsigned int period,
                                                         unsigned int* applied) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (applied == nullptr) return SPECTRAL_BAD_ARGUMENT;
  if (dev->wa[1] != 0) {
    if (dev->state != VD6281_STATE_IDLE) return SPECTRAL_RUNNING;
  } else if (als_runs(dev)) {
    return SPECTRAL_ALS_RUNNING;
  }
  const std::uint8_t count = spectral::period_count(period);
  if (int status = write_register(dev, Register::kInterMeasurementPeriod, count)) return status;
  return read_period(dev, applied);
}

int SpectralSensorDevice::VD6281_GetInterMeasurementTime(unsigned int* period) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (period == nullptr) return SPECTRAL_BAD_ARGUMENT;
  return read_period(dev, period);
}

int SpectralSensorDevice::VD6281_GetChannelColor(VD6281_Channel_Id_t channel,
                                                 VD6281_Color_Id_t* color) {
  const VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (color == nullptr) return SPECTRAL_BAD_ARGUMENT;
  const int index = channel_index(channel);
  if (!is_channel_index(index)) return SPECTRAL_BAD_ARGUMENT;
  *color = spectral::channel_color(dev->otp_usage_enable != 0 ? dev->otp_color_map : 0, index);
  return SPECTRAL_OK;
}
