#pragma once

// The VD6281 as the simulated chip has it: its registers by number, and the bits that have an
// effect. These are the chip's own facts, written here a second time: what the library takes for
// them is for the chip to find out.

#include <cstdint>

namespace spectralsim::chip {

constexpr int kChannels = 6;
constexpr std::uint8_t kChannel6 = 0x20;  // the one that the AC enable switches

constexpr std::uint8_t kDeviceId = 0x00;
constexpr std::uint8_t kRevisionId = 0x01;
constexpr std::uint8_t kStatus = 0x02;
constexpr std::uint8_t kNoResult = 0x02;     // read: set while no result waits
constexpr std::uint8_t kAcknowledge = 0x01;  // written: the result is taken as read
constexpr std::uint8_t kMeasurement = 0x03;
constexpr std::uint8_t kSingleShot = 0x01;
constexpr std::uint8_t kSynchronous = 0x07;
constexpr std::uint8_t kPeriod = 0x04;
constexpr std::uint8_t kResults = 0x06;  // to 0x1C: three bytes a channel, and a spare one
constexpr int kResultStride = 4;
constexpr std::uint8_t kExposureHigh = 0x1D;
constexpr std::uint8_t kExposureLow = 0x1E;
constexpr std::uint8_t kGain = 0x25;  // to 0x2A
constexpr std::uint8_t kAcEnable = 0x2D;
constexpr std::uint8_t kDcEnable = 0x2E;
constexpr std::uint8_t kFlickerControl = 0x31;
constexpr std::uint8_t kFlickerRun = 0x01;
constexpr std::uint8_t kFlickerSelect = 0x0E;
constexpr std::uint8_t kPedestalOff = 0x40;
constexpr std::uint8_t kPedestal = 0x32;
constexpr std::uint8_t kDetector = 0x33;  // to 0x39
constexpr int kDetectorRegisters = 7;
constexpr std::uint8_t kOtpControl = 0x58;
constexpr std::uint8_t kOtpStatus = 0x5A;
constexpr std::uint8_t kOtpReady = 0x0A;
constexpr std::uint8_t kOtpBank0 = 0x5B;  // to 0x62
constexpr std::uint8_t kOtpBank1 = 0x63;  // to 0x6A
constexpr std::uint8_t kAfterOtp = 0x6B;
constexpr std::uint8_t kReset = 0xFE;

}  // namespace spectralsim::chip
