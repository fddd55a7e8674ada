// How long a capture goes on once another thread has cleared its enable flag: from before
// SetEnableFlag(mode, false) to the return of Process, on real time, for both services. The aborts
// come at any moment of a capture that would take 1.6 s (ambient light) or 1 s (flicker).

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "simulator/phone.h"
#include "spectral_sensor.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t kMostSamples = 100;
constexpr std::uint64_t kSeed = 1;

struct Case {
  const char* name;
  int mode;
  bool auto_exposure;
  int latest_abort_ms;
  std::chrono::seconds budget;  // less than a minute for both services
};

constexpr Case kCases[] = {
    {"ALS default", SPECTRAL_MODE_ALS, false, 120, 4s},
    {"ALS auto-exposure", SPECTRAL_MODE_ALS, true, 120, 4s},
    {"flicker", SPECTRAL_MODE_FLICKER, false, 900, 19s},
};

template <typename Service>
double abort_once(Service* service, const Case& what, int after_ms) {
  service->m_alsAeEnable = what.auto_exposure ? 1 : 0;
  service->m_alsConfig.exposureTime = 1600000;
  service->SetEnableFlag(what.mode, true);
  Clock::time_point aborted;
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(after_ms));
    aborted = Clock::now();
    service->SetEnableFlag(what.mode, false);
  });
  SpectralSensorOutput output = {};
  service->Process(what.mode, &output);
  const Clock::time_point returned = Clock::now();
  other.join();
  return Milliseconds(returned - aborted).count();
}

template <typename Service>
void measure(const char* facade) {
  Service* service = Service::Create();
  service->Init(SPECTRAL_MODE_ALS);
  service->Init(SPECTRAL_MODE_FLICKER);
  std::mt19937_64 random(kSeed);
  for (const Case& what : kCases) {
    std::vector<double> ms;
    const Clock::time_point start = Clock::now();
    while (ms.size() < kMostSamples && Clock::now() - start < what.budget) {
      const auto latest = static_cast<unsigned int>(what.latest_abort_ms);
      ms.push_back(abort_once(service, what, 20 + static_cast<int>(random() % latest)));
    }
    std::sort(ms.begin(), ms.end());
    const auto part = [&](std::size_t percent) { return ms[(ms.size() - 1) * percent / 100]; };
    std::printf("%-8s %-18s %4zu %8.2f %8.2f %8.2f %8.2f %8.2f\n", facade, what.name, ms.size(),
                part(0), part(50), part(90), part(99), part(100));
  }
  service->Uninit(SPECTRAL_MODE_FLICKER);
  service->Uninit(SPECTRAL_MODE_ALS);
  Service::Destroy();
}

}  // namespace

int main() {
  setenv("SPECTRALHOST_LOG", "silent", 1);
  spectralsim::Phone phone;
  phone.clock().set_virtual(false);
  phone.keep_trace(false);
  phone.scene("mains-50hz");
  std::printf("Milliseconds from the abort to the return of Process\n");
  std::printf("%-8s %-18s %4s %8s %8s %8s %8s %8s\n", "service", "capture", "n", "min", "median",
              "90 %", "99 %", "max");
  measure<SpectralSensorDevice>("device");
  measure<SpectralSensor>("layered");
}
