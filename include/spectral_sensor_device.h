#pragma once

/// @file
/// The driver of the VD6281 spectral sensor with the process-wide sensor service on top of it, and
/// what they share with the layered service.

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "spectral_export.h"
#include "spectral_status.h"
#include "spectral_types.h"
#include "vd6281.h"

/// FlickerCreate of the flicker-analysis library: makes an instance; called with null and 0.
using FlickerCreateFn = void* (*)(void* config, std::int32_t flags);

/// FlickerProcess: takes 2000 samples of one second and writes up to three frequencies, strongest
/// first, and their powers.
using FlickerProcessFn = void (*)(void* instance, const float* samples, float* frequencies_hz,
                                  float* powers);

/// FlickerDestroy: frees an instance.
using FlickerDestroyFn = void (*)(void* instance);

/// The analysis library that the layered service opens; an embedding process may point it elsewhere
/// before Init. SpectralSensorDevice opens "/vendor/lib64/libzelk_flicker.so" whatever this says.
extern SPECTRAL_EXPORT const char* pVendorLibPath;

/// What the flicker tracking carries from one measurement to the next.
struct FlickerTrack {
  std::uint32_t mains_cand = 0;              ///< Mains frequency that is being confirmed, Hz.
  std::uint32_t mains_count = 0xFFFFFFFF;    ///< Measurements that saw it; all ones: none made yet.
  std::uint32_t dom_cand = 0;                ///< Dominant frequency that is being confirmed, Hz.
  std::uint32_t dom_count = 0xFFFFFFFF;      ///< Measurements that saw it, as above.
  std::uint32_t mains_freq = 0;              ///< Mains frequency reported, Hz, 0 = none.
  std::uint32_t mains_strength = 0;          ///< Its strength, signed.
  std::uint32_t dom_freq = 0;                ///< Dominant frequency reported, Hz, 0 = none.
  std::uint32_t dom_strength = 0;            ///< Its strength.
  std::uint32_t dom_miss = 0;                ///< New candidates since one was reported.
  std::uint32_t mains_a = 100;               ///< First mains flicker frequency, 100 Hz.
  std::uint32_t mains_b = 120;               ///< Second mains flicker frequency, 120 Hz.
  std::uint32_t out_dominant_freq = 0;       ///< FlickerResult::dominant_freq as reported.
  std::uint32_t out_secondary_freq = 0;      ///< FlickerResult::secondary_freq as reported.
  std::uint32_t out_strength_a = 0;          ///< FlickerResult::strength_a as reported.
  std::uint32_t out_strength_b = 0;          ///< FlickerResult::strength_b as reported.
  std::uint32_t out_dominant_strength = 0;   ///< FlickerResult::dominant_strength as reported.
  std::uint32_t out_secondary_strength = 0;  ///< FlickerResult::secondary_strength as reported.
};
static_assert(sizeof(FlickerTrack) == 17 * sizeof(std::uint32_t), "seventeen words");

/// The driver of the VD6281 spectral sensor and, on top of it, the process-wide sensor service with
/// its two clients, ambient light (mode 1) and flicker (mode 2). Messages go to the log under
/// "ilsservice-driver-device".
///
/// @code
/// SpectralSensorDevice* sensor = SpectralSensorDevice::Create();
/// sensor->Init(SPECTRAL_MODE_ALS);
/// SpectralSensorOutput output{};
/// if (sensor->Process(SPECTRAL_MODE_ALS, &output) == 0 && output.als.valid) { ... }
/// sensor->Uninit(SPECTRAL_MODE_ALS);
/// SpectralSensorDevice::Destroy();
/// @endcode
///
/// Statuses. The service answers 0, -17 (already initialised) or -22 (failed). The driver answers
///
/// | status | what it means |
/// | --- | --- |
/// | 0 | done |
/// | -1 | bad argument, or a kernel file that does not open |
/// | -2 | bring-up failed |
/// | -3 | OTP not ready |
/// | -4 | no device open |
/// | -7 | refused: a measurement of that kind runs, or the device is not idle |
/// | -8 | the measurement to stop or read does not run |
/// | 1 | unsupported value or busy channel |
/// | 7 | a change of the ALS settings while ALS runs |
/// | 8 | ALS values asked while no ALS runs |
///
/// and passes the result of a failed ioctl, read or write up unchanged. Every failed system call is
/// logged; refusals are not. Out-parameters are written only on success unless stated otherwise.
///
/// Threads. Any thread may call any operation. Create and Destroy exclude each other, so do Init
/// and Uninit, and SetEnableFlag may come at any time. Nothing else locks: measurements, of either
/// mode, are one at a time. During one, clients of the other mode may come and go, and further ones
/// of its own may come; its last Uninit, ResetDevice and Destroy have to wait for its end.
class SPECTRAL_EXPORT SpectralSensorDevice {
 public:
  /// An object with the defaults stated at the fields below. Clients use Create.
  SpectralSensorDevice();
  SpectralSensorDevice(const SpectralSensorDevice&) = delete;
  SpectralSensorDevice& operator=(const SpectralSensorDevice&) = delete;

  /// @name Service: lifecycle
  /// @{

  /// The one instance of the process; the first call makes it and switches the sensor's power off
  /// ("iridel_enable"), whose failure is only logged.
  static SpectralSensorDevice* Create();

  /// Counts one client of `mode` (1 = ALS, 2 = flicker); the first of either mode powers the
  /// sensor, brings it up and sets the pedestal, the first of flicker loads the analysis library,
  /// and the first successful one reads the calibration. Returns 0, -22 when a step failed (logged;
  /// undone by the Uninit that the caller still owes), or -17 when the sensor was up already or for
  /// any other mode, which counts nothing.
  int Init(int mode);

  /// Takes one client of `mode` away; the last of a mode stops its measurement, and of flicker
  /// unloads the analysis library; the last of both tears the device down and switches the power
  /// off. Any other mode does nothing.
  void Uninit(int mode);

  /// Tears the device down whatever the counts say, and frees the instance.
  static void Destroy();

  /// Forgets all clients and switches the power off, leaving the device record, its descriptors and
  /// the measurement as they are. Returns the result of VD6281_Enable(false).
  int ResetDevice();

  /// Lets the captures of a kind go on (true) or abandons them (false): `which` 1 is ALS and wakes
  /// a capture that waits, any other value is flicker. May be called from any thread.
  void SetEnableFlag(int which, bool enable);

  /// @}
  /// @name Service: ambient light
  /// @{

  /// Takes one measurement of `mode` into `output`. Mode 1: 0 with output->als.valid 1; 0 with
  /// valid 0 for a time-out or an abort (default capture); -22 for a failure. Mode 2: always 0,
  /// about 1.1 s later; failures are logged, and output->flicker holds what came of it. A null
  /// `output` or any other mode gives -22.
  int Process(int mode, SpectralSensorOutput* output);

  /// Starts a single-shot measurement on m_alsChannelMask. 0, or -22 (logged).
  int StartExpALS();

  /// Stops it. 0, or -22 (logged).
  int StopExpALS();

  /// Programs the exposure, and the gain codes of the channels in m_alsChannelMask; `actual` gets
  /// what the device took (codes of other channels 0, factors 1.0). 0; -22 when refused while ALS
  /// runs or when a register write fails (logged), or for a null argument.
  int ConfigALS(const ALSConfig* config, ALSConfig* actual);

  /// Reads one measurement. With `wait` polls each millisecond, up to 8192 times or until the ALS
  /// enable flag is cleared (then 0 with valid 0); without, a result that is not ready gives -22.
  /// A failed read gives -22 and valid 0. `timestamp` is not touched. A null `result` gives -22.
  int ReadALS(ALSResult* result, bool wait);

  /// Configures, starts, waits, reads and stops, with m_alsConfig as it is. No calibration factor
  /// is applied. The result is that of ReadALS.
  int CaptureALSDefault(SpectralSensorOutput* output);

  /// The same with the wait on a condition variable, calibration factors applied and the next
  /// configuration proposed. On a failed read `output` gets the previous result and -22 is
  /// returned.
  int CaptureALSAE(SpectralSensorOutput* output);

  /// Proposes the configuration that brings the brightest channel of `result` to 30..70 % of its
  /// saturation level; `stable` tells whether it is there already, or cannot be brought there.
  /// 0, or -22 for a null argument or a result without channels.
  int ALSAE(ALSResult* result, ALSConfig* next, bool* stable);

  /// The largest entry of the ALS gain table not above `target` within the indices low..high
  /// (0..15); the entry at `low` if all are. Bad indices are logged and give the smallest gain,
  /// 0.71.
  float LookUpGain(float target, int low, int high);

  /// @}
  /// @name Service: flicker
  /// @{

  /// Starts the flicker measurement with the highest gain that does not saturate: searches on
  /// channel 6 and, should the lowest gain saturate there, on channel 3; both are kept in
  /// m_flkChannelMask and m_flkGain. Returns 0, or -22 when any step failed (logged with the sum of
  /// all their results; the search goes on).
  int StartExpFLK_AutoGain();

  /// Starts the flicker measurement on m_flkChannelMask at m_flkGain, pedestal on. 0, or -22
  /// (logged).
  int StartExpFLK();

  /// Stops it. 0, or -22 (logged).
  int StopExpFLK();

  /// Captures `len_ms` (10..1000) of samples through the sensor hub's tunnel "/dev/sensor_tunnel"
  /// into `out`: 160 bytes for every 10 ms, zeros where the stream gave less. 0, also for a capture
  /// without data, or -22 (logged).
  int ReadFLKData(int len_ms, unsigned char* out);

  /// One whole flicker measurement: gain search, capture of one second, analysis, tracking. Always
  /// 0; `result` is left as it is when the flicker enable flag is cleared meanwhile.
  int FlickerCoreWrapper(FlickerResult* result);

  /// Fills `result` from three frequencies (Hz) and their amplitudes, ranked by the harmonics that
  /// support each and confirmed over consecutive calls.
  float FlickerResultProcessing(float* freqs, float* amps, FlickerResult* result);

  /// The weight, 0..1, of what is found at `g` Hz towards a lamp of `f` Hz; 0 outside 50..1050 Hz.
  float ComputeHarmonicContribution(int f, int g);

  /// Fills `result` from the chip's own detector, of a flicker measurement that runs: polls up to
  /// 8192 times. 0, or -22 for a null `result` or a failed read (logged).
  int ReadFLK(FlickerResult* result);

  /// Loads the analysis library and makes its one instance. 0, or -22 (logged).
  int LoadFlickerLibrary();

  /// Destroys the instance and closes the library; one that is not loaded is only logged.
  void UnloadFlickerLibrary();

  /// Logs what dlerror tells, if anything, and closes the library. 0 or -22.
  int check_dl_error();

  /// @}
  /// @name Service: calibration
  /// @{

  /// Finds the phone model and the unit's factory readings and computes the six factors.
  /// Returns 1 when the unit is calibrated now, else 0.
  int PrepareCalibrationData();

  /// The phone model by the property "ro.product.device": 1..4, or 0 for any other.
  int GetDeviceType();

  /// Reads the six channel readings of the factory file into `fatp`. True when all six are within
  /// 100..50000; false also for a file that does not open, a line that is not a number, or null.
  bool GetFATPData(unsigned short* fatp);

  /// Computes the factors from readings given by the caller, unchecked. Without readings or for an
  /// unknown model the unit counts as not calibrated.
  void ComputeCalData(unsigned short* fatp);

  /// Stores `raw` in m_alsResult, with the factors applied (at most 65535) on a calibrated unit.
  void CorrectALSRAW(const ALSResult* raw);

  /// @}
  /// @name Driver: power and bring-up
  /// @{

  /// Writes "1" or "0" to "iridel_enable" and notes it in the instance, which must exist (Create).
  /// 0, -1 when the attribute does not open, or the failed write's result.
  int VD6281_Enable(bool enable);

  /// Reads back whether the sensor is powered. 0, -1 or the failed read's result. `enabled` must
  /// not be null.
  int VD6281_CheckEnableStatus(bool* enabled);

  /// Opens the kernel nodes, identifies the chip, resets and configures it. 0, or -2 with
  /// everything closed again.
  int VD6281_Init();

  /// Resets the chip and closes the kernel nodes. 0 or -4.
  int VD6281_Term();

  /// The driver's version. 0, or -1 for a null pointer. Needs no device.
  int VD6281_GetVersion(unsigned int* major, unsigned int* minor);

  /// The chip's identifier and revision (silicon cut) as read at bring-up. 0, -4, -1.
  int VD6281_GetProductVersion(unsigned char* id, unsigned char* revision);

  /// Points `uid` at the unit's id text, which the driver owns and keeps until the next bring-up.
  /// 0, -4, -1.
  int VD6281_GetUid(char** uid);

  /// @}
  /// @name Driver: registers
  /// @{

  /// Reads one register by one ioctl. 0, -4 or the ioctl's result, which leaves `data` untouched.
  int VD6281_RdByte(unsigned char addr, unsigned char* data);

  /// Writes one register by one write to "iridel_write_byte". 0, -4 or the write's result.
  int VD6281_WrByte(unsigned char addr, unsigned char data);

  /// Reads `count` consecutive registers one by one, wrapping from 0xFF to 0x00; those read before
  /// a failure are stored. A `count` below 1 reads nothing. 0, -4 or the failed ioctl's result.
  int VD6281_RdMultipleBytes(unsigned char addr, unsigned char* data, int count);

  /// @}
  /// @name Driver: exposure, gain and timing
  /// @{

  /// Sets the ALS exposure (microseconds; 1600..1636800 in steps of 1600, nearest taken) in
  /// registers 0x1E and 0x1D; `applied` gets what is in force. 0, -4, -1, 7, or a failed write's
  /// result.
  int VD6281_SetExposureTime(unsigned int exposure, unsigned int* applied);

  /// The exposure in force, microseconds, from the device record. 0, -4, -1.
  int VD6281_GetExposureTime(unsigned int* exposure);

  /// Sets the gain of one channel (8.8 fixed point, 256 = 1.0; the nearest of the chip's fifteen,
  /// 0.71..66.67) in registers 0x25..0x2A. 0, -4, -1, 1 while a measurement uses the channel, or a
  /// failed write's result.
  int VD6281_SetGain(VD6281_Channel_Id_t channel, unsigned short gain, unsigned short* applied);

  /// The gain in force of one channel, 8.8 fixed point, from the device record. 0, -4, -1.
  int VD6281_GetGain(VD6281_Channel_Id_t channel, unsigned short* gain);

  /// Sets the period of the synchronous ALS (microseconds; 0..5227500 in steps of 20500, nearest
  /// taken) in register 0x04 and reads it back into `applied`. 0, -4, -1, 7, -7 where the silicon
  /// needs the idle state, or a failed register access's result.
  int VD6281_SetInterMeasurementTime(unsigned int period, unsigned int* applied);

  /// Reads the period from register 0x04, microseconds. 0, -4, -1 or the failed read's result.
  int VD6281_GetInterMeasurementTime(unsigned int* period);

  /// The colour filter behind a channel. 0, -4, -1.
  int VD6281_GetChannelColor(VD6281_Channel_Id_t channel, VD6281_Color_Id_t* color);

  /// @}
  /// @name Driver: measurements
  /// @{

  /// Starts a measurement on a channel mask (1..63; exactly one channel for flicker). 0, -4, -1
  /// (also when a channel is in use), -7, or a failed register access's result with everything
  /// undone.
  int VD6281_Start(VD6281_Mode_t mode, unsigned char channels);

  /// Stops it. 0, -4, -1, -8, or a failed register access's result.
  int VD6281_Stop(VD6281_Mode_t mode);

  /// Selects what the next flicker start puts out. 0, -4, -7, or 1 for a type that the chip lacks.
  int VD6281_SetFlickerOutputType(VD6281_FlickerOutputType_t type);

  /// Reads the counts of the running ALS, if a result waits, in one burst, and re-arms the chip.
  /// `ready` tells whether `values` was filled. 0, -4, -1, 8, or a failed register access's result:
  /// with `ready` 1 and `values` untouched when a read failed, filled when only the re-arming did.
  int VD6281_GetAlsValues(unsigned char channels, VD6281_Als_t* values, unsigned char* ready);

  /// The same with one read a byte, of the channels asked and running only.
  int VD6281_GetAlsValues_Ref(unsigned char channels, VD6281_Als_t* values, unsigned char* ready);

  /// @}
  /// @name Driver: the chip's flicker detector
  /// @{

  /// Reads the detector of the running flicker measurement once (registers 0x33..0x39);
  /// `info->confidence` tells whether it has an answer. `channel` and `gain` are not written. 0,
  /// -4, -1, -8, or the failed read's result with `info` untouched.
  int VD6281_GetFlickerFrequency(VD6281_FlickerInfo_t* info);

  /// The same from start to stop: starts flicker with automatic gain, polls up to `polls` times
  /// (8192..81920) without a pause, stops, and notes channel and gain. 0, also without an answer;
  /// 1 for a null `info`; or a failed read's result (logged).
  int VD6281_GetFlickerFrequency_Ref(VD6281_FlickerInfo_t* info, int polls);

  /// @}
  /// @name Driver: the sensor hub's tunnel
  /// One capture is VD6281_QuilInit, VD6281_QuilTunnelSetup, VD6281_QuilResetRdBuf,
  /// VD6281_GetFlickerDataBuffer and VD6281_QuilTunnelTerminate, all on the tunnel block of the
  /// device record.
  /// @{

  /// Forgets all of the block. 0 or -4.
  int VD6281_QuilInit();

  /// Opens "/dev/sensor_tunnel" and routes the flicker and the VSYNC stream into it. 0 or -4; after
  /// a failure (logged) everything is undone and the result is that of QuilTunnelTerminate, so 0
  /// for a tunnel that does not open.
  int VD6281_QuilTunnelSetup();

  /// Empties the buffers and the per-id tables. 0 or -4.
  int VD6281_QuilResetRdBuf();

  /// Gathers len_ms / 10 flicker payloads (at most 1000 ms) and returns them; fewer when the stream
  /// fails or the flicker enable flag is cleared. Null without a device, for a longer request, or
  /// when the stream is out of step (logged).
  unsigned char* VD6281_GetFlickerDataBuffer(unsigned int len_ms);

  /// Closes the streams, the tunnel and the dump files. 0, -4, or the failed route ioctl's result.
  int VD6281_QuilTunnelTerminate();

  /// Debugging: reads as GetFlickerDataBuffer does and writes the raw stream to
  /// "/data/unparsed_flicker_data" and all payloads to "/data/flicker_data.wav", bare. 0, -4, -1,
  /// or the result of QuilTunnelTerminate after a failure.
  int VD6281_QuilDumpFlickerDataToFile(unsigned int len_ms);

  /// @}
  /// @name Driver: controls
  /// @{

  /// Sets one of the secondary settings (VD6281_Control_Id_t tells the values). 0, -4, -1 for an
  /// unknown control, -7 in the wrong state, 1 for an unsupported value, a failed register access's
  /// result; that of the pedestal value comes negated.
  int VD6281_SetControl(VD6281_Control_Id_t id, unsigned int value);

  /// Reads one back. A failed register read still writes `value`: 1, 0 and 4 for the pedestal
  /// switch, the pedestal value and the drive strength. VD6281_CONTROL_WA_STATUS takes the
  /// work-around's identifier in `value` and ORs its flag into bit 31. 0, -4, -1 for an unknown
  /// control or a null `value`, 1 for an unknown work-around, or the failed read's result.
  int VD6281_GetControl(VD6281_Control_Id_t id, unsigned int* value);

  /// @}
  /// @name Internal operations
  /// They take the record and make no public checks. Where no result is told it is 0, or that of
  /// the register access that failed: the ioctl's, the write's, or -4 without a device.
  /// @{

  VD6281_device* get_device();         ///< The record if it is free, else null.
  VD6281_device* get_active_device();  ///< The record if it is in use, else null.
  /// Zero-fills the record and sets its defaults, state idle.
  void setup_device(VD6281_device* dev);
  /// Sets the work-arounds that the chip's identifiers ask for.
  void select_device_wa(VD6281_device* dev);
  bool is_cut_2_0(VD6281_device* dev);            ///< Whether the chip is a VD6281 of cut 2.0.
  bool is_cut_2_1(VD6281_device* dev);            ///< Whether the chip is a VD6281 of cut 2.1.
  bool is_cut_2_2(VD6281_device* dev);            ///< Whether the chip is a VD6281 of cut 2.2.
  int channelId_2_index(VD6281_Channel_Id_t id);  ///< 0..31, or 6 unless exactly one bit is set.

  /// Reads the chip's identifiers (registers 0x00, 0x01). 2 for a chip that is not supported.
  int check_supported_device(VD6281_device* dev);
  /// Resets the chip by register 0xFE.
  int dev_sw_reset(VD6281_device* dev);
  /// Reloads the OTP (registers 0x58, 0x5A); -3 when it does not get ready.
  int opt_reset(VD6281_device* dev);
  /// Resets the chip, reloads its OTP and marks the record free; the nodes stay open.
  void put_device(VD6281_device* dev);
  /// Gives a freshly reset chip its working configuration, from the OTP on.
  int dev_configuration(VD6281_device* dev);
  /// Writes the oscillator trims (registers 0x3D..0x40): the OTP's, or the built-in ones where the
  /// OTP is not to be used.
  int trim_oscillators(VD6281_device* dev);
  /// Switches the clamp on (registers 0x2F, 0x30, 0x72).
  int clamp_enable(VD6281_device* dev);

  /// Reads both OTP banks (registers 0x5B..0x6A) and packs them into the record's two words.
  int opt_read_init(VD6281_device* dev);
  /// Decodes the parameters of the record's words; those of an unknown layout are the defaults. 0.
  int otp_read_param(VD6281_device* dev);
  /// The same for the one layout known, unchecked. 0.
  int otp_read_param_v1_v2_v3(VD6281_device* dev);
  /// Writes the record's uid, of an unknown layout all "f". 0.
  int otp_generate_uid(VD6281_device* dev);
  /// The same for the one layout known, unchecked. 0.
  int otp_generate_uid_v1_v2_v3(VD6281_device* dev);
  /// Bits lsb..msb of word `bank` (0 or 1); at most 31 of them. 0.
  int otp_read_bank(VD6281_device* dev, int bank, int lsb, int msb, unsigned int* value);
  /// `count` bits (1..31) from bit `start` of both words taken as one of 128 bits, their order
  /// reversed where `reverse` is not 0. 0.
  int otp_read(VD6281_device* dev, int start, int count, unsigned int* value, int reverse);
  unsigned char byte_bit_reversal(unsigned char b);  ///< `b` with its bits reversed.
  char nible_to_ascii(unsigned char n);              ///< The hexadecimal digit of `n`.
  /// Chains a half byte of the uid into `acc` and returns the digit of what that gives.
  char encode_nible(unsigned char n, unsigned char* acc);

  /// Sets the exposure, microseconds, in registers 0x1E and 0x1D, and notes it where `store` is not
  /// 0.
  int set_exposure(VD6281_device* dev, unsigned int exposure, int store);
  /// The exposure noted, microseconds. 0.
  int get_exposure(VD6281_device* dev, unsigned int* exposure);
  /// Sets the gain, 8.8 fixed point, of the channel index 0..5, and notes it.
  int set_channel_gain(VD6281_device* dev, int index, unsigned short gain);
  /// The gain noted of the channel index 0..5. 0.
  int get_channel_gain(VD6281_device* dev, int index, unsigned short* gain);

  /// The value of register 0x2E that a start of `mode` (VD6281_Mode_t) asks for.
  unsigned char dev_enable_dc_chan_en_for_mode(VD6281_device* dev, unsigned int mode,
                                               unsigned char channels);
  /// The value of register 0x2E that a stop of `mode` asks for.
  unsigned char dev_disable_dc_chan_en_for_mode(VD6281_device* dev, unsigned int mode);
  /// Switches on what `channels` need (registers 0x2E, 0x2D) and notes them for `mode`. -1 when one
  /// is in use; a failure is undone.
  int dev_enable_channels_for_mode(VD6281_device* dev, unsigned int mode, unsigned char channels);
  /// Switches off what nothing else needs of the channels noted for `mode`; a failure is undone.
  int dev_disable_channels_for_mode(VD6281_device* dev, unsigned int mode);
  /// Programs the record's flicker output type (registers 0x31, 0x41, 0x47 and, on cut 2.2, 0x71).
  int enable_flicker_output_mode(VD6281_device* dev);
  /// Sets those registers back.
  int disable_flicker_output_mode(VD6281_device* dev);
  /// Replaces the bits of `mask` in register 0x31 by those of `bits`, on the one record.
  int ac_mode_update(unsigned char mask, unsigned char bits);
  /// Starts ambient light in `mode`; -7 while it runs, -1 for a channel in use or what
  /// the silicon cannot do.
  int start_als(VD6281_device* dev, unsigned char channels, unsigned int mode);
  /// Stops ambient light; -8 when it does not run in `mode`.
  int stop_als(VD6281_device* dev, unsigned int mode);
  /// Starts flicker on exactly one channel; -1 for others, one in use or what the silicon cannot
  /// do, -7 while it runs.
  int start_flicker(VD6281_device* dev, unsigned char channels);
  /// Stops flicker; -8 when it does not run. Once the engine is off a failed clean-up is only
  /// logged.
  int stop_flicker(VD6281_device* dev);
  int start_single_shot(VD6281_device* dev, unsigned char channels);  ///< start_als, single shot.
  int start_synchronous(VD6281_device* dev, unsigned char channels);  ///< start_als, synchronous.
  int stop_single_shot(VD6281_device* dev);                           ///< stop_als, single shot.
  int stop_synchronous(VD6281_device* dev);                           ///< stop_als, synchronous.

  /// Reads register 0x02: whether a result waits. `ready` is 1 on a failure too.
  int is_data_ready(VD6281_device* dev, unsigned char* ready);
  /// Reads the count, 24 bits, of the channel index 0..5 byte by byte (registers 0x06..0x1C).
  int read_channel(VD6281_device* dev, int index, unsigned int* count);
  /// Takes the result as read and re-arms the chip, by register 0x02.
  int acknowledge_irq(VD6281_device* dev);
  /// Makes the corrected counts of the raw ones; that is cook_values_slope.
  void cook_values(VD6281_device* dev, VD6281_Als_t* values);
  /// Corrects the raw counts of the running channels by the OTP's slopes, where it is to be used.
  void cook_values_slope(VD6281_device* dev, VD6281_Als_t* values);
  /// One raw count corrected by a slope, 0x80 = neutral.
  unsigned int cook_values_slope_channel(unsigned char slope, unsigned int raw);

  /// Whether the pedestal is on (register 0x31); 1 on a failure.
  int get_pedestal_enable(VD6281_device* dev, unsigned int* value);
  /// Switches the pedestal off (0) or on.
  int set_pedestal_enable(VD6281_device* dev, unsigned int value);
  /// The pedestal's value (register 0x32); 0 on a failure.
  int get_pedestal_value(VD6281_device* dev, unsigned int* value);
  /// Sets the pedestal's value, its low three bits. A failure comes negated.
  int set_pedestal_value(VD6281_device* dev, unsigned int value);
  /// The use of the OTP as it was set. 0.
  int get_otp_usage_enable(VD6281_device* dev, unsigned int* value);
  /// Sets the use of the OTP and trims the oscillators anew.
  int set_otp_usage_enable(VD6281_device* dev, unsigned int value);
  /// The dark output as it was set. 0.
  int get_output_dark_enable(VD6281_device* dev, unsigned int* value);
  /// Switches the dark output off (0) or on, by register 0x6C.
  int set_output_dark_enable(VD6281_device* dev, unsigned int value);
  /// The drive strength of the bus's data line (register 0x3C); 4 on a failure.
  int get_sda_drive_value(VD6281_device* dev, unsigned int* value);
  /// Sets it: 4, 8, 12, 16 or 20, else 1.
  int set_sda_drive_value(VD6281_device* dev, unsigned int value);
  /// ORs the flag of the work-around whose identifier is in `value` into bit 31; 1 for an unknown
  /// identifier.
  int get_wa_status(VD6281_device* dev, unsigned int* value);
  /// Sets the flag of a work-around from bit 31 of `value`; 1 for an unknown identifier.
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
  std::uint8_t m_alsAeEnable = 1;        ///< Process(1) runs the auto-exposure capture.
  std::uint64_t m_flkCaptureTimeNs = 0;  ///< Start of the last flicker capture, since boot.
  std::uint8_t m_alsEnableFlag = 1;      ///< 0 abandons ambient-light captures.
  std::uint8_t m_flkEnableFlag = 1;      ///< 0 abandons flicker captures.
  std::uint8_t m_powered = 0;            ///< Last value that VD6281_Enable wrote.
  std::mutex m_flk_data_mtx;             ///< Held while a tunnel is captured.
  std::mutex m_flk_lib_mtx;              ///< Of the analysis library and its fields.
  std::mutex m_init_mtx;                 ///< Orders Init and Uninit.
  std::mutex m_als_mtx;                  ///< Held while an auto-exposure capture waits.
  std::condition_variable m_als_cv;      ///< Wakes it.

  /// @}
};
