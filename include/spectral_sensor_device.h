#pragma once

/// @file
/// The driver of the VD6281 spectral sensor with the process-wide sensor service on top of it, and
/// the types that they share with the layered service.

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "spectral_export.h"
#include "spectral_status.h"
#include "spectral_types.h"
#include "vd6281.h"

/// FlickerCreate of the flicker-analysis library makes an instance. It is called with null and 0.
using FlickerCreateFn = void* (*)(void* config, std::int32_t flags);

/// FlickerProcess takes the 2000 samples of one second and writes up to three frequencies,
/// strongest first, and their spectral powers.
using FlickerProcessFn = void (*)(void* instance, const float* samples, float* frequencies_hz,
                                  float* powers);

/// FlickerDestroy frees an instance.
using FlickerDestroyFn = void (*)(void* instance);

/// The file that SpectralSensor loads as the analysis library; an embedding process may point it
/// elsewhere before Init. SpectralSensorDevice always loads "/vendor/lib64/libzelk_flicker.so".
extern SPECTRAL_EXPORT const char* pVendorLibPath;

/// The state that the flicker tracking carries from one measurement to the next.
struct FlickerTrack {
  std::uint32_t mains_cand = 0;            ///< Mains frequency being confirmed, Hz.
  std::uint32_t mains_count = 0xFFFFFFFF;  ///< Measurements that saw it; all ones before the first.
  std::uint32_t dom_cand = 0;              ///< Dominant frequency being confirmed, Hz.
  std::uint32_t dom_count = 0xFFFFFFFF;    ///< Measurements that saw it; all ones before the first.
  std::uint32_t mains_freq = 0;            ///< Mains frequency reported, Hz, 0 = none.
  std::uint32_t mains_strength = 0;        ///< Its strength, a signed number.
  std::uint32_t dom_freq = 0;              ///< Dominant frequency reported, Hz, 0 = none.
  std::uint32_t dom_strength = 0;          ///< Its strength.
  std::uint32_t dom_miss = 0;              ///< Measurements with a new candidate since a report.
  std::uint32_t mains_a = 100;             ///< First mains flicker frequency, 100 Hz.
  std::uint32_t mains_b = 120;             ///< Second mains flicker frequency, 120 Hz.
  std::uint32_t out_dominant_freq = 0;     ///< FlickerResult::dominant_freq as reported.
  std::uint32_t out_secondary_freq = 0;    ///< FlickerResult::secondary_freq as reported.
  std::uint32_t out_strength_a = 0;        ///< FlickerResult::strength_a as reported.
  std::uint32_t out_strength_b = 0;        ///< FlickerResult::strength_b as reported.
  std::uint32_t out_dominant_strength = 0;   ///< FlickerResult::dominant_strength as reported.
  std::uint32_t out_secondary_strength = 0;  ///< FlickerResult::secondary_strength as reported.
};
static_assert(sizeof(FlickerTrack) == 17 * sizeof(std::uint32_t), "seventeen words");

/// The driver of the VD6281 spectral sensor and, on top of it, the process-wide sensor service with
/// its two clients, ambient light (ALS, mode 1) and flicker (mode 2). Messages go to the log under
/// "ilsservice-driver-device".
///
/// @code
/// SpectralSensorDevice* sensor = SpectralSensorDevice::Create();
/// if (sensor->Init(SPECTRAL_MODE_ALS) == SPECTRAL_OK) {
///   SpectralSensorOutput output{};
///   const int status = sensor->Process(SPECTRAL_MODE_ALS, &output);
///   if (status == SPECTRAL_OK && output.als.valid) { ... }
/// }
/// sensor->Uninit(SPECTRAL_MODE_ALS);
/// SpectralSensorDevice::Destroy();
/// @endcode
///
/// **Statuses.** spectral_status.h names them. An operation of the service returns 0
/// (SPECTRAL_OK), -17 (SPECTRAL_ALREADY_UP) or -22 (SPECTRAL_FAILED). An operation of the driver
/// returns
///
/// | status | meaning |
/// | --- | --- |
/// | 0 | done |
/// | -1 | a bad argument, or a kernel file that does not open |
/// | -2 | the bring-up failed |
/// | -3 | the OTP is not ready |
/// | -4 | no device is open |
/// | -7 | a measurement runs, or the device is not idle, so this cannot be done |
/// | -8 | the measurement to stop or to read does not run |
/// | 1 | an unsupported value, or a channel that a measurement uses |
/// | 7 | a change of the ALS settings while ALS runs |
/// | 8 | ALS values asked for while no ALS runs |
///
/// or the own result of an ioctl, read or write that failed. A failed system call is logged, a
/// refusal is not. Out-parameters are written on success only, unless an operation says otherwise.
///
/// **Threads.** Any thread may call any operation, and the library starts no thread of its own.
/// Create and Destroy exclude each other, so do Init and Uninit, and SetEnableFlag may come at any
/// time between Create and Destroy. Nothing else locks, so that one measurement at a time is the
/// callers' duty: no operation that measures or accesses the chip, of either mode, beside another
/// one. While a measurement runs, other threads may call SetEnableFlag, Init and Uninit, except the
/// last Uninit of a mode whose engine runs. That one, ResetDevice and Destroy have to wait for the
/// measurement's end.
class SPECTRAL_EXPORT SpectralSensorDevice {
 public:
  /// Makes an object with the values that the fields below state; the gain of m_flkResult, too, is
  /// 1.0 at first. Clients use Create.
  SpectralSensorDevice();
  SpectralSensorDevice(const SpectralSensorDevice&) = delete;
  SpectralSensorDevice& operator=(const SpectralSensorDevice&) = delete;

  /// @name Service: lifecycle
  /// @{

  /// Returns the one instance of the process. The first call makes it and switches the sensor's
  /// power off ("iridel_enable"); a failure of that is only logged.
  static SpectralSensorDevice* Create();

  /// Counts one client of `mode` (1 = ALS, 2 = flicker). The first client of either mode powers the
  /// sensor, brings it up and sets the pedestal; the first flicker client loads the analysis
  /// library; the first call that returns 0 reads the unit's calibration.
  ///
  /// Returns 0 when there was something to do and it worked; -17 when there was nothing to do,
  /// since a client had been counted before, or for any other mode, which is not counted; -22 when
  /// a step failed (logged). A failed client stays counted: its caller owes an Uninit as any other
  /// does.
  ///
  /// The counts alone decide. After a first client that failed, the next one therefore gets -17, or
  /// 0 if it is the first flicker client, although no sensor is up; VD6281_GetProductVersion
  /// returns -4 then. Once all clients have left by Uninit, the next Init brings the sensor up
  /// anew.
  int Init(int mode);

  /// Takes one client of `mode` away. The last client of a mode stops its measurement, and the last
  /// flicker client unloads the analysis library; the last client of both modes tears the device
  /// down and switches the power off. For any other mode nothing happens.
  void Uninit(int mode);

  /// Tears the device down, whatever the counts are, and frees the instance. The analysis library
  /// is not unloaded here: the last Uninit of flicker does that.
  static void Destroy();

  /// Forgets all clients and switches the power off. The device record, its descriptors and the
  /// analysis library stay as they are, so that the next Init finds the device open and returns
  /// -22; the Uninit that is owed for it closes the device, and the Init after that brings the
  /// sensor up. Returns the result of VD6281_Enable(false).
  int ResetDevice();

  /// Lets the captures of a kind run (true) or abandons them (false): `which` 1 is ALS, and
  /// clearing its flag wakes a capture that waits; any other value is flicker. It takes no lock and
  /// may be called from any thread. The flag stays as it is until the next call.
  void SetEnableFlag(int which, bool enable);

  /// @}
  /// @name Service: ambient light
  /// @{

  /// Takes one measurement of `mode` into `output`.
  ///
  /// Mode 1 (ALS) runs CaptureALSAE, or CaptureALSDefault where m_alsAeEnable is 0. It returns 0
  /// with output->als.valid 1; 0 with `valid` 0 after a time-out or an abort (default capture); or
  /// -22 after a failure. Mode 2 (flicker) always returns 0, about 1.1 s later: failures are
  /// logged, and output->flicker holds what the measurement has given. A null `output`, or any
  /// other mode, returns -22.
  ///
  /// A signal handler that runs on this thread while a flicker measurement reads the tunnel can
  /// interrupt the read; with SA_RESTART it depends on the tunnel's driver. The samples end there:
  /// the log has the warning that reading failed, the strengths are those of the samples until
  /// then, 0 if there were none, and `valid` is 1. Block signals on this thread where that matters.
  /// No other operation is changed by signals.
  int Process(int mode, SpectralSensorOutput* output);

  /// Starts a single-shot ALS measurement on m_alsChannelMask. Returns 0, or -22 (logged).
  int StartExpALS();

  /// Stops the ALS measurement. Returns 0, or -22 (logged).
  int StopExpALS();

  /// Programs the exposure, and the gain codes of the channels in m_alsChannelMask. On success
  /// `actual` gets what the chip took, with code 0 for the other channels and every factor 1.0.
  /// Returns 0; or -22 while ALS runs or after a failed register write (both logged), or for a null
  /// argument.
  int ConfigALS(const ALSConfig* config, ALSConfig* actual);

  /// Reads one ALS measurement. With `wait` it polls each millisecond, up to 8192 times or until
  /// the ALS enable flag is cleared, and then returns 0 with `valid` 0. Without `wait` a result
  /// that is not ready returns -22. A failed read returns -22 with `valid` 0, and a null `result`
  /// -22. `timestamp` is not written.
  int ReadALS(ALSResult* result, bool wait);

  /// Takes one measurement with m_alsConfig as it is: configures, starts, waits, reads and stops.
  /// No calibration factor is applied. Returns the result of ReadALS.
  int CaptureALSDefault(SpectralSensorOutput* output);

  /// Takes one measurement under auto-exposure: it waits for the end of the exposure on a condition
  /// variable, applies the calibration factors to the result, and replaces m_alsConfig by a
  /// proposal for the next capture. Returns 0, or -22 for a null `output`, after a failed read, and
  /// after an abort before the end of the exposure; after the last two `output` gets the previous
  /// result.
  int CaptureALSAE(SpectralSensorOutput* output);

  /// Proposes the configuration that brings the brightest channel of `result` to 30..70 % of its
  /// saturation level. `stable` is true when the channel is there already, or cannot be brought
  /// there. Returns 0, or -22 for a null argument or a result without channels.
  int ALSAE(ALSResult* result, ALSConfig* next, bool* stable);

  /// Returns the largest entry not above `target` among the entries low..high (indices 0..15) of
  /// the auto-exposure's gain table, or the entry at `low` if all are above it. Bad indices are
  /// logged and return the smallest gain, 0.71.
  float LookUpGain(float target, int low, int high);

  /// @}
  /// @name Service: flicker
  /// @{

  /// Starts the flicker measurement with the highest gain that does not saturate. The search runs
  /// on channel 6 and, if the lowest gain saturates there, on channel 3; m_flkChannelMask and
  /// m_flkGain keep what it found. A failing step does not end the search. Returns 0, or -22 when
  /// any step failed (logged with the sum of all their statuses).
  int StartExpFLK_AutoGain();

  /// Starts the flicker measurement on m_flkChannelMask at m_flkGain, with the pedestal on. Returns
  /// 0, or -22 (logged).
  int StartExpFLK();

  /// Stops the flicker measurement. Returns 0, or -22 (logged).
  int StopExpFLK();

  /// Captures `len_ms` (10..1000) of samples through the sensor hub's tunnel "/dev/sensor_tunnel"
  /// into `out`: 160 bytes for every 10 ms, zeros where the stream gave less. Returns 0, also for a
  /// capture without data, or -22 (logged).
  int ReadFLKData(int len_ms, unsigned char* out);

  /// Takes one whole flicker measurement: gain search, capture of one second, analysis, tracking.
  /// `result` is left as it is when the flicker enable flag is cleared meanwhile. Always returns 0.
  int FlickerCoreWrapper(FlickerResult* result);

  /// Fills `result` from three frequencies (Hz) and their amplitudes: weighs them by the harmonics
  /// that support each, ranks them, and confirms changes over consecutive calls by m_flkTrack.
  /// Returns a strength that the service itself does not use.
  float FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result);

  /// Returns the weight, 0..1, with which what is found at `g` Hz supports a lamp of `f` Hz; 0 for
  /// frequencies outside 50..1050 Hz.
  float ComputeHarmonicContribution(int f, int g);

  /// Fills `result` from the chip's own detector while a flicker measurement runs; it asks the
  /// detector up to 8192 times. Returns 0, or -22 for a null `result` or after a failed read
  /// (logged).
  int ReadFLK(FlickerResult* result);

  /// Loads the analysis library and makes its one instance. Returns 0, or -22 (logged).
  int LoadFlickerLibrary();

  /// Destroys the instance and closes the analysis library. A library that is not loaded is only
  /// logged.
  void UnloadFlickerLibrary();

  /// Returns 0 when dlerror has no error text. Otherwise logs the text, closes the analysis library
  /// and returns -22.
  int check_dl_error();

  /// @}
  /// @name Service: calibration
  /// @{

  /// Finds the phone model and the unit's factory readings and computes the six calibration
  /// factors. Returns 1 when the unit is calibrated now, else 0.
  int PrepareCalibrationData();

  /// Returns the phone model by the property "ro.product.device": 1..4, or 0 for any other.
  int GetDeviceType();

  /// Reads the six channel readings of the factory file "/mnt/vendor/persist/camera/ials_fac_test"
  /// into `fatp`. Returns true when all six are within 100..50000; false also for a file that does
  /// not open, a line that is not a number, or a null `fatp`.
  bool GetFATPData(unsigned short* fatp);

  /// Computes the calibration factors from six readings, which are not checked. With a null `fatp`,
  /// or for an unknown model, the unit counts as not calibrated.
  void ComputeCalData(unsigned short* fatp);

  /// Stores `raw` in m_alsResult. On a calibrated unit the factors are applied to the values, which
  /// then are at most 65535.
  void CorrectALSRAW(const ALSResult* raw);

  /// @}
  /// @name Driver: power and bring-up
  /// @{

  /// Switches the sensor's power: writes "1" or "0" to "iridel_enable" and notes it in the
  /// instance, which must exist (Create). Returns 0, -1 when the attribute does not open, or the
  /// failed write's result.
  int VD6281_Enable(bool enable);

  /// Reads from "iridel_enable" whether the sensor is powered. `enabled` must not be null. Returns
  /// 0, -1 when the attribute does not open, or the failed read's result.
  int VD6281_CheckEnableStatus(bool* enabled);

  /// Opens the kernel nodes, identifies the chip, resets and configures it. Returns 0, or -2 with
  /// everything closed again; -2 also when the device is open already, which stays as it is.
  int VD6281_Init();

  /// Resets the chip and closes the kernel nodes. Returns 0 or -4.
  int VD6281_Term();

  /// Gives the driver's version, 0 and 20. Returns 0, or -1 for a null pointer. Needs no device.
  int VD6281_GetVersion(unsigned int* major, unsigned int* minor);

  /// Gives the chip's identifier and revision (silicon cut) as they were read at bring-up. Returns
  /// 0, -4 or -1.
  int VD6281_GetProductVersion(unsigned char* id, unsigned char* revision);

  /// Points `uid` to the unit's id text, which the driver owns and keeps until the next bring-up.
  /// Returns 0, -4 or -1.
  int VD6281_GetUid(char** uid);

  /// @}
  /// @name Driver: registers
  /// @{

  /// Reads one register by one ioctl on "/dev/vd6281". Returns 0, -4 or the failed ioctl's result.
  int VD6281_RdByte(unsigned char addr, unsigned char* data);

  /// Writes one register by one write to "iridel_write_byte". Returns 0, -4 or the failed write's
  /// result.
  int VD6281_WrByte(unsigned char addr, unsigned char data);

  /// Reads `count` consecutive registers one by one; addresses wrap from 0xFF to 0x00. Values that
  /// were read before a failure are stored. A `count` below 1 reads nothing and returns 0. Returns
  /// 0, -4 or the failed ioctl's result.
  int VD6281_RdMultipleBytes(unsigned char addr, unsigned char* data, int count);

  /// @}
  /// @name Driver: exposure, gain and timing
  /// @{

  /// Sets the ALS exposure in registers 0x1E and 0x1D. The chip takes the nearest of 1600..1636800
  /// microseconds in steps of 1600, which `applied` gets. Returns 0, -4, -1, 7 or a failed write's
  /// result.
  int VD6281_SetExposureTime(unsigned int exposure, unsigned int* applied);

  /// Gives the exposure in force, microseconds, from the device record. Returns 0, -4 or -1.
  int VD6281_GetExposureTime(unsigned int* exposure);

  /// Sets the gain of one channel, 8.8 fixed point (256 = 1.0), in registers 0x25..0x2A. The chip
  /// takes the nearest of its fifteen gains, 0.71..66.67, which `applied` gets. Returns 0, -4, -1,
  /// 1 while a measurement uses the channel, or a failed write's result.
  int VD6281_SetGain(VD6281_Channel_Id_t channel, unsigned short gain, unsigned short* applied);

  /// Gives the gain in force of one channel, 8.8 fixed point, from the device record. Returns 0, -4
  /// or -1.
  int VD6281_GetGain(VD6281_Channel_Id_t channel, unsigned short* gain);

  /// Sets the period of the synchronous ALS in register 0x04 and reads it back into `applied`. The
  /// chip takes the nearest of 0..5227500 microseconds in steps of 20500. Returns 0, -4, -1, 7, -7
  /// where the silicon needs the idle state, or a failed register access's result.
  int VD6281_SetInterMeasurementTime(unsigned int period, unsigned int* applied);

  /// Reads the period from register 0x04, microseconds. Returns 0, -4, -1 or the failed read's
  /// result.
  int VD6281_GetInterMeasurementTime(unsigned int* period);

  /// Gives the colour filter of a channel. Returns 0, -4 or -1.
  int VD6281_GetChannelColor(VD6281_Channel_Id_t channel, VD6281_Color_Id_t* color);

  /// @}
  /// @name Driver: measurements
  /// @{

  /// Starts a measurement on a channel mask (1..63; exactly one channel for flicker). Returns 0;
  /// -4; -1, also when a channel is in use; -7; or a failed register access's result, after which
  /// everything is undone.
  int VD6281_Start(VD6281_Mode_t mode, unsigned char channels);

  /// Stops a measurement. Returns 0, -4, -1, -8 or a failed register access's result.
  int VD6281_Stop(VD6281_Mode_t mode);

  /// Selects what the flicker engine puts out from its next start on. Returns 0, -4, -7, or 1 for a
  /// type that the chip does not have.
  int VD6281_SetFlickerOutputType(VD6281_FlickerOutputType_t type);

  /// Reads the counts of the running ALS in one burst, if a result waits, and re-arms the chip.
  /// `ready` is 1 when `values` was filled, else 0. Returns 0, -4, -1, 8 or a failed register
  /// access's result. After a failure `ready` is 1 as well; `values` is then untouched when a read
  /// failed, and filled when only the re-arming did.
  int VD6281_GetAlsValues(unsigned char channels, VD6281_Als_t* values, unsigned char* ready);

  /// Does what VD6281_GetAlsValues does, but reads byte by byte, and only the channels that are
  /// both asked for and running.
  int VD6281_GetAlsValues_Ref(unsigned char channels, VD6281_Als_t* values, unsigned char* ready);

  /// @}
  /// @name Driver: the chip's flicker detector
  /// @{

  /// Reads the detector of the running flicker measurement once (registers 0x33..0x39).
  /// `info->confidence` is 0 as long as it has no answer; `channel` and `gain` are not written.
  /// Returns 0, -4, -1, -8 or the failed read's result.
  int VD6281_GetFlickerFrequency(VD6281_FlickerInfo_t* info);

  /// Measures by the detector from start to stop: starts flicker with automatic gain, asks the
  /// detector without a pause up to `polls` times (at least 8192, at most 81920), stops, and fills
  /// `channel` and `gain` of `info` too. Returns 0, also without an answer; 1 for a null `info`; or
  /// the failed read's result (logged).
  int VD6281_GetFlickerFrequency_Ref(VD6281_FlickerInfo_t* info, int polls);

  /// @}
  /// @name Driver: the sensor hub's tunnel
  /// One capture is VD6281_QuilInit, VD6281_QuilTunnelSetup, VD6281_QuilResetRdBuf,
  /// VD6281_GetFlickerDataBuffer and VD6281_QuilTunnelTerminate, in this order. All of them work on
  /// the tunnel block of the device record.
  /// @{

  /// Clears the whole tunnel block. Returns 0 or -4.
  int VD6281_QuilInit();

  /// Opens "/dev/sensor_tunnel" and routes the flicker and the VSYNC stream into it. Returns 0 or
  /// -4. After a failure (logged) everything is undone and the result is that of
  /// VD6281_QuilTunnelTerminate, which is 0 for a tunnel that did not open.
  int VD6281_QuilTunnelSetup();

  /// Empties the buffers and the per-id tables. Returns 0 or -4.
  int VD6281_QuilResetRdBuf();

  /// Gathers len_ms / 10 flicker payloads of 160 bytes and returns the buffer of them. There are
  /// fewer when the stream ends, a signal interrupts the read (logged) or the flicker enable flag
  /// is cleared. Returns null without a device, for more than 1000 ms, or when no packet begins
  /// where one should (the last two are logged).
  unsigned char* VD6281_GetFlickerDataBuffer(unsigned int len_ms);

  /// Tears the streams down and closes the tunnel and the dump files. Returns 0, -4 or the failed
  /// route ioctl's result.
  int VD6281_QuilTunnelTerminate();

  /// For debugging: reads the streams as VD6281_GetFlickerDataBuffer does, and writes the bytes as
  /// they came to "/data/unparsed_flicker_data" and the payloads alone to "/data/flicker_data.wav",
  /// which has no header in spite of its name. Returns 0, -4, -1, or after a failure the result of
  /// VD6281_QuilTunnelTerminate.
  int VD6281_QuilDumpFlickerDataToFile(unsigned int len_ms);

  /// @}
  /// @name Driver: controls
  /// @{

  /// Sets a control; VD6281_Control_Id_t lists their values. Returns 0, -4, -1 for an unknown
  /// control, -7 in the wrong state, 1 for an unsupported value, or a failed register access's
  /// result, which for the pedestal value comes negated.
  int VD6281_SetControl(VD6281_Control_Id_t id, unsigned int value);

  /// Reads a control. VD6281_CONTROL_WA_STATUS takes the work-around's identifier in `value` and
  /// ORs its flag into bit 31. Returns 0, -4, -1 for an unknown control or a null `value`, 1 for an
  /// unknown work-around, or the failed read's result; after a failed read `value` is written all
  /// the same, with 1 for the pedestal switch, 0 for the pedestal value and 4 for the drive
  /// strength.
  int VD6281_GetControl(VD6281_Control_Id_t id, unsigned int* value);

  /// @}
  /// @name Internal operations
  /// These take the record and make none of the checks above; their names are fixed, also where
  /// they are misspelt (opt_, nible). An operation that accesses registers returns 0, -4 without a
  /// device, or the own result of the ioctl or write that failed, besides what it says itself.
  /// @{

  VD6281_device* get_device();         ///< Returns the record if it is free, else null.
  VD6281_device* get_active_device();  ///< Returns the record if it is in use, else null.
  /// Zero-fills the record and sets its defaults and the idle state.
  void setup_device(VD6281_device* dev);
  /// Sets the work-arounds that the chip's identifiers ask for.
  void select_device_wa(VD6281_device* dev);
  bool is_cut_2_0(VD6281_device* dev);            ///< Whether the chip is a VD6281 of cut 2.0.
  bool is_cut_2_1(VD6281_device* dev);            ///< Whether the chip is a VD6281 of cut 2.1.
  bool is_cut_2_2(VD6281_device* dev);            ///< Whether the chip is a VD6281 of cut 2.2.
  int channelId_2_index(VD6281_Channel_Id_t id);  ///< The bit's position, 0..31; else 6.

  /// Reads the chip's identifiers (registers 0x00 and 0x01). Returns 2 for a chip that is not
  /// supported.
  int check_supported_device(VD6281_device* dev);
  /// Resets the chip by register 0xFE.
  int dev_sw_reset(VD6281_device* dev);
  /// Reloads the OTP (registers 0x58 and 0x5A). Returns -3 when it does not become ready.
  int opt_reset(VD6281_device* dev);
  /// Resets the chip, reloads its OTP and marks the record as free. The nodes stay open.
  void put_device(VD6281_device* dev);
  /// Reads the OTP of a freshly reset chip and gives the chip its configuration.
  int dev_configuration(VD6281_device* dev);
  /// Writes the oscillator trims (registers 0x3D..0x40): those of the OTP, or the built-in ones
  /// where otp_usage_enable is 0.
  int trim_oscillators(VD6281_device* dev);
  /// Switches the clamp on (registers 0x2F, 0x30 and 0x72).
  int clamp_enable(VD6281_device* dev);

  /// Reads both OTP banks (registers 0x5B..0x6A) and packs them into the record's two words.
  int opt_read_init(VD6281_device* dev);
  /// Decodes the parameters from the record's two words; an unknown layout gives the defaults.
  /// Returns 0.
  int otp_read_param(VD6281_device* dev);
  /// Decodes the parameters by the one layout that is known, whatever the version. Returns 0.
  int otp_read_param_v1_v2_v3(VD6281_device* dev);
  /// Writes the record's uid; an unknown layout gives all "f". Returns 0.
  int otp_generate_uid(VD6281_device* dev);
  /// Writes the record's uid by the one layout that is known, whatever the version. Returns 0.
  int otp_generate_uid_v1_v2_v3(VD6281_device* dev);
  /// Gives the bits lsb..msb of the OTP word `bank` (0 or 1), at most 31 of them. Returns 0.
  int otp_read_bank(VD6281_device* dev, int bank, int lsb, int msb, unsigned int* value);
  /// Gives `count` bits (1..31) from bit `start` on of both OTP words taken as one of 128 bits, in
  /// reversed order where `reverse` is not 0. Returns 0.
  int otp_read(VD6281_device* dev, int start, int count, unsigned int* value, int reverse);
  unsigned char byte_bit_reversal(unsigned char b);  ///< Returns `b` with its bits reversed.
  char nible_to_ascii(unsigned char n);              ///< Returns the hexadecimal digit of `n`.
  /// XORs a half byte of the uid into `acc` and returns the hexadecimal digit of the result.
  char encode_nible(unsigned char n, unsigned char* acc);

  /// Sets the exposure, microseconds, in registers 0x1E and 0x1D, and notes it in the record where
  /// `store` is not 0.
  int set_exposure(VD6281_device* dev, unsigned int exposure, int store);
  /// Gives the exposure that the record notes, microseconds. Returns 0.
  int get_exposure(VD6281_device* dev, unsigned int* exposure);
  /// Sets the gain, 8.8 fixed point, of the channel index 0..5, and notes it in the record.
  int set_channel_gain(VD6281_device* dev, int index, unsigned short gain);
  /// Gives the gain that the record notes for the channel index 0..5. Returns 0.
  int get_channel_gain(VD6281_device* dev, int index, unsigned short* gain);

  /// Returns the value of register 0x2E for a start of `mode` (VD6281_Mode_t) on `channels`.
  unsigned char dev_enable_dc_chan_en_for_mode(VD6281_device* dev, unsigned int mode,
                                               unsigned char channels);
  /// Returns the value of register 0x2E for a stop of `mode`.
  unsigned char dev_disable_dc_chan_en_for_mode(VD6281_device* dev, unsigned int mode);
  /// Switches on what `channels` need (registers 0x2E and 0x2D) and notes them for `mode`. Returns
  /// -1 when one of them is in use. A failure is undone.
  int dev_enable_channels_for_mode(VD6281_device* dev, unsigned int mode, unsigned char channels);
  /// Switches off what only the channels of `mode` need. A failure is undone.
  int dev_disable_channels_for_mode(VD6281_device* dev, unsigned int mode);
  /// Programs the record's flicker output type in registers 0x31, 0x41, 0x47 and, on cut 2.2, 0x71.
  int enable_flicker_output_mode(VD6281_device* dev);
  /// Sets the registers of the flicker output type back.
  int disable_flicker_output_mode(VD6281_device* dev);
  /// Replaces the bits of `mask` in register 0x31 by those of `bits`.
  int ac_mode_update(unsigned char mask, unsigned char bits);
  /// Starts ALS in `mode`. Returns -7 while ALS runs, and -1 for a channel in use or for what the
  /// silicon cannot do.
  int start_als(VD6281_device* dev, unsigned char channels, unsigned int mode);
  /// Stops ALS. Returns -8 when it does not run in `mode`.
  int stop_als(VD6281_device* dev, unsigned int mode);
  /// Starts flicker on exactly one channel. Returns -7 while flicker runs, and -1 for any other
  /// mask, a channel in use or what the silicon cannot do.
  int start_flicker(VD6281_device* dev, unsigned char channels);
  /// Stops flicker. Returns -8 when it does not run. Once the engine is off, a clean-up that fails
  /// is only logged.
  int stop_flicker(VD6281_device* dev);
  int start_single_shot(VD6281_device* dev, unsigned char channels);  ///< Calls start_als.
  int start_synchronous(VD6281_device* dev, unsigned char channels);  ///< Calls start_als.
  int stop_single_shot(VD6281_device* dev);                           ///< Calls stop_als.
  int stop_synchronous(VD6281_device* dev);                           ///< Calls stop_als.

  /// Reads from register 0x02 whether a result waits. `ready` is 1 after a failed read, too.
  int is_data_ready(VD6281_device* dev, unsigned char* ready);
  /// Reads the count, 24 bits, of the channel index 0..5 byte by byte (registers 0x06..0x1C).
  int read_channel(VD6281_device* dev, int index, unsigned int* count);
  /// Acknowledges the result and re-arms the chip by register 0x02.
  int acknowledge_irq(VD6281_device* dev);
  /// Computes the corrected counts from the raw ones by cook_values_slope.
  void cook_values(VD6281_device* dev, VD6281_Als_t* values);
  /// Computes the counts of the running channels from the raw ones and the OTP's slopes; where
  /// otp_usage_enable is 0 the slopes are neutral.
  void cook_values_slope(VD6281_device* dev, VD6281_Als_t* values);
  /// Returns a raw count corrected by a slope, of which 0x80 is neutral.
  unsigned int cook_values_slope_channel(unsigned char slope, unsigned int raw);

  /// Gives 1 when the pedestal is on (register 0x31), or after a failed read; else 0.
  int get_pedestal_enable(VD6281_device* dev, unsigned int* value);
  /// Switches the pedestal off (0) or on (any other value) in register 0x31.
  int set_pedestal_enable(VD6281_device* dev, unsigned int value);
  /// Gives the pedestal's value (register 0x32), 0 after a failed read.
  int get_pedestal_value(VD6281_device* dev, unsigned int* value);
  /// Sets the pedestal's value to the low three bits of `value`. A failed write's result comes
  /// negated.
  int set_pedestal_value(VD6281_device* dev, unsigned int value);
  /// Gives the use of the OTP as it was set. Returns 0.
  int get_otp_usage_enable(VD6281_device* dev, unsigned int* value);
  /// Sets the use of the OTP and trims the oscillators anew.
  int set_otp_usage_enable(VD6281_device* dev, unsigned int value);
  /// Gives the dark output as it was set. Returns 0.
  int get_output_dark_enable(VD6281_device* dev, unsigned int* value);
  /// Switches the dark output off (0) or on (any other value) by register 0x6C.
  int set_output_dark_enable(VD6281_device* dev, unsigned int value);
  /// Gives the drive strength of the bus's data line (register 0x3C), 4 after a failed read.
  int get_sda_drive_value(VD6281_device* dev, unsigned int* value);
  /// Sets the drive strength to 4, 8, 12, 16 or 20. Returns 1 for any other value.
  int set_sda_drive_value(VD6281_device* dev, unsigned int value);
  /// ORs the flag of the work-around whose identifier is in `value` into bit 31 of `value`. Returns
  /// 1 for an unknown identifier.
  int get_wa_status(VD6281_device* dev, unsigned int* value);
  /// Sets the flag of the work-around whose identifier is in `value` to bit 31 of `value`. Returns
  /// 1 for an unknown identifier.
  int set_wa_status(VD6281_device* dev, unsigned int value);

  /// @}
  /// @name State of the process
  /// @{

  static SpectralSensorDevice* m_pInstance;  ///< The one instance, or null.
  static std::mutex m_instance_mtx;          ///< Orders Create and Destroy.
  static VD6281_device m_VD6281Device[1];    ///< The one device record.

  /// @}
  /// @name State of the service
  /// @{

  ALSConfig m_alsConfig;                           ///< In force, or proposed for the next capture.
  std::uint8_t m_alsChannelMask = 0x1B;            ///< Channels of the ALS measurements.
  std::uint32_t m_flkChannelMask = 0x20;           ///< Channel of the flicker measurement.
  ALSResult m_alsResult = {};                      ///< Last auto-exposure result, calibrated.
  FlickerResult m_flkResult = {};                  ///< Last flicker result.
  std::uint16_t m_flkGain = 1;                     ///< Gain of the flicker channel, 8.8.
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
  std::uint8_t m_alsAeEnable = 1;        ///< 1: Process(1) runs the auto-exposure capture.
  std::uint64_t m_flkCaptureTimeNs = 0;  ///< Start of the last flicker capture, since boot.
  std::uint8_t m_alsEnableFlag = 1;      ///< 0 abandons ambient-light captures.
  std::uint8_t m_flkEnableFlag = 1;      ///< 0 abandons flicker captures.
  std::uint8_t m_powered = 0;            ///< Last value that VD6281_Enable wrote.
  std::mutex m_flk_data_mtx;             ///< Held while a tunnel is captured.
  std::mutex m_flk_lib_mtx;              ///< Guards the analysis library and its fields.
  std::mutex m_init_mtx;                 ///< Orders Init and Uninit.
  std::mutex m_als_mtx;                  ///< Held while an auto-exposure capture waits.
  std::condition_variable m_als_cv;      ///< Wakes that capture.

  /// @}
};
