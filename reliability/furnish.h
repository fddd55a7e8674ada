#pragma once

// Gives a phone what a session of the fault sweep needs of it.

#include "reliability/fault_sessions.h"
#include "simulator/phone.h"

namespace sweep {

void furnish(Furnished furnished, spectralsim::Phone* phone);

}  // namespace sweep
