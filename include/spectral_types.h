#pragma once

// The records that the camera stack exchanges with the sensor service.

#include <cstdint>

// What Init, Uninit and Process act on.
enum Spectral_Mode_t : std::uint32_t {
  SPECTRAL_MODE_ALS = 1,      // ambient light
  SPECTRAL_MODE_FLICKER = 2,  // lamp flicker
};

// An ambient-light measurement of the layered path: VD6281_Mode_t's values.
enum Spectral_AlsMode_t : std::uint32_t {
  SPECTRAL_ALS_SINGLE_SHOT = 0,
  SPECTRAL_ALS_SYNCHRONOUS = 1,
};

// How an ambient-light measurement is taken.
struct ALSConfig {
  std::uint32_t exposureTime = 320000;  // integration time, microseconds
  // Analogue gain per channel 0..5 as a plain factor (1.0 = unity); used by the layered service
  // only, SpectralSensorDevice carries 1.0 in every configuration that it produces.
  float channelGain[6] = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
  std::uint16_t gainCode[6] = {};  // analogue gain per channel 0..5, 8.8 fixed point (256 = 1.0)
};

// One ambient-light measurement.
struct ALSResult {
  std::uint8_t channelMask;  // channels delivered, bit n = channel n
  float value[6];            // per channel, counts normalised to the smallest gain in use
  float exposureMs;          // integration time in force, milliseconds
  float gain;                // smallest gain in use, as a factor (1.0 = unity)
  std::uint8_t valid;        // 1 when value, exposureMs and gain hold a fresh measurement
  std::uint64_t timestamp;   // nanoseconds since boot: SpectralSensor, the end of the capture;
                             // SpectralSensorDevice, its start, 0 under auto-exposure
};

// One flicker measurement. A frequency of 0 is none; so is 0xFFFFFFFF, which is what the analysis's
// -1 for a missing tone becomes once it has been confirmed.
struct FlickerResult {
  std::uint8_t channel;              // channel mask measured
  std::uint32_t freq_a;              // first mains flicker frequency, always 100 Hz
  std::uint32_t freq_b;              // second mains flicker frequency, always 120 Hz
  std::uint32_t dominant_freq;       // dominant frequency that is not mains, Hz
  std::uint32_t secondary_freq;      // second frequency that is not mains, Hz
  std::uint32_t strength_a;          // strength at 100 Hz, 0 = absent
  std::uint32_t strength_b;          // strength at 120 Hz, 0 = absent
  std::uint32_t dominant_strength;   // strength of dominant_freq
  std::uint32_t secondary_strength;  // strength of secondary_freq
  float gain;                        // gain of the flicker channel, its 8.8 code as a float
  std::uint8_t valid;                // 1 after a measurement
  std::uint64_t timestamp_ns;        // nanoseconds since boot at the capture
};

// One answer of the chip's own flicker detector, as FlickerSensor hands it on: the layout of
// VD6281_FlickerInfo_t.
struct Spectral_FlickerInfo_t {
  std::uint8_t channel;
  std::uint16_t gain;       // 8.8 fixed point
  std::uint32_t frequency;  // Hz
  std::uint8_t confidence;  // 0 no result yet, 1 measured, 100 measured with good quality
  std::uint8_t valid;
};

// What one Process call delivers: mode 1 fills als, mode 2 fills flicker.
struct SpectralSensorOutput {
  ALSResult als;
  FlickerResult flicker;
};
