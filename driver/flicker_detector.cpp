// Reading the chip's own flicker detector once.

#include "driver/flicker_detector_rule.h"
#include "driver/register_access.h"
#include "driver/shared_state.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace {

// The counters in the prepared list of the detector's registers.
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
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (info == nullptr) return SPECTRAL_BAD_ARGUMENT;
  if (!spectral::flicker_runs(dev)) return SPECTRAL_NOT_RUNNING;
  if (int status = spectral::read_list(dev, &dev->flicker_xfer, "VD6281_GetFlickerFrequency")) {
    return status;
  }
  info->frequency = 0;
  info->confidence = 0;
  info->valid = 0;
  const spectral::DetectorCounters counters = counters_of(dev->flicker_xfer);
  if (!spectral::is_complete(counters)) return SPECTRAL_OK;
  info->valid = 1;
  info->frequency = spectral::detected_frequency(counters);
  info->confidence = spectral::detector_confidence(counters);
  return SPECTRAL_OK;
}
