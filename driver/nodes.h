#pragma once

// The kernel files of the sensor, their ioctl requests, and the factory file.

#include <cstdint>

namespace spectral {

constexpr char kEnablePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_enable";
constexpr char kReadBytePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_read_byte";
constexpr char kWriteBytePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_write_byte";
constexpr char kDevicePath[] = "/dev/vd6281";

constexpr char kFactoryFilePath[] = "/mnt/vendor/persist/camera/ials_fac_test";

constexpr std::uint32_t kReadRegistersRequest = 0xC1085201;  // _IOWR('R', 1, VD6281_Transfer_t)

// The sensor hub's tunnel and its requests. The two requests of a stream take four words: 0, the
// stream's sensor code, 1 and its tunnel id.
constexpr char kTunnelPath[] = "/dev/sensor_tunnel";
constexpr std::uint32_t SENSOR_TUNNEL_ROUTE_SETUP = 0x4B24;      // _IO('K', 0x24)
constexpr std::uint32_t SENSOR_TUNNEL_SETUP = 0xC0104B22;        // _IOWR('K', 0x22, 16 bytes)
constexpr std::uint32_t SENSOR_TUNNEL_TERMINATE = 0xC0104B23;    // _IOWR('K', 0x23, 16 bytes)
constexpr std::uint32_t SENSOR_TUNNEL_ROUTE_TERMINATE = 0x4B19;  // _IO('K', 0x19)

}  // namespace spectral
