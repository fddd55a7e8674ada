#pragma once

// The steps of an ambient-light measurement that both captures take.

#include <cstdint>

#include "spectral_types.h"

namespace spectral {

// Configures the sensor by the facade's m_alsConfig, which gets what the chip took, and starts the
// measurement if that has worked. Both log their failures. Returns the exposure that a capture has
// to wait for, microseconds.
template <typename Facade>
std::uint32_t configure_and_start(Facade& facade);

// ReadALS, for a unit that is calibrated or not as the caller has found it: a capture that goes on
// to apply the factors must not see the unit become calibrated in between.
template <typename Facade>
int read_als(Facade& facade, bool calibrated, bool wait, ALSResult* result);

}  // namespace spectral
