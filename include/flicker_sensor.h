#pragma once

/// @file
/// The flicker mode of the sensor as a class of its own.

#include <cstdint>

#include "spectral_export.h"
#include "spectral_status.h"
#include "spectral_types.h"

class SpectralSensorDevice;

/// The flicker mode of the sensor as the layered service uses it, on top of the one
/// SpectralSensorDevice. Messages go to the log under "flicker-sensor".
///
/// Operations return 0, 1 for an argument error found here, or the driver's status (see
/// SpectralSensorDevice). One measurement at a time; nothing here locks.
class SPECTRAL_EXPORT FlickerSensor {
 public:
  /// Takes the process's SpectralSensorDevice, creating it where there is none yet; does not own
  /// it.
  FlickerSensor();
  FlickerSensor(const FlickerSensor&) = delete;
  FlickerSensor& operator=(const FlickerSensor&) = delete;
  /// Leaves the sensor and its measurement as they are.
  ~FlickerSensor();

  /// Starts or stops the flicker measurement, as the two operations that follow.
  int Enable(bool enable);

  /// Starts the flicker measurement on the channel chosen, output type 1. Returns the status of
  /// VD6281_SetFlickerOutputType or VD6281_Start; failures are logged.
  int EnableFlickerSensor();

  /// Stops it. Returns the status of VD6281_Stop.
  int DisableFlickerSensor();

  /// Captures `size` bytes of samples (16 a millisecond, up to 16015) through the sensor hub's
  /// tunnel "/dev/sensor_tunnel" into `data`, zeros where the stream gave less. Returns 1 for a
  /// `size` below 1 or where no data came, else the status of the tunnel's operations; failures are
  /// logged.
  int GetFlickerData(int size, unsigned char* data);

  /// Polls the chip's own detector every 10 ms until it has an answer, for at most 2.001 s; then
  /// gives 3. `info` gets its last answer in any case; `info->channel` is the caller's. Returns 1
  /// for a null `info`, or the status of VD6281_GetFlickerFrequency.
  int GetFlickerFrequency(Spectral_FlickerInfo_t* info);

  /// Reads the saturation counter of the running measurement (registers 0x33, 0x34): 3 or more is
  /// saturated. Returns 1 for a null `value`, or the status of VD6281_RdByte.
  int GetSaturationValue(unsigned short* value);

  /// Chooses the flicker channel: exactly one of channels 2..6 (mask 0x3E). Returns 1 for any other
  /// mask (logged).
  int SetFlickerChannelMask(unsigned int mask);

  /// 1 when `mask` is exactly one channel and one of `supported`; else logs why not and gives 0.
  int IsValidSingleChannel(unsigned int mask, unsigned int supported);

  /// Sets the gain, a plain factor, of the channel chosen before; `applied` gets the chip's
  /// nearest. Returns 1 for a null `applied` or another channel (logged), or the status of
  /// VD6281_SetGain.
  int SetGain(unsigned int mask, float gain, float* applied);

  /// Sets the pedestal's value, 0..7, and switches it on. Returns 1 for a larger value, or the
  /// status of the switching; failures of both are logged.
  int SetPedestal(unsigned char value);

  SpectralSensorDevice* m_device;   ///< Not owned.
  std::uint32_t m_channelMask = 0;  ///< The channel chosen, 0 before one is.
};
