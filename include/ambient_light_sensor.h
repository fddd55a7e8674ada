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
/// Operations return 0, 1 for an argument error found here, or the driver's status (see
/// SpectralSensorDevice). One measurement at a time; nothing here locks.
class SPECTRAL_EXPORT AmbientLightSensor {
 public:
  /// Takes the process's SpectralSensorDevice, creating it where there is none yet; does not own
  /// it.
  AmbientLightSensor();
  AmbientLightSensor(const AmbientLightSensor&) = delete;
  AmbientLightSensor& operator=(const AmbientLightSensor&) = delete;
  /// Leaves the sensor and its measurement as they are.
  ~AmbientLightSensor();

  /// Starts or stops a measurement of `mode` on m_channelMask, as the two operations that follow.
  int Enable(bool enable, Spectral_AlsMode_t mode);

  /// Starts a measurement of `mode` on m_channelMask. Returns the status of VD6281_Start.
  int EnableAmbientLightSensor(Spectral_AlsMode_t mode);

  /// Stops it. Returns the status of VD6281_Stop.
  int DisableAmbientLightSensor(Spectral_AlsMode_t mode);

  /// Reads one measurement taken with `config`, if it is ready; `result->valid` tells. Without a
  /// result 0 is returned too, and nothing else written. Returns 1 for a null `result`, or the
  /// status of VD6281_GetAlsValues.
  int GetAlsValues(const ALSConfig& config, ALSResult* result);

  /// Brings the counts of `raw` to the scale of the smallest gain delivered (100.0 at most), in
  /// `raw` itself, and fills `result` from its raw counts. `valid` and `timestamp` are not touched.
  /// Returns 0.
  int ConvertRawAlsValueToAlsResult(const ALSConfig& config, VD6281_Als_t* raw, ALSResult* result);

  /// Sets the exposure, microseconds; `actual` gets the chip's nearest. Returns the status of
  /// VD6281_SetExposureTime.
  int SetExposureTime(unsigned int exposure, unsigned int* actual);

  /// Sets the gain, a plain factor, of one of the channels in m_channelMask; `actual` gets the
  /// chip's nearest. Returns 1 for a null `actual` or any other channel (logged), or the status of
  /// VD6281_SetGain.
  int SetGain(unsigned int channel, float gain, float* actual);

  /// 1 when `channel` is exactly one channel and one of `supported`; else logs why not and gives 0.
  int IsValidSingleChannel(unsigned int channel, unsigned int supported);

  /// Sets the period of the synchronous mode, microseconds; `actual` gets the chip's nearest.
  /// Returns the status of VD6281_SetInterMeasurementTime.
  int SetSamplingPeriod(unsigned int period, unsigned int* actual);

  SpectralSensorDevice* m_device;      ///< Not owned.
  std::uint32_t m_channelMask = 0x1B;  ///< Channels measured, bit n = channel index n.
};
