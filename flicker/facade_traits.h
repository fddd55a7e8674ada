#pragma once

// What differs between the two facades, SpectralSensorDevice and SpectralSensor.
//
// The two offer the same service. Whatever both do alike is one function template over the facade,
// in the .cpp of its topic, and uses the fields that both classes have under the same names.
// Everything else that such a flow needs of a facade (its log tag, its units and its way to the
// chip) is declared here, in one specialisation for each facade. The definitions are in the topic's
// .cpp, those of the two facades side by side.

#include <cstdint>

#include "driver/register_access.h"
#include "flicker/flicker_start_rule.h"
#include "spectral_sensor.h"
#include "spectral_sensor_device.h"

namespace spectral {

template <typename Facade>
struct FacadeTraits;

// Reaches the chip through the driver's operations on the device record; gains are 8.8 codes.
template <>
struct FacadeTraits<SpectralSensorDevice> {
  using Facade = SpectralSensorDevice;
  static constexpr const char* kLogTag = kDriverTag;

  // service/lifecycle.cpp. The status of both is 0 or -22, and a failure is logged.
  static int bring_up(Facade& facade);         // powers the sensor and configures it
  static int prepare_flicker(Facade& facade);  // before the first flicker client's library
  // The last client of a mode leaves, or one too many does: `clients` is the count before.
  static void end_als(Facade& facade, int clients);
  static void end_flicker(Facade& facade, int clients);
  static void tear_down(Facade& facade);

  // service/process.cpp: the time that a flicker result carries, nanoseconds since boot.
  static std::uint64_t flicker_time_ns(const Facade& facade);

  // service/als_capture.cpp. The statuses are the driver's.
  static int configure_als(Facade& facade, const ALSConfig& wanted, ALSConfig* actual);
  static int start_als(Facade& facade);
  static int stop_als(Facade& facade);
  // Reads once; `valid` becomes 1 if a result was ready.
  static int read_als(Facade& facade, bool calibrated, ALSResult* result);

  // service/auto_exposure.cpp: a proposal's gains, given as factors, in the facade's unit. The
  // reset after a bad exposure programs gain code 1 and not unity, which is intended.
  static constexpr float kResetGain = gain_factor(1);
  static void set_gains(const float (&gains)[6], ALSConfig* next);

  // flicker/analysis_library.cpp: the file that is loaded.
  static const char* analysis_path();

  // flicker/flicker_start.cpp. The statuses are the driver's.
  using Gain = std::uint16_t;
  static constexpr Gain gain_of(std::uint16_t gain_q8) { return gain_q8; }
  static int select_flicker_channel(Facade& facade);  // m_flkChannelMask
  static int set_flicker_gain(Facade& facade, Gain gain, Gain* applied);
  static void switch_pedestal_on(Facade& facade);  // for a start without a gain search
  static int start_flicker(Facade& facade);
  static int stop_flicker(Facade& facade);
  // Reads the saturation counter into `counter`. False ends the trial's polls.
  static bool read_saturation(Facade& facade, SaturationCounter* counter, ErrorSum* errors);
  static void log_search_failed(const Facade& facade, int errors);

  // flicker/flicker_detector_poll.cpp: asks the chip's detector until it fails or has an answer.
  using DetectorInfo = VD6281_FlickerInfo_t;
  static int poll_detector(Facade& facade, DetectorInfo* info);
};

// Reaches the chip through AmbientLightSensor and FlickerSensor; gains are factors.
template <>
struct FacadeTraits<SpectralSensor> {
  using Facade = SpectralSensor;
  static constexpr const char* kLogTag = "ilsservice-driver";

  static int bring_up(Facade& facade);
  static int prepare_flicker(Facade& facade);
  static void end_als(Facade& facade, int clients);
  static void end_flicker(Facade& facade, int clients);
  static void tear_down(Facade& facade);

  static std::uint64_t flicker_time_ns(const Facade& facade);

  static int configure_als(Facade& facade, const ALSConfig& wanted, ALSConfig* actual);
  static int start_als(Facade& facade);
  static int stop_als(Facade& facade);
  static int read_als(Facade& facade, bool calibrated, ALSResult* result);

  static constexpr float kResetGain = 1.0f;
  static void set_gains(const float (&gains)[6], ALSConfig* next);

  static const char* analysis_path();

  using Gain = float;
  static constexpr Gain gain_of(std::uint16_t gain_q8) { return gain_factor(gain_q8); }
  static int select_flicker_channel(Facade& facade);
  static int set_flicker_gain(Facade& facade, Gain gain, Gain* applied);
  static void switch_pedestal_on(Facade& facade);  // does nothing: this facade leaves it alone
  static int start_flicker(Facade& facade);
  static int stop_flicker(Facade& facade);
  static bool read_saturation(Facade& facade, SaturationCounter* counter, ErrorSum* errors);
  static void log_search_failed(const Facade& facade, int errors);

  using DetectorInfo = Spectral_FlickerInfo_t;
  static int poll_detector(Facade& facade, DetectorInfo* info);
};

using DeviceTraits = FacadeTraits<SpectralSensorDevice>;
using LayeredTraits = FacadeTraits<SpectralSensor>;

}  // namespace spectral
