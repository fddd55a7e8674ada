#pragma once

// SpectralSensor: the layered sensor service. The same operations as the service half of
// SpectralSensorDevice, one layer higher: it owns an AmbientLightSensor and a FlickerSensor and
// reaches the driver only through them, with gains as plain factors. Messages go to the log under
// "ilsservice-driver".
//
//   SpectralSensor* sensor = SpectralSensor::Create();
//   sensor->Init(SPECTRAL_MODE_ALS);
//   SpectralSensorOutput output{};
//   if (sensor->Process(SPECTRAL_MODE_ALS, &output) == 0 && output.als.valid) { ... }
//   sensor->Uninit(SPECTRAL_MODE_ALS);
//   SpectralSensor::Destroy();
//
// Operations answer 0, -17 (already initialised) or -22 (failed, logged) as those of
// SpectralSensorDevice do; only what differs is said here. Create and Destroy are not locked: they
// must not be called concurrently.

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "ambient_light_sensor.h"
#include "flicker_sensor.h"
#include "spectral_export.h"
#include "spectral_sensor_device.h"
#include "spectral_types.h"

class SPECTRAL_EXPORT SpectralSensor {
 public:
  // An object with the defaults stated at the fields below, on no driver yet. Clients use Create.
  SpectralSensor();
  SpectralSensor(const SpectralSensor&) = delete;
  SpectralSensor& operator=(const SpectralSensor&) = delete;
  ~SpectralSensor();

  // ---- Lifecycle ---------------------------------------------------------------------------

  // The one instance of the process; the first call makes it, with its driver and its two mode
  // wrappers, and switches the sensor's power off. Null where there is no driver.
  static SpectralSensor* Create();

  // Counts one client; the first of either mode powers the sensor and brings it up, the first of
  // flicker sets the pedestal and loads the analysis library that pVendorLibPath names.
  int Init(int mode);

  // Takes one client away. A count that goes below zero is logged as a warning.
  void Uninit(int mode);

  // Tears the driver down, destroys the SpectralSensorDevice and frees the instance.
  static void Destroy();

  int ResetDevice();

  // As the device service's, with one limit: a flicker capture that reads the tunnel looks at the
  // flag of the SpectralSensorDevice; this one acts in the gain search and around the capture.
  void SetEnableFlag(int which, bool enable);

  // ---- Ambient light -----------------------------------------------------------------------

  // Mode 1 stamps the result when the capture has ended, mode 2 when the analysis has.
  int Process(int mode, SpectralSensorOutput* output);
  int StartExpALS();
  int StopExpALS();

  // Works in the gain factors of `config`, not in its codes.
  int ConfigALS(const ALSConfig* config, ALSConfig* actual);

  // Always takes the raw counts, calibrated or not.
  int ReadALS(ALSResult* result, bool wait);
  int CaptureALSDefault(SpectralSensorOutput* output);
  int CaptureALSAE(SpectralSensorOutput* output);

  // Proposes gain factors, not codes.
  int ALSAE(ALSResult* result, ALSConfig* next, bool* stable);
  float LookUpGain(float target, int low, int high);

  // ---- Flicker -----------------------------------------------------------------------------

  int StartExpFLK_AutoGain();

  // Sets neither the pedestal nor the AC mode.
  int StartExpFLK();
  int StopExpFLK();
  int ReadFLKData(int len_ms, unsigned char* out);
  int FlickerCoreWrapper(FlickerResult* result);
  float FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result);
  float ComputeHarmonicContribution(int f, int g);
  int ReadFLK(FlickerResult* result);
  int LoadFlickerLibrary();
  void UnloadFlickerLibrary();
  int check_dl_error();

  // ---- Calibration -------------------------------------------------------------------------

  int PrepareCalibrationData();
  int GetDeviceType();
  bool GetFATPData(unsigned short* fatp);
  void ComputeCalData(unsigned short* fatp);
  void CorrectALSRAW(const ALSResult* raw);

  // ---- State -------------------------------------------------------------------------------

  static SpectralSensor* m_pInstance;

  SpectralSensorDevice* m_device = nullptr;  // not owned
  AmbientLightSensor* m_als = nullptr;       // owned
  FlickerSensor* m_flicker = nullptr;        // owned
  ALSConfig m_alsConfig;                     // in force, or proposed for the next capture
  std::uint32_t m_alsChannelMask = 0x1B;
  std::uint32_t m_flkChannelMask = 0x20;
  ALSResult m_alsResult = {};  // last result of the auto-exposure capture, calibrated
  FlickerResult m_flkResult = {};
  float m_flkGain = 0.00390625f;  // as a factor
  void* m_flickerLibHandle = nullptr;
  FlickerCreateFn m_pfnFlickerCreate = nullptr;
  FlickerProcessFn m_pfnFlickerProcess = nullptr;
  FlickerDestroyFn m_pfnFlickerDestroy = nullptr;
  void* m_flickerCore = nullptr;
  std::timed_mutex m_flk_ag_mtx;
  std::uint8_t m_flkRawData[16384] = {};
  float m_flkSamples[2000] = {};
  FlickerTrack m_flkTrack;
  std::uint32_t m_deviceType = 0;
  std::uint8_t m_calibrationValid = 0;
  float m_calibrationFactor[6] = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
  std::int32_t m_flkRefCount = 0;
  std::int32_t m_alsRefCount = 0;
  std::uint8_t m_alsAeEnable = 1;
  SpectralFlag m_alsEnableFlag{1};
  SpectralFlag m_flkEnableFlag{1};
  std::uint8_t m_powered = 0;
  std::mutex m_flk_data_mtx;
  std::mutex m_flk_lib_mtx;
  std::mutex m_init_mtx;
  std::mutex m_als_mtx;
  std::condition_variable m_als_cv;
};
