#include "driver/single_channel.h"

#include "driver/channel.h"
#include "platform/log.h"

namespace spectral {

bool is_single_channel_of(std::uint32_t mask, std::uint32_t supported, const char* log_tag) {
  constexpr char kName[] = "IsValidSingleChannel";
  if (!is_one_hot(mask)) {
    SPECTRAL_LOG(kLogDebug, log_tag, "%s: Expect single channel, got channel mask 0x%x", kName,
                 mask);
    return false;
  }
  if ((mask & ~supported) != 0) {
    SPECTRAL_LOG(kLogDebug, log_tag, "%s: Supported channels mask 0x%x, got channel mask 0x%x",
                 kName, supported, mask);
    return false;
  }
  return true;
}

}  // namespace spectral
