#pragma once

#include <cstdint>

namespace spectral {

// Configures the sensor by the facade's m_alsConfig, which gets what the chip took, and starts the
// measurement if that has worked. Both log their failures. Returns the exposure that a capture has
// to wait for, microseconds.
template <typename Facade>
std::uint32_t configure_and_start(Facade& facade);

}  // namespace spectral
