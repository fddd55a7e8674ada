#pragma once

#include "spectral_types.h"

namespace spectral {

// Stores `raw` in the facade's m_alsResult, with the factors applied where the unit is calibrated.
template <typename Facade>
void store_result(Facade& facade, bool calibrated, const ALSResult& raw);

}  // namespace spectral
