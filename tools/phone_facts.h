#pragma once

// Facts about the phone that the tool needs. The library has them too, but the tool uses only the
// installed headers, which do not define them.

#include <cstddef>
#include <cstdint>

namespace spectralsensorctl {

constexpr int kChannels = 6;
constexpr double kFullScale = 65535.0;    // highest counter of a channel
constexpr double kCountsPerStep = 910.0;  // highest count in each exposure step
constexpr double kExposureStepMs = 1.6;
constexpr double kLowestGain = 181 / 256.0;  // the chip's lowest gain

// The sensor's nodes, and the request that reads registers.
constexpr char kEnablePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_enable";
constexpr char kReadBytePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_read_byte";
constexpr char kWriteBytePath[] =
    "/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/iridel_write_byte";
constexpr char kDevicePath[] = "/dev/vd6281";
constexpr std::uint32_t kReadRegistersRequest = 0xC1085201;

constexpr char kTunnelPath[] = "/dev/sensor_tunnel";
constexpr char kAnalysisLibraryPath[] = "/vendor/lib64/libzelk_flicker.so";

// A packet of the tunnel has a little-endian header with these fields at these offsets, and a
// payload. A flicker payload consists of records whose first 16-bit word is the sample.
constexpr char kTunnelMagic[] = {'E', 'M', 'O', 'R'};
constexpr std::size_t kPacketHeaderSize = 28;
constexpr std::size_t kIdAt = 4;
constexpr std::size_t kAuxiliaryAt = 6;
constexpr std::size_t kTimeStampAt = 12;
constexpr std::size_t kSequenceAt = 20;
constexpr std::size_t kLengthAt = 24;
constexpr std::size_t kFlickerPayloadSize = 160;
constexpr std::size_t kRecordSize = 8;

}  // namespace spectralsensorctl
