// Shows libspectralsensor on the simulated phone: for each scene, the ambient-light captures until
// the auto-exposure has settled, and for each lamp, three flicker measurements.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <string>
#include <vector>

#include "simulator/phone.h"
#include "spectral_sensor.h"

namespace {

constexpr int kMostCaptures = 12;
constexpr char kModel[] = "tamberlo";
// The factory file: lines 7 to 13 hold the readings of this unit under the factory's reference
// light.
constexpr char kFactoryFile[] = "\n\n\n\n\n\n1764\n3021\n1240\n8113\n0\n6350\n6511\n";
const std::vector<std::string> kScenes = {"dark",     "candle",   "home",    "office",
                                          "overcast", "daylight", "sunlight"};

const std::vector<std::string> kLamps = {"mains-50hz", "mains-60hz", "pwm-300hz", "mixed",
                                         "daylight"};
constexpr int kFlickerMeasurements = 3;

// driver_of returns the driver beneath a service. gain_unit returns the factor by which the
// service's flicker gain has to be multiplied to give the gain itself.
SpectralSensorDevice* driver_of(SpectralSensorDevice* sensor) { return sensor; }
SpectralSensorDevice* driver_of(SpectralSensor* sensor) { return sensor->m_device; }
float gain_unit(const SpectralSensorDevice*) { return 1.0f / 256; }
float gain_unit(const SpectralSensor*) { return 1.0f; }

template <typename Service>
class Demo {
 public:
  Demo() {
    m_phone.model(kModel).factory_file(kFactoryFile);
    m_phone.chip().otp(spectralsim::Otp().version(6).color_map(2).uid_bits(0x0B5E77E1C0FFEE));
    m_sensor = Service::Create();
  }
  ~Demo() { Service::Destroy(); }
  Demo(const Demo&) = delete;
  Demo& operator=(const Demo&) = delete;

  bool show_all() {
    if (m_sensor->Init(SPECTRAL_MODE_ALS) != SPECTRAL_OK) return false;
    show_unit();
    std::printf(
        "\nAMBIENT LIGHT. For each scene Process(1) until the auto-exposure keeps its setting.\n");
    bool ok = true;
    for (const std::string& scene : kScenes) ok = ok && show_scene(scene);
    ok = ok && m_sensor->Init(SPECTRAL_MODE_FLICKER) == SPECTRAL_OK;
    std::printf(
        "\nFLICKER. For each lamp Process(2), three times: a gain search, a second of samples and "
        "their\n"
        "analysis. A frequency that is not mains is told once a second measurement has confirmed "
        "it.\n");
    for (const std::string& lamp : kLamps) ok = ok && show_lamp(lamp);
    m_sensor->Uninit(SPECTRAL_MODE_FLICKER);
    m_sensor->Uninit(SPECTRAL_MODE_ALS);
    return ok;
  }

 private:
  void show_unit() {
    unsigned char id = 0;
    unsigned char revision = 0;
    char* uid = nullptr;
    driver_of(m_sensor)->VD6281_GetProductVersion(&id, &revision);
    driver_of(m_sensor)->VD6281_GetUid(&uid);
    std::printf("Chip 0x%02X, revision 0x%02X (cut %s), unit %s, on a \"%s\" phone, %s\n", id,
                revision, cut_of(revision), uid, kModel,
                m_sensor->m_calibrationValid != 0 ? "calibrated" : "not calibrated");
    std::printf("Calibration factors  ");
    for (const float factor : m_sensor->m_calibrationFactor) std::printf(" %.3f", factor);
    std::printf("\n");
  }

  bool show_scene(const std::string& name) {
    m_phone.scene(name);
    std::printf("\n%s: %s\n", name.c_str(), spectralsim::Scene::description(name).c_str());
    std::printf(
        "  capture  exposure         gain of channel            channel values (calibrated)\n");
    std::printf(
        "                ms     0     1     3     4          0         1         3         4\n");
    m_sensor->m_alsConfig = ALSConfig{};  // the state of a sensor just created
    ALSConfig before;
    for (int i = 1; i <= kMostCaptures; ++i) {
      const ALSConfig used = m_sensor->m_alsConfig;
      if (i > 1 && is_same(used, before)) {
        std::printf("  settled after %d captures\n", i - 1);
        return true;
      }
      SpectralSensorOutput output{};
      if (m_sensor->Process(SPECTRAL_MODE_ALS, &output) != SPECTRAL_OK) return false;
      if (output.als.valid == 0) return false;
      print_capture(i, output.als);
      before = used;
    }
    std::printf("  not settled within %d captures\n", kMostCaptures);
    return true;
  }

  bool show_lamp(const std::string& name) {
    m_phone.scene(name);
    std::printf("\n%s: %s\n", name.c_str(), spectralsim::Scene::description(name).c_str());
    std::printf(
        "  measurement  channel   gain    100 Hz    120 Hz   dominant          secondary\n");
    m_sensor->m_flkTrack = FlickerTrack{};  // the state of a sensor just created
    for (int i = 1; i <= kFlickerMeasurements; ++i) {
      SpectralSensorOutput output{};
      if (m_sensor->Process(SPECTRAL_MODE_FLICKER, &output) != SPECTRAL_OK) return false;
      print_flicker(i, output.flicker);
    }
    return true;
  }

  void print_flicker(int number, const FlickerResult& flicker) {
    int channel = 0;
    while ((1 << channel) < flicker.channel) ++channel;
    std::printf("  %11d  %7d  %5.2f  %8u  %8u", number, channel, flicker.gain * gain_unit(m_sensor),
                flicker.strength_a, flicker.strength_b);
    print_frequency(flicker.dominant_freq, flicker.dominant_strength);
    print_frequency(flicker.secondary_freq, flicker.secondary_strength);
    const std::uint32_t candidate = m_sensor->m_flkTrack.dom_cand;
    if (candidate != flicker.dominant_freq && is_frequency(candidate)) {
      std::printf("   (%u Hz to be confirmed)", candidate);
    }
    std::printf("\n");
  }

  // A frequency of -1 or 0 means that the measurement reports none.
  static bool is_frequency(std::uint32_t hz) { return hz != 0 && hz != 0xFFFFFFFF; }

  static void print_frequency(std::uint32_t hz, std::uint32_t strength) {
    if (is_frequency(hz)) {
      std::printf("   %4u Hz %7u", hz, strength);
    } else {
      std::printf("   %-15s", "none");
    }
  }

  static const char* cut_of(unsigned char revision) {
    return revision == 0xBA ? "2.0" : revision == 0xBB ? "2.1" : "2.2";
  }

  static bool is_same(const ALSConfig& a, const ALSConfig& b) {
    return a.exposureTime == b.exposureTime &&
           std::equal(std::begin(a.gainCode), std::end(a.gainCode), b.gainCode) &&
           std::equal(std::begin(a.channelGain), std::end(a.channelGain), b.channelGain);
  }

  void print_capture(int number, const ALSResult& als) {
    std::printf("  %7d  %8.1f", number, als.exposureMs);
    unsigned short gain = 0;
    for (const int n : {0, 1, 3, 4}) {
      driver_of(m_sensor)->VD6281_GetGain(static_cast<VD6281_Channel_Id_t>(1 << n), &gain);
      std::printf(" %5.2f", gain / 256.0);
    }
    std::printf(" ");
    for (const int n : {0, 1, 3, 4}) std::printf(" %9.2f", als.value[n]);
    std::printf("\n");
  }

  spectralsim::Phone m_phone;
  Service* m_sensor = nullptr;
};

}  // namespace

int main(int argc, char** argv) {
  const bool layered = argc == 2 && std::strcmp(argv[1], "--layered") == 0;
  if (argc > 1 && !layered) {
    std::fprintf(stderr, "usage: demo [--layered]\n");
    return 2;
  }
  try {
    if (layered ? Demo<SpectralSensor>().show_all() : Demo<SpectralSensorDevice>().show_all()) {
      return EXIT_SUCCESS;
    }
    std::fprintf(stderr, "demo: the sensor failed; the log above says where\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "demo: %s\n", error.what());
  }
  return EXIT_FAILURE;
}
