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
/// Operations return 0 (SPECTRAL_OK), 1 (SPECTRAL_ARGUMENT_REFUSED) for an argument error that is
/// found here, or the driver's status (see SpectralSensorDevice).
///
/// **Threads.** Nothing here locks. The operations count as operations of the SpectralSensorDevice
/// that access the chip: only one of them, on whichever object, may run at a time.
class SPECTRAL_EXPORT FlickerSensor {
 public:
  /// Takes the SpectralSensorDevice of the process, and creates it where there is none yet. The
  /// object does not own it.
  FlickerSensor();
  FlickerSensor(const FlickerSensor&) = delete;
  FlickerSensor& operator=(const FlickerSensor&) = delete;
  /// Leaves the sensor and its measurement as they are.
  ~FlickerSensor();

  /// Starts the flicker measurement (EnableFlickerSensor) or stops it (DisableFlickerSensor).
  int Enable(bool enable);

  /// Starts the flicker measurement on m_channelMask with flicker output type 1. Returns the status
  /// of VD6281_SetFlickerOutputType or VD6281_Start; failures are logged.
  int EnableFlickerSensor();

  /// Stops the flicker measurement. Returns the status of VD6281_Stop.
  int DisableFlickerSensor();

  /// Captures `size` bytes of samples (16 a millisecond, up to 16015) through the sensor hub's
  /// tunnel "/dev/sensor_tunnel" into `data`, zeros where the stream gave less. Returns 1 for a
  /// `size` below 1 or where no data came, else the status of the tunnel's operations; failures are
  /// logged.
  int GetFlickerData(int size, unsigned char* data);

  /// Asks the chip's own detector every 10 ms until it has an answer, for at most 2.001 s. `info`
  /// gets the last answer in any case; its channel stays the caller's. Returns 0; 3
  /// (SPECTRAL_TIMED_OUT) without an answer in this time; 1 for a null `info`; or the status of
  /// VD6281_GetFlickerFrequency.
  int GetFlickerFrequency(Spectral_FlickerInfo_t* info);

  /// Reads the saturation counter of the running measurement (registers 0x33 and 0x34); 3 or more
  /// means saturation. Returns 1 for a null `value`, or the status of VD6281_RdByte.
  int GetSaturationValue(unsigned short* value);

  /// Chooses the flicker channel: exactly one of channels 2..6 (mask 0x3E). Returns 1 for any other
  /// mask, which is logged.
  int SetFlickerChannelMask(unsigned int mask);

  /// Returns 1 when `mask` is exactly one channel and one of `supported`; otherwise logs the reason
  /// and returns 0.
  int IsValidSingleChannel(unsigned int mask, unsigned int supported);

  /// Sets the gain, a plain factor, of the channel in m_channelMask; `applied` gets the one that
  /// the chip took. Returns 1 for a null `applied` or another channel (which is logged), or the
  /// status of VD6281_SetGain.
  int SetGain(unsigned int mask, float gain, float* applied);

  /// Sets the pedestal's value, 0..7, and switches the pedestal on. Returns 1 for a larger value,
  /// or the status of the switching. All failures are logged; one of the value alone is not
  /// returned.
  int SetPedestal(unsigned char value);

  SpectralSensorDevice* m_device;   ///< Not owned.
  std::uint32_t m_channelMask = 0;  ///< The chosen channel; 0 before one is chosen.
};
