#pragma once

// The VD6281's registers, their bit fields and the values that have a meaning.

#include <cstdint>

namespace spectral {

// The address of a register: a type of its own, so that an address and a value cannot change
// places.
enum class Register : std::uint8_t {
  kDeviceId = 0x00,
  kRevisionId = 0x01,
  kStatus = 0x02,
  kMeasurement = 0x03,
  kInterMeasurementPeriod = 0x04,
  kAlsResults = 0x06,    // to 0x1C: per channel three bytes, most significant first, and a spare
  kExposureHigh = 0x1D,  // bits 9..8 of the exposure count
  kExposureLow = 0x1E,   // bits 7..0
  kChannelGain = 0x25,   // to 0x2A: the gain code 1..15 of channel index 0..5
  kAcEnable = 0x2D,
  kDcEnable = 0x2E,  // bits 0..4 enable channels 1..5
  kClampEnable = 0x2F,
  kClampSetting = 0x30,
  kFlickerControl = 0x31,
  kPedestalValue = 0x32,
  kFlickerDetector = 0x33,  // to 0x39
  kSdaDrive = 0x3C,
  kOscTrimEnable = 0x3D,
  kOscTrimHigh = 0x3E,  // bit 8 of the main oscillator's trim
  kOscTrimLow = 0x3F,   // bits 7..0
  kOsc2Trim = 0x40,
  kFlickerSetting = 0x41,
  kFlickerSetting2 = 0x47,
  kOtpControl = 0x58,
  kOtpStatus = 0x5A,
  kOtpBank0 = 0x5B,  // to 0x62
  kOtpBank1 = 0x63,  // to 0x6A
  kAnalogue0 = 0x6B,
  kAnalogue1 = 0x6C,  // also switches the dark output
  kAnalogue2 = 0x6D,
  kAnalogue3 = 0x6E,
  kAnalogue4 = 0x6F,
  kAnalogue5 = 0x70,
  kCut22Control = 0x71,  // written on cut 2.2 only
  kClampSetting2 = 0x72,
  kSoftwareReset = 0xFE,
};

constexpr std::uint8_t address_of(Register which) { return static_cast<std::uint8_t>(which); }

// The register `offset` addresses behind this one; the addresses wrap from 0xFF to 0x00.
constexpr Register operator+(Register first, int offset) {
  return static_cast<Register>(address_of(first) + offset);
}

namespace reg {

// What a switch register takes.
constexpr std::uint8_t kOn = 0x01;
constexpr std::uint8_t kOff = 0x00;

// kStatus: kNoResult is clear while a result waits; kAcknowledge and then kRearm take it as read.
constexpr std::uint8_t kNoResult = 0x02;
constexpr std::uint8_t kAcknowledge = 0x01;
constexpr std::uint8_t kRearm = 0x00;

// kMeasurement.
constexpr std::uint8_t kStop = 0x00;
constexpr std::uint8_t kSingleShotAls = 0x01;
constexpr std::uint8_t kJoinFlicker = 0x03;  // before an ALS start beside a running flicker
constexpr std::uint8_t kSynchronousAls = 0x07;

// kAlsResults: the spare register behind the last channel is not read.
constexpr int kAlsResultStride = 4;
constexpr int kAlsResultRegisters = 23;

// kFlickerControl.
constexpr std::uint8_t kFlickerRun = 0x01;
constexpr std::uint8_t kFlickerSelectAndRun = 0x0F;  // the channel select is in bits 3..1
constexpr std::uint8_t kAcMode = 0x30;
constexpr std::uint8_t kPedestalDisable = 0x40;  // clear = pedestal on

// kPedestalValue.
constexpr std::uint8_t kPedestalMask = 0x07;

// kFlickerDetector.
constexpr int kFlickerDetectorRegisters = 7;

// kSdaDrive.
constexpr std::uint8_t kSdaDriveMask = 0x07;  // drive strength / 4 - 1

// kOtpControl, kOtpStatus, kOtpBank0 and kOtpBank1.
constexpr std::uint8_t kOtpLoad = 0x00;
constexpr std::uint8_t kOtpReady = 0x0A;  // both bits are set
constexpr int kOtpBankRegisters = 8;

// kAnalogue1.
constexpr std::uint8_t kDarkOutputOn = 0x18;
constexpr std::uint8_t kDarkOutputOff = 0x07;

// kCut22Control.
constexpr std::uint8_t kCut22Idle = 0x01;

}  // namespace reg

}  // namespace spectral
