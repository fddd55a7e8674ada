#pragma once

/// @file
/// The layered sensor service.

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "ambient_light_sensor.h"
#include "flicker_sensor.h"
#include "spectral_export.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"
#include "spectral_types.h"

/// The layered sensor service: the operations of the service half of SpectralSensorDevice, one
/// layer higher. It owns an AmbientLightSensor and a FlickerSensor and reaches the driver through
/// them, with gains as plain factors. Messages go to the log under "ilsservice-driver".
///
/// @code
/// SpectralSensor* sensor = SpectralSensor::Create();
/// if (sensor != nullptr && sensor->Init(SPECTRAL_MODE_ALS) == SPECTRAL_OK) {
///   SpectralSensorOutput output{};
///   const int status = sensor->Process(SPECTRAL_MODE_ALS, &output);
///   if (status == SPECTRAL_OK && output.als.valid) { ... }
/// }
/// if (sensor != nullptr) sensor->Uninit(SPECTRAL_MODE_ALS);
/// SpectralSensor::Destroy();
/// @endcode
///
/// **Statuses.** Operations return 0 (SPECTRAL_OK), -17 (SPECTRAL_ALREADY_UP) or -22
/// (SPECTRAL_FAILED, logged); spectral_status.h names them.
///
/// **Threads.** Create and Destroy are not locked: neither may be called beside any other
/// operation. Any thread may call the rest. Init and Uninit exclude each other, and SetEnableFlag
/// may come at any time. Nothing else locks, so that one measurement at a time is the callers'
/// duty: no operation that measures or accesses the chip, of either mode, beside another one. While
/// a measurement runs, other threads may call SetEnableFlag, Init and Uninit, with three
/// exceptions: the first Init(2), which sets the pedestal; the last Uninit(2), which stops the
/// flicker engine; and the last Uninit of the measurement's own mode. These three, ResetDevice and
/// Destroy have to wait for its end.
class SPECTRAL_EXPORT SpectralSensor {
 public:
  /// Makes an object on no driver yet, with the values that the fields below state; the gain of
  /// m_flkResult, too, is 1.0 at first. Clients use Create.
  SpectralSensor();
  SpectralSensor(const SpectralSensor&) = delete;
  SpectralSensor& operator=(const SpectralSensor&) = delete;
  /// Destroys the two mode wrappers; the driver is left alone. Clients use Destroy.
  ~SpectralSensor();

  /// @name Lifecycle
  /// @{

  /// Returns the one instance of the process. The first call makes it, with its driver and its two
  /// mode wrappers, and switches the sensor's power off. Returns null where there is no driver.
  static SpectralSensor* Create();

  /// Counts one client of `mode` (1 = ALS, 2 = flicker). The first client of either mode powers the
  /// sensor and brings it up; the first flicker client sets the pedestal and loads the analysis
  /// library that pVendorLibPath names; the first call that returns 0 reads the unit's calibration.
  /// The results are those of SpectralSensorDevice::Init.
  int Init(int mode);

  /// @copydoc SpectralSensorDevice::Uninit
  /// A count that goes below zero is logged as a warning.
  void Uninit(int mode);

  /// Tears the device down, whatever the counts are, destroys the SpectralSensorDevice too, and
  /// frees the instance. The analysis library is not unloaded here: the last Uninit of flicker does
  /// that.
  static void Destroy();

  /// @copydoc SpectralSensorDevice::ResetDevice
  int ResetDevice();

  /// @copydoc SpectralSensorDevice::SetEnableFlag
  /// A flicker capture that reads the tunnel looks at the flag of the SpectralSensorDevice; the
  /// flag set here acts in the gain search and before and after the capture.
  void SetEnableFlag(int which, bool enable);

  /// @}
  /// @name Ambient light
  /// @{

  /// @copydoc SpectralSensorDevice::Process
  /// The time of an ALS result is the end of its capture, that of a flicker result the end of the
  /// analysis.
  int Process(int mode, SpectralSensorOutput* output);

  /// Starts a single-shot measurement on the channels of the AmbientLightSensor. Returns 0, or -22
  /// (logged).
  int StartExpALS();

  /// @copydoc SpectralSensorDevice::StopExpALS
  int StopExpALS();

  /// Programs the exposure, and the gain factors of the channels in m_alsChannelMask. On success
  /// `actual` gets what the chip took, with factor 1.0 for the other channels and every code 0.
  /// Returns 0; or -22 while ALS runs, for a channel that is not the AmbientLightSensor's or after
  /// a failed register write (all logged), or for a null argument.
  int ConfigALS(const ALSConfig* config, ALSConfig* actual);

  /// @copydoc SpectralSensorDevice::ReadALS
  /// The values come from the raw counts, whether the unit is calibrated or not.
  int ReadALS(ALSResult* result, bool wait);

  /// @copydoc SpectralSensorDevice::CaptureALSDefault
  int CaptureALSDefault(SpectralSensorOutput* output);

  /// @copydoc SpectralSensorDevice::CaptureALSAE
  int CaptureALSAE(SpectralSensorOutput* output);

  /// @copydoc SpectralSensorDevice::ALSAE
  /// The gains are proposed as factors, not as codes.
  int ALSAE(ALSResult* result, ALSConfig* next, bool* stable);

  /// @copydoc SpectralSensorDevice::LookUpGain
  float LookUpGain(float target, int low, int high);

  /// @}
  /// @name Flicker
  /// @{

  /// @copydoc SpectralSensorDevice::StartExpFLK_AutoGain
  /// Here a saturation counter that cannot be read ends its trial and counts as a failing step.
  int StartExpFLK_AutoGain();

  /// Starts the flicker measurement on m_flkChannelMask at m_flkGain. Neither the pedestal nor the
  /// AC mode is set. Returns 0, or -22 (logged).
  int StartExpFLK();

  /// @copydoc SpectralSensorDevice::StopExpFLK
  int StopExpFLK();

  /// Captures `len_ms` (10..1000) of samples through the sensor hub's tunnel "/dev/sensor_tunnel"
  /// into `out`: 160 bytes for every 10 ms, zeros where the stream gave less. Returns 0, or -22
  /// (logged), also for a capture without data.
  int ReadFLKData(int len_ms, unsigned char* out);

  /// @copydoc SpectralSensorDevice::FlickerCoreWrapper
  int FlickerCoreWrapper(FlickerResult* result);

  /// @copydoc SpectralSensorDevice::FlickerResultProcessing
  float FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result);

  /// @copydoc SpectralSensorDevice::ComputeHarmonicContribution
  float ComputeHarmonicContribution(int f, int g);

  /// Fills `result` from the chip's own detector while a flicker measurement runs, by
  /// FlickerSensor::GetFlickerFrequency. Returns 0, or -22 for a null `result`, after a failed
  /// read, or when the detector has no answer within 2.001 s (the last two are logged).
  int ReadFLK(FlickerResult* result);

  /// Loads the analysis library that pVendorLibPath names and makes its one instance. Returns 0, or
  /// -22 (logged).
  int LoadFlickerLibrary();

  /// @copydoc SpectralSensorDevice::UnloadFlickerLibrary
  void UnloadFlickerLibrary();

  /// @copydoc SpectralSensorDevice::check_dl_error
  int check_dl_error();

  /// @}
  /// @name Calibration
  /// @{

  /// @copydoc SpectralSensorDevice::PrepareCalibrationData
  int PrepareCalibrationData();

  /// @copydoc SpectralSensorDevice::GetDeviceType
  int GetDeviceType();

  /// @copydoc SpectralSensorDevice::GetFATPData
  bool GetFATPData(unsigned short* fatp);

  /// @copydoc SpectralSensorDevice::ComputeCalData
  void ComputeCalData(unsigned short* fatp);

  /// @copydoc SpectralSensorDevice::CorrectALSRAW
  void CorrectALSRAW(const ALSResult* raw);

  /// @}
  /// @name State
  /// Where nothing else is said, a field is what the field of the same name of SpectralSensorDevice
  /// is.
  /// @{

  static SpectralSensor* m_pInstance;  ///< The one instance, or null.

  SpectralSensorDevice* m_device = nullptr;        ///< Not owned.
  AmbientLightSensor* m_als = nullptr;             ///< Owned.
  FlickerSensor* m_flicker = nullptr;              ///< Owned.
  ALSConfig m_alsConfig;                           ///< In force, or proposed for the next capture.
  std::uint32_t m_alsChannelMask = 0x1B;           ///< Channels whose gain ConfigALS sets.
  std::uint32_t m_flkChannelMask = 0x20;           ///< Channel of the flicker measurement.
  ALSResult m_alsResult = {};                      ///< Last auto-exposure result, calibrated.
  FlickerResult m_flkResult = {};                  ///< Last flicker result.
  float m_flkGain = 0.00390625f;                   ///< Gain of the flicker channel, a factor.
  void* m_flickerLibHandle = nullptr;              ///< Handle of the analysis library, or null.
  FlickerCreateFn m_pfnFlickerCreate = nullptr;    ///< Its entry point FlickerCreate.
  FlickerProcessFn m_pfnFlickerProcess = nullptr;  ///< Its entry point FlickerProcess.
  FlickerDestroyFn m_pfnFlickerDestroy = nullptr;  ///< Its entry point FlickerDestroy.
  void* m_flickerCore = nullptr;                   ///< Its one instance, or null.
  std::timed_mutex m_flk_ag_mtx;                   ///< Probed by the gain search, never held.
  std::uint8_t m_flkRawData[16384] = {};           ///< The payloads of the last flicker capture.
  float m_flkSamples[2000] = {};                   ///< Their samples, as the analysis gets them.
  FlickerTrack m_flkTrack;                         ///< State of the result tracking.
  std::uint32_t m_deviceType = 0;                  ///< Phone model 1..4, 0 = unknown.
  std::uint8_t m_calibrationValid = 0;             ///< 1 when the factors come from factory data.
  float m_calibrationFactor[6] = {1.0f, 1.0f, 1.0f,
                                  1.0f, 1.0f, 1.0f};  ///< Factor per channel index.
  std::int32_t m_flkRefCount = 0;                     ///< Flicker clients.
  std::int32_t m_alsRefCount = 0;                     ///< Ambient-light clients.
  std::uint8_t m_alsAeEnable = 1;    ///< 1: Process(1) runs the auto-exposure capture.
  std::uint8_t m_alsEnableFlag = 1;  ///< 0 abandons ambient-light captures.
  std::uint8_t m_flkEnableFlag = 1;  ///< 0 abandons flicker captures.
  std::uint8_t m_powered = 0;        ///< 1 after the power was switched on.
  std::mutex m_flk_data_mtx;         ///< Held while a tunnel is captured.
  std::mutex m_flk_lib_mtx;          ///< Guards the analysis library and its fields.
  std::mutex m_init_mtx;             ///< Orders Init and Uninit.
  std::mutex m_als_mtx;              ///< Held while an auto-exposure capture waits.
  std::condition_variable m_als_cv;  ///< Wakes that capture.

  /// @}
};
