// Starting and stopping the chip's two engines, ALS and flicker, on the channels that they use.

#include "driver/channel.h"
#include "driver/measurement_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/shared_state.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

namespace reg = spectral::reg;
using spectral::als_runs;
using spectral::flicker_runs;
using spectral::read_register;
using spectral::Register;
using spectral::set_state;
using spectral::update_register;
using spectral::write_register;

namespace {

// Under work-around 1, flicker joins only a single-shot ALS without a measurement period.
int check_flicker_may_join_als(VD6281_device* dev) {
  if (dev->wa[1] == 0 || dev->state != VD6281_STATE_ALS) return SPECTRAL_OK;
  if (dev->als_mode == VD6281_MODE_ALS_SYNCHRONOUS) return SPECTRAL_BAD_ARGUMENT;
  std::uint8_t period = 0;
  if (int status = read_register(dev, Register::kInterMeasurementPeriod, &period)) return status;
  return period == 0 ? SPECTRAL_OK : SPECTRAL_BAD_ARGUMENT;
}

// Pauses flicker for an ALS start, as far as the silicon needs it. `control` gets the flicker
// control's value to restore. After two pauses that is the value which the second one read, with
// the run bit clear already: flicker then stays paused, which is intended.
int pause_flicker(VD6281_device* dev, const spectral::FlickerPause& pause, std::uint8_t* control) {
  if (pause.for_channel_6) {
    if (int status =
            update_register(dev, Register::kFlickerControl, reg::kFlickerRun, 0, control)) {
      return status;
    }
  }
  if (pause.join) {
    if (int status = write_register(dev, Register::kMeasurement, reg::kJoinFlicker)) return status;
  }
  if (pause.always) {
    return update_register(dev, Register::kFlickerControl, reg::kFlickerRun, 0, control);
  }
  return SPECTRAL_OK;
}

// Restores the flicker control, once for each pause.
int resume_flicker(VD6281_device* dev, const spectral::FlickerPause& pause, std::uint8_t control) {
  for (const bool paused : {pause.always, pause.for_channel_6}) {
    if (!paused) continue;
    if (int status = write_register(dev, Register::kFlickerControl, control)) return status;
  }
  return SPECTRAL_OK;
}

// Starts the ALS engine on channels that are enabled already.
int start_als_engine(VD6281_device* dev, std::uint8_t channels, unsigned int mode) {
  const bool beside_flicker = dev->state == VD6281_STATE_FLICKER;
  const auto pause = spectral::flicker_pause(dev->wa, beside_flicker, channels);
  std::uint8_t flicker_control = 0;
  if (int status = pause_flicker(dev, pause, &flicker_control)) return status;
  const bool synchronous = mode == VD6281_MODE_ALS_SYNCHRONOUS;
  if (int status = write_register(dev, Register::kMeasurement,
                                  synchronous ? reg::kSynchronousAls : reg::kSingleShotAls)) {
    return status;
  }
  return resume_flicker(dev, pause, flicker_control);
}

}  // namespace

int SpectralSensorDevice::VD6281_Start(VD6281_Mode_t mode, unsigned char channels) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (!spectral::is_channel_mask(channels)) return SPECTRAL_BAD_ARGUMENT;
  switch (mode) {
    case VD6281_MODE_ALS_SINGLE_SHOT:
      return start_single_shot(dev, channels);
    case VD6281_MODE_ALS_SYNCHRONOUS:
      return start_synchronous(dev, channels);
    case VD6281_MODE_FLICKER:
      return start_flicker(dev, channels);
  }
  return SPECTRAL_BAD_ARGUMENT;
}

int SpectralSensorDevice::VD6281_Stop(VD6281_Mode_t mode) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  switch (mode) {
    case VD6281_MODE_ALS_SINGLE_SHOT:
      return stop_single_shot(dev);
    case VD6281_MODE_ALS_SYNCHRONOUS:
      return stop_synchronous(dev);
    case VD6281_MODE_FLICKER:
      return stop_flicker(dev);
  }
  return SPECTRAL_BAD_ARGUMENT;
}

int SpectralSensorDevice::start_single_shot(VD6281_device* dev, unsigned char channels) {
  return start_als(dev, channels, VD6281_MODE_ALS_SINGLE_SHOT);
}

int SpectralSensorDevice::start_synchronous(VD6281_device* dev, unsigned char channels) {
  return start_als(dev, channels, VD6281_MODE_ALS_SYNCHRONOUS);
}

int SpectralSensorDevice::stop_single_shot(VD6281_device* dev) {
  return stop_als(dev, VD6281_MODE_ALS_SINGLE_SHOT);
}

int SpectralSensorDevice::stop_synchronous(VD6281_device* dev) {
  return stop_als(dev, VD6281_MODE_ALS_SYNCHRONOUS);
}

unsigned char SpectralSensorDevice::dev_enable_dc_chan_en_for_mode(VD6281_device* dev,
                                                                   unsigned int mode,
                                                                   unsigned char channels) {
  return spectral::dc_enable_for_start(dev->dc_chan_en, mode == VD6281_MODE_FLICKER, channels,
                                       dev->wa[0] != 0);
}

unsigned char SpectralSensorDevice::dev_disable_dc_chan_en_for_mode(VD6281_device* dev,
                                                                    unsigned int mode) {
  return spectral::dc_enable_for_stop(dev->dc_chan_en, mode == VD6281_MODE_FLICKER,
                                      dev->als_channels, dev->flicker_channels, dev->wa[0] != 0);
}

int SpectralSensorDevice::dev_enable_channels_for_mode(VD6281_device* dev, unsigned int mode,
                                                       unsigned char channels) {
  const std::uint8_t dc_enable = dev_enable_dc_chan_en_for_mode(dev, mode, channels);
  if ((channels & (dev->als_channels | dev->flicker_channels)) != 0) return SPECTRAL_BAD_ARGUMENT;
  if (dc_enable != dev->dc_chan_en) {
    if (int status = write_register(dev, Register::kDcEnable, dc_enable)) return status;
  }
  if (spectral::needs_ac_enable(channels, dev->wa[3] != 0) && dev->ac_chan_en == 0) {
    if (int status = write_register(dev, Register::kAcEnable, reg::kOn)) {
      write_register(dev, Register::kDcEnable, dev->dc_chan_en);
      return status;
    }
    dev->ac_chan_en = 1;
  }
  dev->dc_chan_en = dc_enable;
  (mode == VD6281_MODE_FLICKER ? dev->flicker_channels : dev->als_channels) = channels;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::dev_disable_channels_for_mode(VD6281_device* dev, unsigned int mode) {
  const bool flicker = mode == VD6281_MODE_FLICKER;
  std::uint8_t& stopped = flicker ? dev->flicker_channels : dev->als_channels;
  const std::uint8_t other = flicker ? dev->als_channels : dev->flicker_channels;
  const std::uint8_t dc_enable = dev_disable_dc_chan_en_for_mode(dev, mode);
  if (dc_enable != dev->dc_chan_en) {
    if (int status = write_register(dev, Register::kDcEnable, dc_enable)) return status;
  }
  if (spectral::frees_ac_enable(stopped, other, dev->wa[3] != 0)) {
    if (int status = write_register(dev, Register::kAcEnable, reg::kOff)) {
      write_register(dev, Register::kDcEnable, dev->dc_chan_en);
      return status;
    }
    dev->ac_chan_en = 0;
  }
  dev->dc_chan_en = dc_enable;
  stopped = 0;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::start_als(VD6281_device* dev, unsigned char channels, unsigned int mode) {
  if (als_runs(dev)) return SPECTRAL_RUNNING;
  if (mode == VD6281_MODE_ALS_SYNCHRONOUS) {
    if (dev->wa[2] != 0 && (channels & spectral::kChannel6) != 0) return SPECTRAL_BAD_ARGUMENT;
    if (dev->wa[1] != 0 && dev->state == VD6281_STATE_FLICKER) return SPECTRAL_BAD_ARGUMENT;
  }
  if (int status = dev_enable_channels_for_mode(dev, mode, channels)) return status;
  if (int status = start_als_engine(dev, channels, mode)) {
    dev_disable_channels_for_mode(dev, mode);
    return status;
  }
  set_state(dev, dev->state == VD6281_STATE_IDLE ? VD6281_STATE_ALS : VD6281_STATE_ALS_AND_FLICKER);
  dev->als_mode = mode;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::stop_als(VD6281_device* dev, unsigned int mode) {
  if (!als_runs(dev) || dev->als_mode != mode) return SPECTRAL_NOT_RUNNING;
  if (int status = write_register(dev, Register::kMeasurement, reg::kStop)) return status;
  if (int status = dev_disable_channels_for_mode(dev, mode)) return status;
  set_state(dev, dev->state == VD6281_STATE_ALS ? VD6281_STATE_IDLE : VD6281_STATE_FLICKER);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::start_flicker(VD6281_device* dev, unsigned char channels) {
  const int index = spectral::channel_index(channels);
  if (!spectral::is_channel_index(index)) return SPECTRAL_BAD_ARGUMENT;
  if (flicker_runs(dev)) return SPECTRAL_RUNNING;
  if (int status = check_flicker_may_join_als(dev)) return status;
  if (int status = dev_enable_channels_for_mode(dev, VD6281_MODE_FLICKER, channels)) return status;
  if (int status = enable_flicker_output_mode(dev)) {
    dev_disable_channels_for_mode(dev, VD6281_MODE_FLICKER);
    return status;
  }
  const auto select_and_run =
      static_cast<std::uint8_t>(spectral::flicker_select(index) | reg::kFlickerRun);
  if (int status = update_register(dev, Register::kFlickerControl, reg::kFlickerSelectAndRun,
                                   select_and_run)) {
    disable_flicker_output_mode(dev);
    dev_disable_channels_for_mode(dev, VD6281_MODE_FLICKER);
    return status;
  }
  set_state(dev,
            dev->state == VD6281_STATE_IDLE ? VD6281_STATE_FLICKER : VD6281_STATE_ALS_AND_FLICKER);
  return SPECTRAL_OK;
}

// A clean-up that fails is not reported: the engine is off, so the measurement has stopped.
int SpectralSensorDevice::stop_flicker(VD6281_device* dev) {
  if (!flicker_runs(dev)) return SPECTRAL_NOT_RUNNING;
  if (int status = update_register(dev, Register::kFlickerControl, reg::kFlickerRun, 0))
    return status;
  disable_flicker_output_mode(dev);
  dev_disable_channels_for_mode(dev, VD6281_MODE_FLICKER);
  set_state(dev, dev->state == VD6281_STATE_FLICKER ? VD6281_STATE_IDLE : VD6281_STATE_ALS);
  return SPECTRAL_OK;
}

int SpectralSensorDevice::VD6281_SetFlickerOutputType(VD6281_FlickerOutputType_t type) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return SPECTRAL_NO_DEVICE;
  if (flicker_runs(dev)) return SPECTRAL_RUNNING;
  if (!spectral::has_flicker_output(type, is_cut_2_0(dev), is_cut_2_2(dev))) {
    return SPECTRAL_UNSUPPORTED;
  }
  dev->flicker_output_type = type;
  return SPECTRAL_OK;
}

int SpectralSensorDevice::ac_mode_update(unsigned char mask, unsigned char bits) {
  return update_register(&m_VD6281Device[0], Register::kFlickerControl, mask, bits);
}

int SpectralSensorDevice::enable_flicker_output_mode(VD6281_device* dev) {
  const spectral::FlickerOutput output = spectral::flicker_output(dev->flicker_output_type);
  if (int status = update_register(dev, Register::kFlickerControl, reg::kAcMode, output.ac_mode)) {
    return status;
  }
  if (int status = write_register(dev, Register::kFlickerSetting, output.setting)) return status;
  if (int status = write_register(dev, Register::kFlickerSetting2, output.setting2)) return status;
  if (!is_cut_2_2(dev)) return SPECTRAL_OK;
  return write_register(dev, Register::kCut22Control, output.cut_2_2_control);
}

int SpectralSensorDevice::disable_flicker_output_mode(VD6281_device* dev) {
  if (is_cut_2_2(dev)) {
    if (int status = write_register(dev, Register::kCut22Control, reg::kCut22Idle)) return status;
  }
  if (int status = update_register(dev, Register::kFlickerControl, reg::kAcMode, 0)) return status;
  if (int status = write_register(dev, Register::kFlickerSetting, 0)) return status;
  return write_register(dev, Register::kFlickerSetting2, 0);
}
