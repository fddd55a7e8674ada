#include "simulator/scene.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace spectralsim {

namespace {

const double kPi = std::acos(-1.0);

// The slow sines of a candle's light: frequency in hertz and amplitude.
constexpr double kCandleSines[][2] = {{1.3, 0.05}, {4.1, 0.04}, {9.7, 0.06}, {12.9, 0.03}};

// The light of each kind of lamp on the channels red, green, blue, infrared, clear and flicker,
// relative to the clear channel. The flicker channel is also clear, with a wider band.
constexpr Light kWarm = {0.52, 0.36, 0.12, 1.35, 1.0, 1.25};      // candle, incandescent
constexpr Light kLed = {0.34, 0.47, 0.24, 0.05, 1.0, 1.15};       // white LED
constexpr Light kSky = {0.29, 0.44, 0.38, 0.60, 1.0, 1.22};       // daylight
constexpr Light kNightSky = {0.33, 0.42, 0.30, 0.45, 1.0, 1.20};  // moon and distant lamps

Light scaled(const Light& light, double by) {
  Light result = light;
  for (double& channel : result) channel *= by;
  return result;
}

struct Named {
  const char* name;
  const char* description;
  std::vector<Scene::Point> points;
  std::vector<Wave> waves = {};
};

Wave mains(double hz, double share) { return {Wave::Kind::kMains, hz, 0.5, share}; }
Wave pwm(double hz, double duty, double share) { return {Wave::Kind::kPwm, hz, duty, share}; }

std::vector<Named> everyday_scenes() {
  return {
      {"dark", "a closed box: a trace of light only", {{0, scaled(kNightSky, 0.0005)}}},
      {"moonlight", "a field at full moon", {{0, scaled(kNightSky, 0.01)}}},
      {"candle",
       "a candle on the table",
       {{0, scaled(kWarm, 0.6)}},
       {{Wave::Kind::kCandle, 0.0, 0.5, 1.0}}},
      {"home",
       "a living room under incandescent lamps on 50 Hz mains",
       {{0, scaled(kWarm, 7.0)}},
       {mains(100, 0.15)}},
      {"office", "an office under white LED panels", {{0, scaled(kLed, 28.0)}}},
      {"overcast", "outside under a grey sky", {{0, scaled(kSky, 150.0)}}},
      {"daylight", "outside in open shade", {{0, scaled(kSky, 420.0)}}},
      {"sunlight",
       "straight into the sun: more than the chip can hold",
       {{0, scaled(kSky, 2500.0)}}},
  };
}

std::vector<Named> flickering_scenes() {
  return {
      {"mains-50hz",
       "a workshop under lamps on 50 Hz mains: 100 Hz",
       {{0, scaled(kLed, 20.0)}},
       {mains(100, 0.9)}},
      {"mains-60hz",
       "a workshop under lamps on 60 Hz mains: 120 Hz",
       {{0, scaled(kLed, 20.0)}},
       {mains(120, 0.9)}},
      {"pwm-300hz",
       "a desk under a lamp dimmed by 300 Hz PWM",
       {{0, scaled(kLed, 12.0)}},
       {pwm(300, 0.4, 0.8)}},
      {"mixed",
       "daylight, lamps on 50 Hz mains and a 270 Hz PWM display",
       {{0, scaled(kSky, 60.0)}},
       {mains(100, 0.4), pwm(270, 0.5, 0.15)}},
  };
}

std::vector<Named> changing_scenes() {
  return {
      {"dusk",
       "daylight that falls to moonlight within a minute",
       {{0, scaled(kSky, 420.0)},
        {20000, scaled(kSky, 60.0)},
        {40000, scaled(kSky, 4.0)},
        {60000, scaled(kNightSky, 0.01)}}},
      {"lamp-on",
       "a dark room, and after two seconds the light goes on",
       {{0, scaled(kNightSky, 0.01)}, {2000, scaled(kNightSky, 0.01)}, {2001, scaled(kLed, 28.0)}}},
      {"clouds",
       "sun and passing clouds, for twenty seconds",
       {{0, scaled(kSky, 420.0)},
        {4000, scaled(kSky, 420.0)},
        {5000, scaled(kSky, 120.0)},
        {9000, scaled(kSky, 120.0)},
        {10000, scaled(kSky, 420.0)},
        {14000, scaled(kSky, 420.0)},
        {15000, scaled(kSky, 90.0)},
        {20000, scaled(kSky, 420.0)}}},
  };
}

const std::vector<Named>& table() {
  static const std::vector<Named> scenes = [] {
    std::vector<Named> all = everyday_scenes();
    for (const auto& more : {flickering_scenes(), changing_scenes()}) {
      all.insert(all.end(), more.begin(), more.end());
    }
    return all;
  }();
  return scenes;
}

const Named& find(const std::string& name) {
  for (const Named& scene : table()) {
    if (name == scene.name) return scene;
  }
  std::string known;
  for (const Named& scene : table()) known += std::string(known.empty() ? "" : ", ") + scene.name;
  throw std::invalid_argument("no scene \"" + name + "\"; there are " + known +
                              ", and files whose names end in .json");
}

}  // namespace

double Wave::integral(double at_s) const {
  if (kind == Kind::kCandle) {
    double sum = at_s;
    for (const auto& [frequency, amplitude] : kCandleSines) {
      const double turn = 2 * kPi * frequency;
      sum += amplitude * (1.0 - std::cos(turn * at_s)) / turn;
    }
    return sum;
  }
  const double whole = std::floor(at_s * hz);
  const double part = at_s * hz - whole;
  const double of_part =
      kind == Kind::kPwm ? std::min(part / duty, 1.0) : (1.0 - std::cos(kPi * part)) / 2.0;
  return (whole + of_part) / hz;
}

double Wave::strength() const {
  switch (kind) {
    case Kind::kMains:
      return share * 2.0 / 3.0;
    case Kind::kPwm:
      return share * 2.0 * std::fabs(std::sin(kPi * duty)) / (kPi * duty);
    case Kind::kCandle:
      break;
  }
  return 0.0;
}

Scene& Scene::flicker(std::vector<Wave> waves) {
  double shares = 0.0;
  for (const Wave& wave : waves) {
    if (wave.share < 0.0) throw std::invalid_argument("a wave's share is 0 or more");
    shares += wave.share;
  }
  if (shares > 1.0 + 1e-9) throw std::invalid_argument("the waves share more than all the light");
  m_waves = std::move(waves);
  return *this;
}

double Scene::modulation(double from_s, double to_s) const {
  double light = 1.0;
  for (const Wave& wave : m_waves) {
    const double mean = (wave.integral(to_s) - wave.integral(from_s)) / (to_s - from_s);
    light += wave.share * (mean - 1.0);
  }
  return light;
}

double Scene::strongest_hz() const {
  const auto strongest =
      std::max_element(m_waves.begin(), m_waves.end(),
                       [](const Wave& a, const Wave& b) { return a.strength() < b.strength(); });
  return strongest != m_waves.end() && strongest->strength() > 0.0 ? strongest->hz : 0.0;
}

Scene::Scene(std::vector<Point> points) : m_points(std::move(points)) {
  const auto earlier = [](const Point& a, const Point& b) { return a.at_ms < b.at_ms; };
  if (m_points.empty() || !std::is_sorted(m_points.begin(), m_points.end(), earlier)) {
    throw std::invalid_argument("a scene takes at least one point, in order of time");
  }
}

Scene Scene::named(const std::string& name) {
  const Named& scene = find(name);
  return Scene(scene.points).flicker(scene.waves);
}

std::vector<std::string> Scene::names() {
  std::vector<std::string> result;
  for (const Named& scene : table()) result.emplace_back(scene.name);
  return result;
}

std::string Scene::description(const std::string& name) { return find(name).description; }

double Scene::level(int channel, double at_ms) const {
  const auto index = static_cast<std::size_t>(channel);
  const auto after =
      std::upper_bound(m_points.begin(), m_points.end(), at_ms,
                       [](double time, const Point& point) { return time < point.at_ms; });
  if (after == m_points.begin()) return m_points.front().light[index];
  const auto before = std::prev(after);
  if (after == m_points.end()) return before->light[index];
  const double part = (at_ms - before->at_ms) / (after->at_ms - before->at_ms);
  return before->light[index] + part * (after->light[index] - before->light[index]);
}

double Scene::mean(int channel, double from_ms, double to_ms) const {
  if (m_points.size() == 1) return m_points.front().light[static_cast<std::size_t>(channel)];
  constexpr int kSteps = 64;  // equal parts, each taken at its midpoint
  double sum = 0.0;
  for (int i = 0; i < kSteps; ++i) {
    sum += level(channel, from_ms + (to_ms - from_ms) * (i + 0.5) / kSteps);
  }
  return sum / kSteps;
}

}  // namespace spectralsim
