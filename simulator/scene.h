#pragma once

// The light in front of the sensor.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace spectralsim {

// How a lamp's light goes up and down, always with a mean of 1.
struct Wave {
  enum class Kind {
    kMains,   // rectified: |sin|, `hz` times a second, with all its harmonics
    kPwm,     // full light for `duty` of each period, none for the rest
    kCandle,  // slow, irregular, below 20 Hz
  };
  Kind kind = Kind::kMains;
  double hz = 100.0;   // not of a candle
  double duty = 0.5;   // of a PWM lamp, above 0, at most 1
  double share = 1.0;  // of the scene's light; what no wave has is steady

  // Light times seconds from 0 to `at_s`.
  double integral(double at_s) const;
  // Amplitude at its own frequency, in parts of the scene's light.
  double strength() const;
};

// Light on each of the six channels: counts that a millisecond of exposure at gain 1.0 gives.
using Light = std::array<double, 6>;

class __attribute__((visibility("default"))) Scene {
 public:
  // The light from `at_ms` on, from the phone's start; between two points it changes evenly.
  struct Point {
    double at_ms;
    Light light;
  };

  // Light that does not change.
  explicit Scene(const Light& light) : m_points{{0.0, light}} {}

  // At least one point, in order of time; throws std::invalid_argument otherwise.
  explicit Scene(std::vector<Point> points);

  // Lets the light flicker; throws std::invalid_argument for shares that are negative or more than
  // all.
  Scene& flicker(std::vector<Wave> waves);

  // A built-in scene; throws std::invalid_argument, with the names there are, for any other name.
  static Scene named(const std::string& name);
  static std::vector<std::string> names();
  // One line on what a built-in scene shows.
  static std::string description(const std::string& name);

  // A scene as JSON: {"light": [six numbers]} or {"points": [{"at_ms": 0, "light": [...]}, ...]},
  // and with either, where the light flickers, "flicker": [{"wave": "mains", "hz": 100, "share":
  // 0.8},
  // {"wave": "pwm", "hz": 300, "duty": 0.4, "share": 0.1}, {"wave": "candle", "share": 0.1}].
  // Throws std::invalid_argument that says what is wrong.
  static Scene from_json(const std::string& text);

  // A built-in scene, or the JSON file of this path where the name ends in ".json".
  static Scene named_or_file(const std::string& name);

  // Mean light of a channel between two times of the phone, without its flicker.
  double mean(int channel, double from_ms, double to_ms) const;

  // What the flicker makes of the light between two times: 1 on the long run.
  double modulation(double from_s, double to_s) const;

  // The frequency of the strongest wave, 0 for light that does not flicker fast.
  double strongest_hz() const;

 private:
  double level(int channel, double at_ms) const;

  std::vector<Point> m_points;
  std::vector<Wave> m_waves;
};

}  // namespace spectralsim
