// Reading the counts of a running ALS measurement.

#include "driver/als_readout_rule.h"
#include "driver/channel.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/state.h"
#include "driver/status.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::has_channel;
using spectral::kBadArgument;
using spectral::kNoAlsRunning;
using spectral::kNoDevice;
using spectral::kOk;
using spectral::read_register;
using spectral::write_registers;

namespace {

constexpr spectral::RegisterWrite kAcknowledgeSequence[] = {
    {reg::kStatus, reg::kAcknowledge},
    {reg::kStatus, reg::kRearm},
};

std::uint32_t count_of(std::uint8_t high, std::uint8_t middle, std::uint8_t low) {
  return static_cast<std::uint32_t>(high << 16 | middle << 8 | low);
}

// The checks that both readers share.
int check_readout(const VD6281_device* dev, std::uint8_t channels, const VD6281_Als_t* values,
                  const unsigned char* ready) {
  if (dev == nullptr) return kNoDevice;
  if (channels > reg::kAllChannels || values == nullptr || ready == nullptr) return kBadArgument;
  return spectral::als_runs(dev) ? kOk : kNoAlsRunning;
}

}  // namespace

int SpectralSensorDevice::VD6281_GetAlsValues(unsigned char channels, VD6281_Als_t* values,
                                              unsigned char* ready) {
  VD6281_device* dev = get_active_device();
  if (int status = check_readout(dev, channels, values, ready)) return status;
  if (int status = is_data_ready(dev, ready)) return status;
  if (*ready == 0) return kOk;
  if (int status = spectral::read_list(dev, &dev->als_xfer, "VD6281_GetAlsValues")) return status;
  for (int i = 0; i < reg::kChannels; ++i) {
    const int first = reg::kAlsResultStride * i;
    values->raw_count[i] = count_of(spectral::list_value(dev->als_xfer, first),
                                    spectral::list_value(dev->als_xfer, first + 1),
                                    spectral::list_value(dev->als_xfer, first + 2));
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
  if (*ready == 0) return kOk;
  const std::uint8_t delivered = channels & dev->als_channels;
  for (int i = 0; i < reg::kChannels; ++i) {
    if (!has_channel(delivered, i)) continue;
    if (int status = read_channel(dev, i, &values->raw_count[i])) return status;
  }
  values->channels = delivered;
  cook_values(dev, values);
  return acknowledge_irq(dev);
}

// Ready is the answer on a failure too: whoever polls stops, and meets the status.
int SpectralSensorDevice::is_data_ready(VD6281_device* dev, unsigned char* ready) {
  *ready = 1;
  std::uint8_t value = 0;
  if (int status = read_register(dev, reg::kStatus, &value)) return status;
  if ((value & reg::kNoResult) != 0) *ready = 0;
  return kOk;
}

int SpectralSensorDevice::read_channel(VD6281_device* dev, int index, unsigned int* count) {
  std::uint8_t bytes[3] = {};
  for (int i = 0; i < 3; ++i) {
    const int address = reg::kAlsResults + reg::kAlsResultStride * index + i;
    if (int status = read_register(dev, static_cast<std::uint8_t>(address), &bytes[i])) {
      return status;
    }
  }
  *count = count_of(bytes[0], bytes[1], bytes[2]);
  return kOk;
}

int SpectralSensorDevice::acknowledge_irq(VD6281_device* dev) {
  return write_registers(dev, kAcknowledgeSequence);
}

void SpectralSensorDevice::cook_values(VD6281_device* dev, VD6281_Als_t* values) {
  cook_values_slope(dev, values);
}

void SpectralSensorDevice::cook_values_slope(VD6281_device* dev, VD6281_Als_t* values) {
  for (int i = 0; i < reg::kChannels; ++i) {
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
