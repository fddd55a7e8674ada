#pragma once

/// @file
/// The statuses that the library's operations return, by name. Every operation says which of them
/// it can return. Besides these, a failed ioctl, read or write of the driver returns the system
/// call's own negative result unchanged, which is usually -1. A number that stands twice has a name
/// for each of its meanings.

/// @name Every operation
/// @{

inline constexpr int SPECTRAL_OK = 0;  ///< Done.

/// @}
/// @name The services: SpectralSensorDevice and SpectralSensor
/// @{

inline constexpr int SPECTRAL_FAILED = -22;      ///< A step failed; the log names it.
inline constexpr int SPECTRAL_ALREADY_UP = -17;  ///< Init had nothing to do.

/// @}
/// @name The driver: errors
/// @{

inline constexpr int SPECTRAL_BAD_ARGUMENT = -1;     ///< A null pointer, or a value out of range.
inline constexpr int SPECTRAL_OPEN_FAILED = -1;      ///< A kernel file did not open.
inline constexpr int SPECTRAL_BRING_UP_FAILED = -2;  ///< The device could not be brought up.
inline constexpr int SPECTRAL_OTP_NOT_READY = -3;    ///< The chip's OTP did not become ready.
inline constexpr int SPECTRAL_NO_DEVICE = -4;        ///< No device is open.
inline constexpr int SPECTRAL_RUNNING = -7;      ///< A measurement runs, so this cannot be changed.
inline constexpr int SPECTRAL_NOT_RUNNING = -8;  ///< The measurement to stop or read does not run.

/// @}
/// @name The driver: refusals that are not errors
/// @{

inline constexpr int SPECTRAL_UNSUPPORTED = 1;       ///< The chip does not have this value.
inline constexpr int SPECTRAL_CHANNEL_BUSY = 1;      ///< A measurement uses the channel.
inline constexpr int SPECTRAL_UNSUPPORTED_CHIP = 2;  ///< The chip is no VD6281 of a known cut.
inline constexpr int SPECTRAL_ALS_RUNNING = 7;       ///< ALS runs, so its settings cannot change.
inline constexpr int SPECTRAL_NO_ALS_RUNNING = 8;    ///< ALS values were asked for and no ALS runs.

/// @}
/// @name The mode wrappers: AmbientLightSensor and FlickerSensor
/// @{

inline constexpr int SPECTRAL_ARGUMENT_REFUSED = 1;  ///< The wrapper itself refuses an argument.
inline constexpr int SPECTRAL_TIMED_OUT = 3;         ///< The detector had no answer in time.

/// @}
