// Exposure, gains and inter-measurement period on the chip; what it can do is in
// exposure_gain_rule.h.

#include "driver/channel.h"
#include "driver/exposure_gain_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/state.h"
#include "driver/status.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::als_runs;
using spectral::channel_index;
using spectral::is_channel_index;
using spectral::kBadArgument;
using spectral::kChannelBusy;
using spectral::kNoDevice;
using spectral::kOk;
using spectral::kRefusedAlsRunning;
using spectral::kRefusedRunning;
using spectral::read_register;
using spectral::write_register;

namespace {

int read_period(VD6281_device* dev, unsigned int* period) {
  std::uint8_t count = 0;
  if (int status = read_register(dev, reg::kInterMeasurementPeriod, &count)) return status;
  *period = count * spectral::kPeriodStepUs;
  return kOk;
}

constexpr std::uint8_t kColorMaps = 8;
constexpr VD6281_Color_Id_t kUnknownColors[reg::kChannels] = {
    VD6281_COLOR_UNKNOWN, VD6281_COLOR_UNKNOWN, VD6281_COLOR_UNKNOWN,
    VD6281_COLOR_UNKNOWN, VD6281_COLOR_UNKNOWN, VD6281_COLOR_UNKNOWN};
constexpr VD6281_Color_Id_t kKnownColors[reg::kChannels] = {
    VD6281_COLOR_RED,      VD6281_COLOR_GREEN, VD6281_COLOR_BLUE,
    VD6281_COLOR_INFRARED, VD6281_COLOR_CLEAR, VD6281_COLOR_UNKNOWN};
constexpr const VD6281_Color_Id_t* kChannelColors[kColorMaps] = {
    kUnknownColors, kUnknownColors, kKnownColors,   kUnknownColors,
    kUnknownColors, kKnownColors,   kUnknownColors, kUnknownColors};

}  // namespace

int SpectralSensorDevice::channelId_2_index(VD6281_Channel_Id_t id) { return channel_index(id); }

int SpectralSensorDevice::VD6281_SetExposureTime(unsigned int exposure, unsigned int* applied) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (applied == nullptr) return kBadArgument;
  if (als_runs(dev)) return kRefusedAlsRunning;
  if (int status = set_exposure(dev, exposure, 1)) return status;
  return get_exposure(dev, applied);
}

int SpectralSensorDevice::VD6281_GetExposureTime(unsigned int* exposure) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (exposure == nullptr) return kBadArgument;
  return get_exposure(dev, exposure);
}

int SpectralSensorDevice::set_exposure(VD6281_device* dev, unsigned int exposure, int store) {
  const std::uint32_t count = spectral::exposure_count(exposure);
  const auto low = static_cast<std::uint8_t>(count & 0xFF);
  const auto high = static_cast<std::uint8_t>(count >> 8);
  if (int status = write_register(dev, reg::kExposureLow, low)) return status;
  if (int status = write_register(dev, reg::kExposureHigh, high)) return status;
  if (store != 0) dev->exposure = count * spectral::kExposureStepUs;
  return kOk;
}

int SpectralSensorDevice::get_exposure(VD6281_device* dev, unsigned int* exposure) {
  *exposure = dev->exposure;
  return kOk;
}

int SpectralSensorDevice::VD6281_SetGain(VD6281_Channel_Id_t channel, unsigned short gain,
                                         unsigned short* applied) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (applied == nullptr) return kBadArgument;
  const int index = channel_index(channel);
  if (!is_channel_index(index)) return kBadArgument;
  if ((channel & (dev->als_channels | dev->flicker_channels)) != 0) return kChannelBusy;
  if (int status = set_channel_gain(dev, index, gain)) return status;
  return get_channel_gain(dev, index, applied);
}

int SpectralSensorDevice::VD6281_GetGain(VD6281_Channel_Id_t channel, unsigned short* gain) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (gain == nullptr) return kBadArgument;
  const int index = channel_index(channel);
  if (!is_channel_index(index)) return kBadArgument;
  return get_channel_gain(dev, index, gain);
}

int SpectralSensorDevice::set_channel_gain(VD6281_device* dev, int index, unsigned short gain) {
  const int entry = spectral::gain_index(gain);
  const auto address = static_cast<std::uint8_t>(reg::kChannelGain + index);
  if (int status = write_register(dev, address, spectral::gain_code(entry))) return status;
  dev->channel_gain[index] = spectral::kGainQ8[entry];
  return kOk;
}

int SpectralSensorDevice::get_channel_gain(VD6281_device* dev, int index, unsigned short* gain) {
  *gain = dev->channel_gain[index];
  return kOk;
}

int SpectralSensorDevice::VD6281_SetInterMeasurementTime(unsigned int period,
                                                         unsigned int* applied) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (applied == nullptr) return kBadArgument;
  if (dev->wa[1] != 0) {
    if (dev->state != VD6281_STATE_IDLE) return kRefusedRunning;
  } else if (als_runs(dev)) {
    return kRefusedAlsRunning;
  }
  const std::uint8_t count = spectral::period_count(period);
  if (int status = write_register(dev, reg::kInterMeasurementPeriod, count)) return status;
  return read_period(dev, applied);
}

int SpectralSensorDevice::VD6281_GetInterMeasurementTime(unsigned int* period) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (period == nullptr) return kBadArgument;
  return read_period(dev, period);
}

int SpectralSensorDevice::VD6281_GetChannelColor(VD6281_Channel_Id_t channel,
                                                 VD6281_Color_Id_t* color) {
  const VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (color == nullptr) return kBadArgument;
  const int index = channel_index(channel);
  if (!is_channel_index(index)) return kBadArgument;
  const int map = dev->otp_usage_enable != 0 ? dev->otp_color_map % kColorMaps : 0;
  *color = kChannelColors[map][index];
  return kOk;
}
