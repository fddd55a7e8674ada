#pragma once

// The light in front of the sensor.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace spectralsim {

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

  // A built-in scene; throws std::invalid_argument, with the names there are, for any other name.
  static Scene named(const std::string& name);
  static std::vector<std::string> names();
  // One line on what a built-in scene shows.
  static std::string description(const std::string& name);

  // A scene as JSON: {"light": [six numbers]} or {"points": [{"at_ms": 0, "light": [...]}, ...]}.
  // Throws std::invalid_argument that says what is wrong.
  static Scene from_json(const std::string& text);

  // A built-in scene, or the JSON file of this path where the name ends in ".json".
  static Scene named_or_file(const std::string& name);

  // Mean light of a channel between two times of the phone.
  double mean(int channel, double from_ms, double to_ms) const;

 private:
  double level(int channel, double at_ms) const;

  std::vector<Point> m_points;
};

}  // namespace spectralsim
