#pragma once

// Finds the flicker frequencies of one second of light samples. The library has the three entry
// points by which libspectralsensor reaches the phone's analysis library, and stands in for it
// where that is not at hand.

#include <cstdint>

extern "C" {

// Makes an instance; `config` and `flags` mean nothing to this library. Null where memory is short.
// Instances are independent: each may be used by one thread at a time.
void* FlickerCreate(void* config, std::int32_t flags);

// Analyses 2000 samples, 2000 a second. Writes up to three tones between 50 and 1000 Hz, strongest
// first: `frequencies` in hertz, each the nearest whole one, and `powers` such that
// sqrt(2 * power) / 2000 is the tone's amplitude in sample units. Places without a tone are left as
// they are. Samples that are not numbers, or beyond 1e9, count as the mean of the others. Does not
// allocate. Nothing happens for a null argument.
void FlickerProcess(void* instance, const float* samples, float* frequencies, float* powers);

// Frees an instance; null is none.
void FlickerDestroy(void* instance);
}
