#pragma once

// The light in front of the sensor.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace spectralsim {

// The waveform of a lamp's light. Its mean is 1.
struct Wave {
  enum class Kind {
    kMains,   // a rectified sine, |sin|, of `hz` maxima a second, with all its harmonics
    kPwm,     // light for the fraction `duty` of each period, none for the rest
    kCandle,  // slow, irregular, below 20 Hz
  };
  Kind kind = Kind::kMains;
  double hz = 100.0;   // not used for a candle
  double duty = 0.5;   // of a PWM lamp; above 0, at most 1
  double share = 1.0;  // of the scene's light; light that no wave has is steady

  // The integral of the light from 0 to `at_s`, in seconds.
  double integral(double at_s) const;
  // The amplitude at the wave's own frequency, relative to the scene's light; 0 for a candle.
  double strength() const;
};

// The scene in front of a phone for which none is chosen.
constexpr char kUsualScene[] = "office";

// The light on each of the six channels, in counts per millisecond of exposure at gain 1.0.
using Light = std::array<double, 6>;

class __attribute__((visibility("default"))) Scene {
 public:
  // The light at `at_ms` milliseconds of the phone's time. Between two points it changes linearly;
  // before the first and after the last it is constant.
  struct Point {
    double at_ms;
    Light light;
  };

  // A scene with constant light.
  explicit Scene(const Light& light) : m_points{{0.0, light}} {}

  // A scene with changing light. There must be at least one point, and the points must be in order
  // of time; otherwise the constructor throws std::invalid_argument.
  explicit Scene(std::vector<Point> points);

  // Lets the light flicker. Throws std::invalid_argument if a share is negative or the sum of the
  // shares exceeds 1.
  Scene& flicker(std::vector<Wave> waves);

  // A built-in scene. For an unknown name it throws std::invalid_argument, which lists the names.
  static Scene named(const std::string& name);
  static std::vector<std::string> names();
  // One line on what a built-in scene shows.
  static std::string description(const std::string& name);

  // Parses a scene in JSON. Its light is either constant or given by points:
  //
  //   {"light": [six numbers]}
  //   {"points": [{"at_ms": 0, "light": [six numbers]}, ...]}
  //
  // Either object may also have a list of waves; only a PWM wave has a duty, and a candle has no
  // frequency:
  //
  //   "flicker": [{"wave": "mains", "hz": 100, "share": 0.8},
  //               {"wave": "pwm", "hz": 300, "duty": 0.4, "share": 0.1},
  //               {"wave": "candle", "share": 0.1}]
  //
  // Throws std::invalid_argument with a text that names the line and says what is wrong there. A
  // key that the scene does not have or that stands there twice is refused.
  static Scene from_json(const std::string& text);

  // A built-in scene or, if the name ends in ".json", the scene in the file of this path. An error
  // in the file also names the file.
  static Scene named_or_file(const std::string& name);

  // The mean light of a channel between two times of the phone, without the flicker.
  double mean(int channel, double from_ms, double to_ms) const;

  // The factor by which the flicker changes the mean light between two times. Its long-term mean is
  // 1.
  double modulation(double from_s, double to_s) const;

  // The frequency of the strongest wave, or 0 if there is no mains or PWM wave.
  double strongest_hz() const;

 private:
  double level(int channel, double at_ms) const;

  std::vector<Point> m_points;
  std::vector<Wave> m_waves;
};

}  // namespace spectralsim
