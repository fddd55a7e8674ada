#pragma once

// Finds the flicker frequencies in one second of light samples. The library has the three entry
// points by which libspectralsensor calls the phone's analysis library, and replaces that library
// where it is not available.

#include <cstdint>

extern "C" {

// Creates an instance, or returns null if memory is short. `config` and `flags` have no effect in
// this library. Instances are independent; each may be used by one thread at a time.
void* FlickerCreate(void* config, std::int32_t flags);

// Analyses 2000 samples, taken at 2000 Hz, and writes up to three tones between 50 and 1000 Hz,
// strongest first. `frequencies` receives their frequencies in hertz, rounded to whole numbers;
// `powers` receives values such that sqrt(2 * power) / 2000 is the tone's amplitude in sample
// units. Elements without a tone stay unchanged. Samples that are not numbers or whose magnitude
// exceeds 1e9 count as the mean of the others. The function does not allocate memory, and does
// nothing if an argument is null.
void FlickerProcess(void* instance, const float* samples, float* frequencies, float* powers);

// Frees an instance; null is allowed and has no effect.
void FlickerDestroy(void* instance);
}
