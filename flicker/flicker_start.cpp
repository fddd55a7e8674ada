// Starting the flicker measurement, with the gain searched or as it is, and stopping it.

#include "driver/exposure_gain_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/state.h"
#include "driver/status.h"
#include "flicker/flicker_flow.h"
#include "flicker/flicker_start_rule.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::kDriverTag;
using spectral::kFailed;
using spectral::kNoDevice;
using spectral::kOk;

namespace {

int start_engine(SpectralSensorDevice* sensor) {
  sensor->VD6281_SetFlickerOutputType(VD6281_FLICKER_OUTPUT_1);  // refused while flicker runs
  return sensor->VD6281_Start(VD6281_MODE_FLICKER,
                              static_cast<std::uint8_t>(sensor->m_flkChannelMask));
}

int stop_engine(SpectralSensorDevice* sensor) {
  VD6281_device* dev = sensor->get_active_device();
  return dev != nullptr ? sensor->stop_flicker(dev) : kNoDevice;
}

// `applied` keeps its value where the gain is refused.
int set_gain(SpectralSensorDevice* sensor, std::uint16_t gain, std::uint16_t* applied) {
  return sensor->VD6281_SetGain(static_cast<VD6281_Channel_Id_t>(sensor->m_flkChannelMask), gain,
                                applied);
}

// The gain search's trials on the device. None ends the search: their results are summed.
class Trials {
 public:
  explicit Trials(SpectralSensorDevice* sensor) : m_sensor(sensor) {}

  int errors() const { return m_errors.value(); }

  bool saturates(const spectral::GainChoice& choice) {
    std::uint16_t applied = 0;
    start(choice, &applied);
    const bool saturated = poll_saturation();
    m_errors.add(stop_engine(m_sensor));
    return saturated;
  }

  void start(const spectral::GainChoice& choice, std::uint16_t* applied) {
    m_sensor->m_flkChannelMask = choice.channel;
    m_errors.add(set_gain(m_sensor, spectral::kGainQ8[choice.index], applied));
    m_errors.add(start_engine(m_sensor));
  }

 private:
  bool poll_saturation() {
    VD6281_device* dev = &SpectralSensorDevice::m_VD6281Device[0];
    return spectral::poll_saturation(m_sensor, [this, dev](int* value) {
      // A read that fails leaves its byte as it was last.
      spectral::read_register(dev, reg::kFlickerDetector, &m_high);
      spectral::read_register(dev, reg::kFlickerDetector + 1, &m_low);
      *value = m_high << 8 | m_low;
      return true;
    });
  }

  SpectralSensorDevice* m_sensor;
  spectral::ErrorSum m_errors;
  std::uint8_t m_high = 0;
  std::uint8_t m_low = 0;
};

}  // namespace

int SpectralSensorDevice::StartExpFLK_AutoGain() {
  Trials trials(this);
  if (spectral::search_and_start(&trials, &m_flkGain) == 0) return kOk;
  SPECTRAL_LOG_ERROR(kDriverTag, "%s: Cannot start FLK  retVal=%d, channel=0x%x, gain=0x%x",
                     "StartExpFLK_AutoGain", trials.errors(), m_flkChannelMask, m_flkGain);
  return kFailed;
}

int SpectralSensorDevice::StartExpFLK() {
  std::uint16_t applied = m_flkGain;
  set_gain(this, m_flkGain, &applied);
  const VD6281_device* dev = get_active_device();
  if (dev != nullptr && !spectral::flicker_runs(dev)) ac_mode_update(reg::kPedestalDisable, 0);
  VD6281_SetControl(VD6281_CONTROL_PEDESTAL_VALUE, reg::kUsualPedestal);
  const int status = start_engine(this);
  if (status == kOk) m_flkGain = applied;
  return spectral::answer_flicker_start(status, kDriverTag, m_flkChannelMask);
}

int SpectralSensorDevice::StopExpFLK() {
  return spectral::answer_flicker_stop(stop_engine(this), kDriverTag);
}
