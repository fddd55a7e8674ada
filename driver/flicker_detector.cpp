// Reading the chip's own flicker detector.

#include "driver/flicker_detector_rule.h"
#include "driver/register_access.h"
#include "driver/state.h"
#include "driver/status.h"
#include "spectral_sensor_device.h"

using spectral::kBadArgument;
using spectral::kNoDevice;
using spectral::kNotRunning;
using spectral::kOk;

namespace {

// Of the prepared list of the detector's registers.
spectral::DetectorCounters counters_of(const VD6281_Transfer_t& list) {
  const auto word = [&list](int high, int low_mask) {
    return static_cast<std::uint16_t>(spectral::list_value(list, high) << 8 |
                                      (spectral::list_value(list, high + 1) & low_mask));
  };
  return {word(0, 0xFF), word(2, 0xFF), spectral::list_value(list, 4), word(5, 0xFE)};
}

}  // namespace

int SpectralSensorDevice::VD6281_GetFlickerFrequency(VD6281_FlickerInfo_t* info) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (info == nullptr) return kBadArgument;
  if (!spectral::flicker_runs(dev)) return kNotRunning;
  if (int status = spectral::read_list(dev, &dev->flicker_xfer, "VD6281_GetFlickerFrequency")) {
    return status;
  }
  info->frequency = 0;
  info->confidence = 0;
  info->valid = 0;
  const spectral::DetectorCounters counters = counters_of(dev->flicker_xfer);
  if (!spectral::is_complete(counters)) return kOk;
  info->valid = 1;
  info->frequency = spectral::detected_frequency(counters);
  info->confidence = spectral::detector_confidence(counters);
  return kOk;
}
