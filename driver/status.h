#pragma once

// Every status of the library, named once. The public headers tell which operation returns which.

namespace spectral {

// Driver.
constexpr int kOk = 0;
constexpr int kBadArgument = -1;
constexpr int kOpenFailed = -1;
constexpr int kBringUpFailed = -2;
constexpr int kOtpNotReady = -3;
constexpr int kNoDevice = -4;
constexpr int kRefusedRunning = -7;  // a measurement of that kind runs, or the device is not idle
constexpr int kNotRunning = -8;

// Driver: refusals that are not errors.
constexpr int kUnsupported = 1;
constexpr int kChannelBusy = 1;
constexpr int kUnsupportedChip = 2;
constexpr int kRefusedAlsRunning = 7;
constexpr int kNoAlsRunning = 8;

// Mode wrappers and whoever else refuses an argument without being an error of the driver.
constexpr int kArgumentRefused = 1;
constexpr int kPollTimeOut = 3;

// Service.
constexpr int kAlreadyUp = -17;
constexpr int kFailed = -22;

}  // namespace spectral
