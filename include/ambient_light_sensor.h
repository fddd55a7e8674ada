#pragma once

/// @file
/// The ambient-light mode of the sensor as a class of its own.

#include <cstdint>

#include "spectral_export.h"
#include "spectral_status.h"
#include "spectral_types.h"
#include "vd6281.h"

class SpectralSensorDevice;

/// The ambient-light mode of the sensor as the layered service uses it, on top of the one
/// SpectralSensorDevice, in the units of ALSConfig and ALSResult: gains as plain factors, exposure
/// in microseconds, values as floats. Messages go to the log under "ambient-light-sensor".
///
/// Operations return 0 (SPECTRAL_OK), 1 (SPECTRAL_ARGUMENT_REFUSED) for an argument error that is
/// found here, or the driver's status (see SpectralSensorDevice).
///
/// **Threads.** Nothing here locks. The operations count as operations of the SpectralSensorDevice
/// that access the chip: only one of them, on whichever object, may run at a time.
class SPECTRAL_EXPORT AmbientLightSensor {
 public:
  /// Takes the SpectralSensorDevice of the process, and creates it where there is none yet. The
  /// object does not own it.
  AmbientLightSensor();
  AmbientLightSensor(const AmbientLightSensor&) = delete;
  AmbientLightSensor& operator=(const AmbientLightSensor&) = delete;
  /// Leaves the sensor and its measurement as they are.
  ~AmbientLightSensor();

  /// Starts a measurement of `mode` (EnableAmbientLightSensor) or stops it
  /// (DisableAmbientLightSensor).
  int Enable(bool enable, Spectral_AlsMode_t mode);

  /// Starts a measurement of `mode` on m_channelMask. Returns the status of VD6281_Start.
  int EnableAmbientLightSensor(Spectral_AlsMode_t mode);

  /// Stops a measurement of `mode`. Returns the status of VD6281_Stop.
  int DisableAmbientLightSensor(Spectral_AlsMode_t mode);

  /// Reads one measurement that was taken with `config`. `result->valid` becomes 1 when it was
  /// ready; otherwise `valid` becomes 0 and nothing else is written. Returns 0 in both cases, 1 for
  /// a null `result`, or the status of VD6281_GetAlsValues.
  int GetAlsValues(const ALSConfig& config, ALSResult* result);

  /// Brings the counts of `raw` to the scale of the smallest gain of the delivered channels (at
  /// most 100.0), in `raw` itself, and fills `result` from the raw counts. `valid` and `timestamp`
  /// are not written. Returns 0.
  int ConvertRawAlsValueToAlsResult(const ALSConfig& config, VD6281_Als_t* raw, ALSResult* result);

  /// Sets the exposure, microseconds; `actual` gets the one that the chip took. Returns the status
  /// of VD6281_SetExposureTime.
  int SetExposureTime(unsigned int exposure, unsigned int* actual);

  /// Sets the gain, a plain factor, of one of the channels in m_channelMask; `actual` gets the one
  /// that the chip took. Returns 1 for a null `actual` or any other channel (which is logged), or
  /// the status of VD6281_SetGain.
  int SetGain(unsigned int channel, float gain, float* actual);

  /// Returns 1 when `channel` is exactly one channel and one of `supported`; otherwise logs the
  /// reason and returns 0.
  int IsValidSingleChannel(unsigned int channel, unsigned int supported);

  /// Sets the period of the synchronous mode, microseconds; `actual` gets the one that the chip
  /// took. Returns the status of VD6281_SetInterMeasurementTime.
  int SetSamplingPeriod(unsigned int period, unsigned int* actual);

  SpectralSensorDevice* m_device;      ///< Not owned.
  std::uint32_t m_channelMask = 0x1B;  ///< Channels measured, bit n = channel index n.
};
