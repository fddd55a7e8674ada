#pragma once

/// @file
/// The records that the camera stack exchanges with the sensor service.

#include <cstdint>

/// The kinds of client and measurement that Init, Uninit and Process take.
enum Spectral_Mode_t : std::uint32_t {
  SPECTRAL_MODE_ALS = 1,      ///< Ambient light.
  SPECTRAL_MODE_FLICKER = 2,  ///< Lamp flicker.
};

/// The ALS modes of AmbientLightSensor; the values are those of VD6281_Mode_t.
enum Spectral_AlsMode_t : std::uint32_t {
  SPECTRAL_ALS_SINGLE_SHOT = 0,  ///< One result.
  SPECTRAL_ALS_SYNCHRONOUS = 1,  ///< One result per sampling period, until it is stopped.
};

/// How an ambient-light measurement is taken.
struct ALSConfig {
  /// Integration time, microseconds; the chip does 1600..1636800 in steps of 1600.
  std::uint32_t exposureTime = 320000;

  /// Analogue gain per channel 0..5 as a plain factor (1.0 = unity). Used by the layered service
  /// only; SpectralSensorDevice carries 1.0 in every configuration that it produces.
  float channelGain[6] = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};

  /// Analogue gain per channel 0..5, 8.8 fixed point (256 = 1.0). Used by SpectralSensorDevice
  /// only.
  std::uint16_t gainCode[6] = {};
};

/// One ambient-light measurement.
struct ALSResult {
  std::uint8_t channelMask;  ///< Channels delivered, bit n = channel index n.
  float value[6];            ///< Per channel, counts normalised to the smallest gain in use.
  float exposureMs;          ///< Integration time in force, milliseconds.
  float gain;                ///< Smallest gain in use, as a factor (1.0 = unity).
  std::uint8_t valid;        ///< 1 when value, exposureMs and gain hold a fresh measurement.

  /// Nanoseconds since boot: from SpectralSensor the end of the capture; from SpectralSensorDevice
  /// its start, and 0 under auto-exposure.
  std::uint64_t timestamp;
};

/// One flicker measurement. A frequency of 0 means that there is none, and so does 0xFFFFFFFF: that
/// is what the analysis's -1 for a missing tone becomes once it has been confirmed.
struct FlickerResult {
  std::uint8_t channel;              ///< Channel mask measured.
  std::uint32_t freq_a;              ///< First mains flicker frequency, always 100 Hz.
  std::uint32_t freq_b;              ///< Second mains flicker frequency, always 120 Hz.
  std::uint32_t dominant_freq;       ///< Dominant frequency that is not mains, Hz.
  std::uint32_t secondary_freq;      ///< Second frequency that is not mains, Hz.
  std::uint32_t strength_a;          ///< Strength at 100 Hz, 0 = absent.
  std::uint32_t strength_b;          ///< Strength at 120 Hz, 0 = absent.
  std::uint32_t dominant_strength;   ///< Strength of dominant_freq.
  std::uint32_t secondary_strength;  ///< Strength of secondary_freq.
  float gain;                        ///< Gain of the flicker channel: SpectralSensorDevice, its 8.8
                                     ///< code as a float; SpectralSensor, a factor.
  std::uint8_t valid;                ///< 1 after a measurement.
  std::uint64_t timestamp_ns;        ///< Nanoseconds since boot: SpectralSensorDevice, at the
                                     ///< capture; SpectralSensor, at the end.
};

/// One answer of the chip's own flicker detector, as FlickerSensor returns it. The layout is that
/// of VD6281_FlickerInfo_t.
struct Spectral_FlickerInfo_t {
  std::uint8_t channel;     ///< Channel mask, the caller's.
  std::uint16_t gain;       ///< Gain of that channel, 8.8 (256 = 1.0).
  std::uint32_t frequency;  ///< Hz.
  std::uint8_t confidence;  ///< 0 no result yet, 1 measured, 100 measured with good quality.
  std::uint8_t valid;       ///< 1 when frequency holds a measurement.
};

/// The output of one Process call.
struct SpectralSensorOutput {
  ALSResult als;          ///< Filled by mode 1.
  FlickerResult flicker;  ///< Filled by mode 2.
};
