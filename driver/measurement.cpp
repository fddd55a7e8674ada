// Starting and stopping the chip's two engines, ALS and flicker, and the channels they use.

#include "driver/channel.h"
#include "driver/measurement_rule.h"
#include "driver/register_access.h"
#include "driver/register_map.h"
#include "driver/state.h"
#include "driver/status.h"
#include "spectral_sensor_device.h"

namespace reg = spectral::reg;
using spectral::als_runs;
using spectral::flicker_runs;
using spectral::kBadArgument;
using spectral::kNoDevice;
using spectral::kNotRunning;
using spectral::kOk;
using spectral::kRefusedRunning;
using spectral::kUnsupported;
using spectral::read_register;
using spectral::set_state;
using spectral::update_register;
using spectral::write_register;

namespace {

struct FlickerOutput {
  std::uint8_t ac_mode;  // bits 5..4 of the flicker control
  std::uint8_t setting;
  std::uint8_t setting2;
  std::uint8_t cut_2_2_control;
};

constexpr FlickerOutput kFlickerOutputs[] = {
    {0x00, 2, 15, 1}, {0x20, 1, 15, 1}, {0x10, 0, 0, 0}, {0x00, 1, 0, 5}, {0x00, 0, 0, 2},
};
constexpr FlickerOutput kOtherFlickerOutput = {0x00, 0, 0, 1};

const FlickerOutput& flicker_output(std::uint32_t type) {
  return type < std::size(kFlickerOutputs) ? kFlickerOutputs[type] : kOtherFlickerOutput;
}

// Flicker channel select and run bit: select 1 is channel 6, index + 2 the others.
std::uint8_t flicker_select_and_run(int channel_index) {
  const int select = channel_index == reg::kChannels - 1 ? 1 : channel_index + 2;
  return static_cast<std::uint8_t>(select << 1 | reg::kFlickerRun);
}

// Silicon with work-around 1 lets flicker join only a single-shot ALS without a period.
int check_flicker_may_join_als(VD6281_device* dev) {
  if (dev->wa[1] == 0 || dev->state != VD6281_STATE_ALS) return kOk;
  if (dev->als_mode == VD6281_MODE_ALS_SYNCHRONOUS) return kBadArgument;
  std::uint8_t period = 0;
  if (int status = read_register(dev, reg::kInterMeasurementPeriod, &period)) return status;
  return period == 0 ? kOk : kBadArgument;
}

// Starts the ALS engine on channels already enabled, pausing a running flicker where the silicon
// asks for it.
int start_als_engine(VD6281_device* dev, std::uint8_t channels, unsigned int mode) {
  const bool beside_flicker = dev->state == VD6281_STATE_FLICKER;
  const bool pause_for_channel_6 =
      beside_flicker && dev->wa[4] != 0 && (channels & reg::kChannel6) != 0;
  const bool pause = beside_flicker && dev->wa[5] != 0;
  std::uint8_t flicker_control = 0;
  if (pause_for_channel_6) {
    if (int status =
            update_register(dev, reg::kFlickerControl, reg::kFlickerRun, 0, &flicker_control)) {
      return status;
    }
  }
  if (beside_flicker && dev->wa[1] != 0) {
    if (int status = write_register(dev, reg::kMeasurement, reg::kJoinFlicker)) return status;
  }
  if (pause) {
    if (int status =
            update_register(dev, reg::kFlickerControl, reg::kFlickerRun, 0, &flicker_control)) {
      return status;
    }
  }
  const bool synchronous = mode == VD6281_MODE_ALS_SYNCHRONOUS;
  if (int status = write_register(dev, reg::kMeasurement,
                                  synchronous ? reg::kSynchronousAls : reg::kSingleShotAls)) {
    return status;
  }
  // Both pauses share one remembered value, the later: after both, flicker stays paused.
  if (pause) {
    if (int status = write_register(dev, reg::kFlickerControl, flicker_control)) return status;
  }
  if (pause_for_channel_6) {
    if (int status = write_register(dev, reg::kFlickerControl, flicker_control)) return status;
  }
  return kOk;
}

}  // namespace

int SpectralSensorDevice::VD6281_Start(VD6281_Mode_t mode, unsigned char channels) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (!spectral::is_channel_mask(channels)) return kBadArgument;
  switch (mode) {
    case VD6281_MODE_ALS_SINGLE_SHOT:
      return start_single_shot(dev, channels);
    case VD6281_MODE_ALS_SYNCHRONOUS:
      return start_synchronous(dev, channels);
    case VD6281_MODE_FLICKER:
      return start_flicker(dev, channels);
  }
  return kBadArgument;
}

int SpectralSensorDevice::VD6281_Stop(VD6281_Mode_t mode) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  switch (mode) {
    case VD6281_MODE_ALS_SINGLE_SHOT:
      return stop_single_shot(dev);
    case VD6281_MODE_ALS_SYNCHRONOUS:
      return stop_synchronous(dev);
    case VD6281_MODE_FLICKER:
      return stop_flicker(dev);
  }
  return kBadArgument;
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
  if ((channels & (dev->als_channels | dev->flicker_channels)) != 0) return kBadArgument;
  if (dc_enable != dev->dc_chan_en) {
    if (int status = write_register(dev, reg::kDcEnable, dc_enable)) return status;
  }
  if (spectral::needs_ac_enable(channels, dev->wa[3] != 0) && dev->ac_chan_en == 0) {
    if (int status = write_register(dev, reg::kAcEnable, reg::kOn)) {
      write_register(dev, reg::kDcEnable, dev->dc_chan_en);
      return status;
    }
    dev->ac_chan_en = 1;
  }
  dev->dc_chan_en = dc_enable;
  (mode == VD6281_MODE_FLICKER ? dev->flicker_channels : dev->als_channels) = channels;
  return kOk;
}

int SpectralSensorDevice::dev_disable_channels_for_mode(VD6281_device* dev, unsigned int mode) {
  const bool flicker = mode == VD6281_MODE_FLICKER;
  std::uint8_t& stopped = flicker ? dev->flicker_channels : dev->als_channels;
  const std::uint8_t other = flicker ? dev->als_channels : dev->flicker_channels;
  const std::uint8_t dc_enable = dev_disable_dc_chan_en_for_mode(dev, mode);
  if (dc_enable != dev->dc_chan_en) {
    if (int status = write_register(dev, reg::kDcEnable, dc_enable)) return status;
  }
  if (spectral::frees_ac_enable(stopped, other, dev->wa[3] != 0)) {
    if (int status = write_register(dev, reg::kAcEnable, reg::kOff)) {
      write_register(dev, reg::kDcEnable, dev->dc_chan_en);
      return status;
    }
    dev->ac_chan_en = 0;
  }
  dev->dc_chan_en = dc_enable;
  stopped = 0;
  return kOk;
}

int SpectralSensorDevice::start_als(VD6281_device* dev, unsigned char channels, unsigned int mode) {
  if (als_runs(dev)) return kRefusedRunning;
  if (mode == VD6281_MODE_ALS_SYNCHRONOUS) {
    if (dev->wa[2] != 0 && (channels & reg::kChannel6) != 0) return kBadArgument;
    if (dev->wa[1] != 0 && dev->state == VD6281_STATE_FLICKER) return kBadArgument;
  }
  if (int status = dev_enable_channels_for_mode(dev, mode, channels)) return status;
  if (int status = start_als_engine(dev, channels, mode)) {
    dev_disable_channels_for_mode(dev, mode);
    return status;
  }
  set_state(dev, dev->state == VD6281_STATE_IDLE ? VD6281_STATE_ALS : VD6281_STATE_ALS_AND_FLICKER);
  dev->als_mode = mode;
  return kOk;
}

int SpectralSensorDevice::stop_als(VD6281_device* dev, unsigned int mode) {
  if (!als_runs(dev) || dev->als_mode != mode) return kNotRunning;
  if (int status = write_register(dev, reg::kMeasurement, reg::kStop)) return status;
  if (int status = dev_disable_channels_for_mode(dev, mode)) return status;
  set_state(dev, dev->state == VD6281_STATE_ALS ? VD6281_STATE_IDLE : VD6281_STATE_FLICKER);
  return kOk;
}

int SpectralSensorDevice::start_flicker(VD6281_device* dev, unsigned char channels) {
  const int index = spectral::channel_index(channels);
  if (!spectral::is_channel_index(index)) return kBadArgument;
  if (flicker_runs(dev)) return kRefusedRunning;
  if (int status = check_flicker_may_join_als(dev)) return status;
  if (int status = dev_enable_channels_for_mode(dev, VD6281_MODE_FLICKER, channels)) return status;
  if (int status = enable_flicker_output_mode(dev)) {
    dev_disable_channels_for_mode(dev, VD6281_MODE_FLICKER);
    return status;
  }
  if (int status = update_register(dev, reg::kFlickerControl, reg::kFlickerSelectAndRun,
                                   flicker_select_and_run(index))) {
    disable_flicker_output_mode(dev);
    dev_disable_channels_for_mode(dev, VD6281_MODE_FLICKER);
    return status;
  }
  set_state(dev,
            dev->state == VD6281_STATE_IDLE ? VD6281_STATE_FLICKER : VD6281_STATE_ALS_AND_FLICKER);
  return kOk;
}

// Once the engine is off the stop has happened: a clean-up that fails does not undo it.
int SpectralSensorDevice::stop_flicker(VD6281_device* dev) {
  if (!flicker_runs(dev)) return kNotRunning;
  if (int status = update_register(dev, reg::kFlickerControl, reg::kFlickerRun, 0)) return status;
  disable_flicker_output_mode(dev);
  dev_disable_channels_for_mode(dev, VD6281_MODE_FLICKER);
  set_state(dev, dev->state == VD6281_STATE_FLICKER ? VD6281_STATE_IDLE : VD6281_STATE_ALS);
  return kOk;
}

int SpectralSensorDevice::VD6281_SetFlickerOutputType(VD6281_FlickerOutputType_t type) {
  VD6281_device* dev = get_active_device();
  if (dev == nullptr) return kNoDevice;
  if (flicker_runs(dev)) return kRefusedRunning;
  switch (type) {
    case VD6281_FLICKER_OUTPUT_0:
    case VD6281_FLICKER_OUTPUT_1:
      break;
    case VD6281_FLICKER_OUTPUT_2:
      if (is_cut_2_0(dev)) return kUnsupported;
      break;
    case VD6281_FLICKER_OUTPUT_3:
    case VD6281_FLICKER_OUTPUT_4:
      if (!is_cut_2_2(dev)) return kUnsupported;
      break;
    default:
      return kUnsupported;
  }
  dev->flicker_output_type = type;
  return kOk;
}

int SpectralSensorDevice::ac_mode_update(unsigned char mask, unsigned char bits) {
  return update_register(&m_VD6281Device[0], reg::kFlickerControl, mask, bits);
}

int SpectralSensorDevice::enable_flicker_output_mode(VD6281_device* dev) {
  const FlickerOutput& output = flicker_output(dev->flicker_output_type);
  if (int status = update_register(dev, reg::kFlickerControl, reg::kAcMode, output.ac_mode)) {
    return status;
  }
  if (int status = write_register(dev, reg::kFlickerSetting, output.setting)) return status;
  if (int status = write_register(dev, reg::kFlickerSetting2, output.setting2)) return status;
  if (!is_cut_2_2(dev)) return kOk;
  return write_register(dev, reg::kCut22Control, output.cut_2_2_control);
}

int SpectralSensorDevice::disable_flicker_output_mode(VD6281_device* dev) {
  if (is_cut_2_2(dev)) {
    if (int status = write_register(dev, reg::kCut22Control, reg::kCut22Idle)) return status;
  }
  if (int status = update_register(dev, reg::kFlickerControl, reg::kAcMode, 0)) return status;
  if (int status = write_register(dev, reg::kFlickerSetting, 0)) return status;
  return write_register(dev, reg::kFlickerSetting2, 0);
}
