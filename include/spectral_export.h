#pragma once

/// @file
/// What marks the library's exported names.

/// Marks what libspectralsensor shows to its callers; everything else is built hidden.
#define SPECTRAL_EXPORT __attribute__((visibility("default")))
