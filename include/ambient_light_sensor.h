#pragma once

// AmbientLightSensor: the ambient-light mode of the sensor as the layered service uses it, on top
// of the one SpectralSensorDevice, in the units of ALSConfig and ALSResult: gains as plain factors,
// exposure in microseconds, values as floats. Messages go to the log under "ambient-light-sensor".
//
// Operations return 0, 1 for an argument error found here, or the driver's status
// (spectral_sensor_device.h). One measurement at a time; nothing here locks.

#include <cstdint>

#include "spectral_export.h"
#include "spectral_types.h"
#include "vd6281.h"

class SpectralSensorDevice;

class SPECTRAL_EXPORT AmbientLightSensor {
 public:
  // Takes the process's SpectralSensorDevice, creating it where there is none yet; does not own it.
  AmbientLightSensor();
  AmbientLightSensor(const AmbientLightSensor&) = delete;
  AmbientLightSensor& operator=(const AmbientLightSensor&) = delete;
  ~AmbientLightSensor();

  // Starts or stops a measurement on m_channelMask.
  int Enable(bool enable, Spectral_AlsMode_t mode);
  int EnableAmbientLightSensor(Spectral_AlsMode_t mode);
  int DisableAmbientLightSensor(Spectral_AlsMode_t mode);

  // Reads one measurement taken with `config`, if it is ready; result->valid tells. Without a
  // result 0 is returned too, and nothing else written.
  int GetAlsValues(const ALSConfig& config, ALSResult* result);

  // Brings the counts of `raw` to the scale of the smallest gain delivered (100.0 at most), in
  // `raw` itself, and fills `result` from its raw counts. `valid` and `timestamp` are not touched.
  // 0.
  int ConvertRawAlsValueToAlsResult(const ALSConfig& config, VD6281_Als_t* raw, ALSResult* result);

  // Sets the exposure, microseconds; `actual` gets the chip's nearest.
  int SetExposureTime(unsigned int exposure, unsigned int* actual);

  // Sets the gain, a plain factor, of one of the channels in m_channelMask; `actual` gets the
  // chip's nearest.
  int SetGain(unsigned int channel, float gain, float* actual);

  // 1 when `channel` is exactly one channel and one of `supported`; else logs why not and gives 0.
  int IsValidSingleChannel(unsigned int channel, unsigned int supported);

  // Sets the period of the synchronous mode, microseconds; `actual` gets the chip's nearest.
  int SetSamplingPeriod(unsigned int period, unsigned int* actual);

  SpectralSensorDevice* m_device;
  std::uint32_t m_channelMask = 0x1B;
};
