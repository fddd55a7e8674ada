#pragma once

// From the three frequencies of one measurement to a flicker result.
//
// Each frequency gets a strength: the sum of the amplitudes of all three, each weighted by how well
// it supports this frequency, as the frequency itself or as one of its harmonics. The three are
// ranked by strength. Those at 100 and 120 Hz are mains and are reported separately; the strongest
// of the others is the dominant one, the next the secondary one. A change of the mains frequency or
// of the dominant one is reported only after consecutive measurements have confirmed it. Arithmetic
// is single precision.

#include "spectral_sensor_device.h"

namespace spectral {

constexpr std::uint32_t kMains50Hz = 100;  // flicker of 50 Hz mains
constexpr std::uint32_t kMains60Hz = 120;

// The weight, 0..1, with which what is found at `g` Hz supports a lamp of `f` Hz.
float harmonic_weight(int f, int g);

// The amplitude of a tone of this spectral power, in sample units.
float tone_amplitude(float power);

// Takes one measurement's three frequencies (Hz) and amplitudes into `track`, and fills the
// frequencies and strengths of `result`. Returns the strength of the secondary frequency, or of the
// primary one where there is no secondary or the dominant frequency is not reported; 0 when the
// dominant frequency is given up.
float track_result(const float* frequencies, const float* amplitudes, FlickerTrack* track,
                   FlickerResult* result);

}  // namespace spectral
