// Reading the counts of a running ALS measurement.

#include "driver/als_readout_rule.h"
#include "driver/channel.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::count_of;
using spectral::has_channel;
using spectral::kChannels;
using spectral::list_value;
using spectral::read_register;
using spectral::Register;

namespace {

constexpr spectral::RegisterWrite kAcknowledgeSequence[] = {
    {Register::kStatus, reg::kAcknowledge},
    {Register::kStatus, reg::kRearm},
};

// The checks that both readers share.
int check_readout(const VD6281_device* dev, std::uint8_t channels, const VD6281_Als_t* values,
                  const unsigned char* ready) {
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (channels > spectral::kAllChannels || values == nullptr || ready == nullptr) {
    return SPECTRAL_BAD_ARGUMENT;
  }
  return spectral::als_runs(dev) ? SPECTRAL_OK : SPECTRAL_NO_ALS_RUNNING;
}

}  // namespace

int SpectralSensorDevice::VD6281_GetAlsValues(unsigned char channels, VD6281_Als_t* values,
                                              unsigned char* ready) {
  VD6281_device* dev = get_active_device();
  if (int status = check_readout(dev, channels, values, ready)) return status;
  if (int status = is_data_ready(dev, ready)) return status;
  if (*ready == 0) return SPECTRAL_OK;
  if (int status = spectral::read_list(dev, &dev->als_xfer, "VD6281_GetAlsValues")) return status;
  for (int i = 0; i < kChannels; ++i) {
    const int first = reg::kAlsResultStride * i;
    values->raw_count[i] =
        count_of(list_value(dev->als_xfer, first), list_value(dev->als_xfer, first + 1),
                 list_value(dev->als_xfer, first + 2));
  }
  values->channels = channels & dev->als_channels;
  cook_values(dev, values);
  return acknowledge_irq(dev);
}

int SpectralSensorDevice::VD6281_GetAlsValues_Ref(unsigned char channels, VD6281_Als_t* values,
                                                  unsigned char* ready) {
  VD6281_device* dev = get_active_device();
  if (int status = check_readout(dev, channels, values, ready)) return status;
  if (int status = is_data_ready(dev, ready)) return status;
  if (*ready == 0) return SPECTRAL_OK;
  const std::uint8_t delivered = channels & dev->als_channels;
  for (int i = 0; i < kChannels; ++i) {
    if (!has_channel(delivered, i)) continue;
    if (int status = read_channel(dev, i, &values->raw_count[i])) return status;
  }
  values->channels = delivered;
  cook_values(dev, values);
  return acknowledge_irq(dev);
}

// A failed read reports "ready" as well, so that whoever polls stops and sees the status.
int SpectralSensorDevice::is_data_ready(VD6281_device* dev, unsigned char* ready) {
  *ready = 1;
  std::uint8_t value = 0;
  if (int status = read_register(dev, Register::kStatus, &value)) return status;
  if ((value & reg::kNoResult) != 0) *ready = 0;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::read_channel(VD6281_device* dev, int index, unsigned int* count) {
  const Register first = Register::kAlsResults + reg::kAlsResultStride * index;
  std::uint8_t bytes[3] = {};
  for (int i = 0; i < 3; ++i) {
    if (int status = read_register(dev, first + i, &bytes[i])) return status;
  }
  *count = count_of(bytes[0], bytes[1], bytes[2]);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::acknowledge_irq(VD6281_device* dev) {
  return spectral::write_registers(dev, kAcknowledgeSequence);
}

void SpectralSensorDevice::cook_values(VD6281_device* dev, VD6281_Als_t* values) {
  cook_values_slope(dev, values);
}

void SpectralSensorDevice::cook_values_slope(VD6281_device* dev, VD6281_Als_t* values) {
  for (int i = 0; i < kChannels; ++i) {
    if (!has_channel(dev->als_channels, i)) continue;
    const std::uint8_t slope =
        dev->otp_usage_enable != 0 ? dev->otp_slope[i] : spectral::kUnitSlope;
    values->count[i] = spectral::correct_slope(slope, values->raw_count[i]);
  }
}

unsigned int SpectralSensorDevice::cook_values_slope_channel(unsigned char slope,
                                                             unsigned int raw) {
  return spectral::correct_slope(slope, raw);
}
