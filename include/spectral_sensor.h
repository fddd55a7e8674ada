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

/// The layered sensor service: the same operations as the service half of SpectralSensorDevice, one
/// layer higher. It owns an AmbientLightSensor and a FlickerSensor and reaches the driver only
/// through them, with gains as plain factors. Messages go to the log under "ilsservice-driver".
///
/// @code
/// SpectralSensor* sensor = SpectralSensor::Create();
/// sensor->Init(SPECTRAL_MODE_ALS);
/// SpectralSensorOutput output{};
/// if (sensor->Process(SPECTRAL_MODE_ALS, &output) == 0 && output.als.valid) { ... }
/// sensor->Uninit(SPECTRAL_MODE_ALS);
/// SpectralSensor::Destroy();
/// @endcode
///
/// Operations answer 0, -17 (already initialised) or -22 (failed, logged) as those of
/// SpectralSensorDevice do, where each is told in full; only what differs is said here. Create and
/// Destroy are not locked: they must not be called concurrently.
class SPECTRAL_EXPORT SpectralSensor {
 public:
  /// An object with the defaults stated at the fields below, on no driver yet. Clients use Create.
  SpectralSensor();
  SpectralSensor(const SpectralSensor&) = delete;
  SpectralSensor& operator=(const SpectralSensor&) = delete;
  /// Destroys the two mode wrappers; the driver is left alone. Clients use Destroy.
  ~SpectralSensor();

  /// @name Lifecycle
  /// @{

  /// The one instance of the process; the first call makes it, with its driver and its two mode
  /// wrappers, and switches the sensor's power off. Null where there is no driver.
  static SpectralSensor* Create();

  /// Counts one client; the first of either mode powers the sensor and brings it up, the first of
  /// flicker sets the pedestal and loads the analysis library that pVendorLibPath names.
  int Init(int mode);

  /// Takes one client away. A count that goes below zero is logged as a warning.
  void Uninit(int mode);

  /// Tears the driver down, destroys the SpectralSensorDevice and frees the instance.
  static void Destroy();

  /// Forgets all clients and switches the power off, leaving the driver's record as it is. Returns
  /// the result of VD6281_Enable(false).
  int ResetDevice();

  /// As the device service's, with one limit: a flicker capture that reads the tunnel looks at the
  /// flag of the SpectralSensorDevice; this one acts in the gain search and around the capture.
  void SetEnableFlag(int which, bool enable);

  /// @}
  /// @name Ambient light
  /// @{

  /// Takes one measurement. Mode 1 stamps the result when the capture has ended, mode 2 when the
  /// analysis has.
  int Process(int mode, SpectralSensorOutput* output);

  /// Starts a single-shot measurement on the AmbientLightSensor's channels. 0, or -22 (logged).
  int StartExpALS();

  /// Stops it. 0, or -22 (logged).
  int StopExpALS();

  /// Works in the gain factors of `config`, not in its codes.
  int ConfigALS(const ALSConfig* config, ALSConfig* actual);

  /// Always takes the raw counts, calibrated or not.
  int ReadALS(ALSResult* result, bool wait);

  /// Configures, starts, waits, reads and stops, with m_alsConfig as it is.
  int CaptureALSDefault(SpectralSensorOutput* output);

  /// The same with the wait on a condition variable, calibration factors applied and the next
  /// configuration proposed.
  int CaptureALSAE(SpectralSensorOutput* output);

  /// Proposes gain factors, not codes.
  int ALSAE(ALSResult* result, ALSConfig* next, bool* stable);

  /// The largest entry of the ALS gain table not above `target` within the indices low..high.
  float LookUpGain(float target, int low, int high);

  /// @}
  /// @name Flicker
  /// @{

  /// Starts the flicker measurement with the highest gain that does not saturate. A saturation
  /// counter that does not read ends its trial and makes the search fail.
  int StartExpFLK_AutoGain();

  /// Starts the flicker measurement on m_flkChannelMask at m_flkGain; sets neither the pedestal nor
  /// the AC mode. 0, or -22 (logged).
  int StartExpFLK();

  /// Stops it. 0, or -22 (logged).
  int StopExpFLK();

  /// Captures samples through the sensor hub's tunnel. -22 also for a capture without data.
  int ReadFLKData(int len_ms, unsigned char* out);

  /// One whole flicker measurement: gain search, capture of one second, analysis, tracking.
  int FlickerCoreWrapper(FlickerResult* result);

  /// Fills `result` from three frequencies (Hz) and their amplitudes, ranked and confirmed.
  float FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result);

  /// The weight, 0..1, of what is found at `g` Hz towards a lamp of `f` Hz.
  float ComputeHarmonicContribution(int f, int g);

  /// Fills `result` from the chip's own detector by FlickerSensor::GetFlickerFrequency: -22 also
  /// when it has no answer within 2.001 s.
  int ReadFLK(FlickerResult* result);

  /// Loads the analysis library that pVendorLibPath names and makes its one instance.
  int LoadFlickerLibrary();

  /// Destroys the instance and closes the library; one that is not loaded is only logged.
  void UnloadFlickerLibrary();

  /// Logs what dlerror tells, if anything, and closes the library. 0 or -22.
  int check_dl_error();

  /// @}
  /// @name Calibration
  /// @{

  /// Finds the phone model and the unit's factory readings and computes the six factors. Returns 1
  /// when the unit is calibrated now, else 0.
  int PrepareCalibrationData();

  /// The phone model by the property "ro.product.device": 1..4, or 0 for any other.
  int GetDeviceType();

  /// Reads the six channel readings of the factory file into `fatp`. True when all are plausible.
  bool GetFATPData(unsigned short* fatp);

  /// Computes the factors from readings given by the caller, unchecked.
  void ComputeCalData(unsigned short* fatp);

  /// Stores `raw` in m_alsResult, with the factors applied on a calibrated unit.
  void CorrectALSRAW(const ALSResult* raw);

  /// @}
  /// @name State
  /// As the fields of the same names of SpectralSensorDevice, where nothing else is said.
  /// @{

  static SpectralSensor* m_pInstance;  ///< The one instance, or null.

  SpectralSensorDevice* m_device = nullptr;        ///< Not owned.
  AmbientLightSensor* m_als = nullptr;             ///< Owned.
  FlickerSensor* m_flicker = nullptr;              ///< Owned.
  ALSConfig m_alsConfig;                           ///< In force, or proposed for the next capture.
  std::uint32_t m_alsChannelMask = 0x1B;           ///< Channels that ConfigALS gives a gain.
  std::uint32_t m_flkChannelMask = 0x20;           ///< Channel of the flicker measurement.
  ALSResult m_alsResult = {};                      ///< Last auto-exposure result, calibrated.
  FlickerResult m_flkResult = {};                  ///< Last flicker result.
  float m_flkGain = 0.00390625f;                   ///< Gain of the flicker channel, a factor.
  void* m_flickerLibHandle = nullptr;              ///< Of the analysis library, or null.
  FlickerCreateFn m_pfnFlickerCreate = nullptr;    ///< Its entry point FlickerCreate.
  FlickerProcessFn m_pfnFlickerProcess = nullptr;  ///< Its entry point FlickerProcess.
  FlickerDestroyFn m_pfnFlickerDestroy = nullptr;  ///< Its entry point FlickerDestroy.
  void* m_flickerCore = nullptr;                   ///< Its one instance, or null.
  std::timed_mutex m_flk_ag_mtx;                   ///< Probed by the gain search, never held.
  std::uint8_t m_flkRawData[16384] = {};           ///< What a flicker capture brought.
  float m_flkSamples[2000] = {};                   ///< Its samples, as the analysis gets them.
  FlickerTrack m_flkTrack;                         ///< Of the flicker results.
  std::uint32_t m_deviceType = 0;                  ///< Phone model 1..4, 0 = unknown.
  std::uint8_t m_calibrationValid = 0;             ///< The factors come from factory data.
  float m_calibrationFactor[6] = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};  ///< Per channel index.
  std::int32_t m_flkRefCount = 0;                                       ///< Flicker clients.
  std::int32_t m_alsRefCount = 0;                                       ///< Ambient-light clients.
  std::uint8_t m_alsAeEnable = 1;    ///< Process(1) runs the auto-exposure capture.
  std::uint8_t m_alsEnableFlag = 1;  ///< 0 abandons ambient-light captures.
  std::uint8_t m_flkEnableFlag = 1;  ///< 0 abandons flicker captures.
  std::uint8_t m_powered = 0;        ///< 1 after the power was switched on.
  std::mutex m_flk_data_mtx;         ///< Held while a tunnel is captured.
  std::mutex m_flk_lib_mtx;          ///< Of the analysis library and its fields.
  std::mutex m_init_mtx;             ///< Orders Init and Uninit.
  std::mutex m_als_mtx;              ///< Held while an auto-exposure capture waits.
  std::condition_variable m_als_cv;  ///< Wakes it.

  /// @}
};
