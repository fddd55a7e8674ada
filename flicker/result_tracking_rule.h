#pragma once

// From three frequencies to a flicker result.
//
// Each frequency gets a strength: the amplitudes of all three, weighted by how well each supports
// it as itself or as a harmonic. The three are ranked by strength. Those at 100 and 120 Hz are
// mains and are reported on their own; the strongest of the others is the dominant, the next the
// secondary. Both the mains and the dominant frequency have to be confirmed by consecutive
// measurements before a change is reported. Arithmetic is single precision.

#include "spectral_sensor_device.h"

namespace spectral {

constexpr std::uint32_t kMains50Hz = 100;  // flicker of 50 Hz mains
constexpr std::uint32_t kMains60Hz = 120;

// The weight, 0..1, of what is found at `g` Hz towards a lamp of `f` Hz.
float harmonic_weight(int f, int g);

// The amplitude of a tone of this spectral power, in sample units.
float tone_amplitude(float power);

// Takes one measurement's frequencies (Hz) and amplitudes into `track` and fills the frequencies
// and strengths of `result`. Returns a strength that nobody needs: the secondary's where the
// dominant frequency was reported anew, else the strongest's, 0 where it was given up.
float track_result(const float* frequencies, const float* amplitudes, FlickerTrack* track,
                   FlickerResult* result);

}  // namespace spectral
