#pragma once

// The mode wrappers' check of a channel argument.

#include <cstdint>

namespace spectral {

// Whether `mask` is exactly one channel and one of `supported`. If it is not, the reason is logged
// under `log_tag`.
bool is_single_channel_of(std::uint32_t mask, std::uint32_t supported, const char* log_tag);

}  // namespace spectral
