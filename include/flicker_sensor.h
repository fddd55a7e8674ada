#pragma once

// FlickerSensor: the flicker mode of the sensor as the layered service uses it, on top of the one
// SpectralSensorDevice. Messages go to the log under "flicker-sensor".
//
// Operations return 0, 1 for an argument error found here, or the driver's status
// (spectral_sensor_device.h). One measurement at a time; nothing here locks.

#include <cstdint>

#include "spectral_export.h"
#include "spectral_types.h"

class SpectralSensorDevice;

class SPECTRAL_EXPORT FlickerSensor {
 public:
  // Takes the process's SpectralSensorDevice, creating it where there is none yet; does not own it.
  FlickerSensor();
  FlickerSensor(const FlickerSensor&) = delete;
  FlickerSensor& operator=(const FlickerSensor&) = delete;
  ~FlickerSensor();

  // Starts (as EnableFlickerSensor) or stops the flicker measurement.
  int Enable(bool enable);

  // Starts the flicker measurement on the channel chosen, output type 1. Failures are logged.
  int EnableFlickerSensor();
  int DisableFlickerSensor();

  // Captures `size` bytes of samples (16 a millisecond, up to 16015) through the sensor hub's
  // tunnel into `data`, zeros where the stream gave less. Failures are logged.
  int GetFlickerData(int size, unsigned char* data);

  // Polls the chip's own detector every 10 ms until it has an answer, for at most 2.001 s; then 3.
  // `info` gets its last answer in any case; info->channel is the caller's.
  int GetFlickerFrequency(Spectral_FlickerInfo_t* info);

  // The saturation counter of the running measurement (registers 0x33, 0x34): 3 or more is
  // saturated.
  int GetSaturationValue(unsigned short* value);

  // Chooses the flicker channel: exactly one of channels 2..6 (mask 0x3E).
  int SetFlickerChannelMask(unsigned int mask);

  // 1 when `mask` is exactly one channel and one of `supported`; else logs why not and gives 0.
  int IsValidSingleChannel(unsigned int mask, unsigned int supported);

  // Sets the gain, a plain factor, of the channel chosen before; `applied` gets the chip's nearest.
  int SetGain(unsigned int mask, float gain, float* applied);

  // Sets the pedestal's value, 0..7, and switches it on. Returns the result of the switching.
  int SetPedestal(unsigned char value);

  SpectralSensorDevice* m_device;
  std::uint32_t m_channelMask = 0;
};
