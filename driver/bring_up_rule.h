#pragma once

// What bring-up decides: whether the chip that answers is supported, which silicon cut it is, which
// work-arounds the cut needs, and the settings that every bring-up starts from.

#include <cstdint>

namespace spectral {

constexpr std::uint8_t kVd6281DeviceId = 0x70;
constexpr std::uint8_t kRevisionCut20 = 0xBA;
constexpr std::uint8_t kRevisionCut21 = 0xBB;
constexpr std::uint8_t kRevisionCut22 = 0xBC;

constexpr std::uint32_t kBringUpExposureUs = 80000;  // of the driver alone: a service sets its own
constexpr std::uint8_t kUsualPedestal = 3;           // also what the services set

constexpr int kWorkArounds = 7;
constexpr int kWorkAroundsWithIdentifier = 6;  // wa[6] is out of the controls' reach

// The identifier by which the controls name each work-around.
constexpr std::uint32_t kWorkAroundIdentifier[kWorkAroundsWithIdentifier] = {
    460857, 462997, 461428, 464174, 478654, 498243};

constexpr bool is_cut(std::uint8_t device_id, std::uint8_t revision_id, std::uint8_t revision) {
  return device_id == kVd6281DeviceId && revision_id == revision;
}

constexpr bool is_supported(std::uint8_t device_id, std::uint8_t revision_id) {
  return is_cut(device_id, revision_id, kRevisionCut20) ||
         is_cut(device_id, revision_id, kRevisionCut21) ||
         is_cut(device_id, revision_id, kRevisionCut22);
}

// Whether a chip needs work-around wa[index] (0..6).
constexpr bool needs_work_around(std::uint8_t device_id, std::uint8_t revision_id, int index) {
  const bool cut_2_0 = is_cut(device_id, revision_id, kRevisionCut20);
  const bool cut_2_1 = is_cut(device_id, revision_id, kRevisionCut21);
  switch (index) {
    case 0:
    case 1:
    case 2:
    case 4:
      return cut_2_0 || cut_2_1;
    case 3:
      return cut_2_0;
    case 5:
    case 6:
      return is_cut(device_id, revision_id, kRevisionCut22);
    default:
      return false;
  }
}

// The index of the work-around with this identifier, or -1.
constexpr int work_around_index(std::uint32_t identifier) {
  for (int i = 0; i < kWorkAroundsWithIdentifier; ++i) {
    if (kWorkAroundIdentifier[i] == identifier) return i;
  }
  return -1;
}

}  // namespace spectral
