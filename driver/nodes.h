#pragma once

// The kernel files of the sensor, and the request that reads registers.

#include <cstdint>

namespace spectral {

constexpr char kEnablePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_enable";
constexpr char kReadBytePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_read_byte";
constexpr char kWriteBytePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_write_byte";
constexpr char kDevicePath[] = "/dev/vd6281";

constexpr std::uint32_t kReadRegistersRequest = 0xC1085201;  // _IOWR('R', 1, VD6281_Transfer_t)

}  // namespace spectral
