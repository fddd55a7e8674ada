#pragma once

// The VD6281's registers, their bit fields and the values with a meaning.

#include <cstdint>

namespace spectral::reg {

constexpr std::uint8_t kDeviceId = 0x00;
constexpr std::uint8_t kRevisionId = 0x01;

// Interrupt and status. kNoResult is clear while a result waits; kAcknowledge, then kRearm, takes
// it as read.
constexpr std::uint8_t kStatus = 0x02;
constexpr std::uint8_t kNoResult = 0x02;
constexpr std::uint8_t kAcknowledge = 0x01;
constexpr std::uint8_t kRearm = 0x00;

// Measurement control.
constexpr std::uint8_t kMeasurement = 0x03;
constexpr std::uint8_t kStop = 0x00;
constexpr std::uint8_t kSingleShotAls = 0x01;
constexpr std::uint8_t kJoinFlicker = 0x03;  // before an ALS start beside a running flicker
constexpr std::uint8_t kSynchronousAls = 0x07;

constexpr std::uint8_t kInterMeasurementPeriod = 0x04;

// ALS results: per channel three bytes, most significant first, and an unused one.
constexpr std::uint8_t kAlsResults = 0x06;
constexpr int kAlsResultStride = 4;
constexpr int kAlsResultRegisters = 23;  // the last channel's unused byte is left out

constexpr std::uint8_t kExposureHigh = 0x1D;  // count bits 9..8
constexpr std::uint8_t kExposureLow = 0x1E;   // count bits 7..0

constexpr std::uint8_t kChannelGain = 0x25;  // channel index 0..5 at 0x25..0x2A, code 1..15

constexpr std::uint8_t kAcEnable = 0x2D;
constexpr std::uint8_t kOn = 0x01;
constexpr std::uint8_t kOff = 0x00;
constexpr std::uint8_t kDcEnable = 0x2E;  // bits 0..4 = channels 1..5

constexpr std::uint8_t kClampEnable = 0x2F;
constexpr std::uint8_t kClampSetting = 0x30;
constexpr std::uint8_t kClampSetting2 = 0x72;

// Flicker output control.
constexpr std::uint8_t kFlickerControl = 0x31;
constexpr std::uint8_t kFlickerRun = 0x01;
constexpr std::uint8_t kFlickerSelectAndRun = 0x0F;  // channel select in bits 3..1
constexpr std::uint8_t kAcMode = 0x30;
constexpr std::uint8_t kPedestalDisable = 0x40;  // clear = pedestal on

constexpr std::uint8_t kPedestalValue = 0x32;
constexpr std::uint8_t kPedestalMask = 0x07;
constexpr std::uint8_t kUsualPedestal = 3;  // what every start sets

constexpr std::uint8_t kFlickerDetector = 0x33;
constexpr int kFlickerDetectorRegisters = 7;

constexpr std::uint8_t kSdaDrive = 0x3C;
constexpr std::uint8_t kSdaDriveMask = 0x07;  // (field + 1) * 4

constexpr std::uint8_t kOscTrimEnable = 0x3D;
constexpr std::uint8_t kOscTrimHigh = 0x3E;  // bit 8
constexpr std::uint8_t kOscTrimLow = 0x3F;
constexpr std::uint8_t kOsc2Trim = 0x40;

constexpr std::uint8_t kFlickerSetting = 0x41;
constexpr std::uint8_t kFlickerSetting2 = 0x47;

constexpr std::uint8_t kOtpControl = 0x58;
constexpr std::uint8_t kOtpLoad = 0x00;
constexpr std::uint8_t kOtpStatus = 0x5A;
constexpr std::uint8_t kOtpReady = 0x0A;  // both bits
constexpr std::uint8_t kOtpBank0 = 0x5B;
constexpr std::uint8_t kOtpBank1 = 0x63;
constexpr int kOtpBankRegisters = 8;

constexpr std::uint8_t kAnalogue0 = 0x6B;
constexpr std::uint8_t kAnalogue1 = 0x6C;  // also switches the dark output
constexpr std::uint8_t kAnalogue2 = 0x6D;
constexpr std::uint8_t kAnalogue3 = 0x6E;
constexpr std::uint8_t kAnalogue4 = 0x6F;
constexpr std::uint8_t kAnalogue5 = 0x70;
constexpr std::uint8_t kDarkOutputOn = 0x18;
constexpr std::uint8_t kDarkOutputOff = 0x07;

constexpr std::uint8_t kCut22Control = 0x71;  // cut 2.2 only
constexpr std::uint8_t kCut22Idle = 0x01;

constexpr std::uint8_t kSoftwareReset = 0xFE;

// Channels as masks and indices.
constexpr int kChannels = 6;
constexpr std::uint8_t kAllChannels = 0x3F;
constexpr std::uint8_t kDcChannels = 0x1F;
constexpr std::uint8_t kChannel4 = 0x08;
constexpr std::uint8_t kChannel6 = 0x20;  // behind the AC enable

// What a channel's counter takes in each 1.6 ms of exposure, and in all.
constexpr float kCountsPerStep = 910.0f;
constexpr float kFullScale = 65535.0f;

}  // namespace spectral::reg
