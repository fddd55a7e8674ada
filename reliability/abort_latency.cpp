// Measures how long a capture continues after another thread has cleared its enable flag: from just
// before SetEnableFlag(mode, false) to the return of Process, in real time, for both services. Each
// abort comes at a random moment, 20 to 140 ms into an ambient-light capture that would take 1.6 s,
// or 20 to 920 ms into a flicker capture that would take 1 s. An abort that came after the
// capture's last look at the flag does not count as a sample.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "reliability/arguments.h"
#include "simulator/phone.h"
#include "spectral_sensor.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::uint64_t kSeed = 1;
constexpr int kModes[] = {SPECTRAL_MODE_ALS, SPECTRAL_MODE_FLICKER};

struct Case {
  const char* name;
  int mode;
  bool auto_exposure;
  int latest_abort_ms;
  std::size_t samples;
  std::chrono::seconds budget;
};

constexpr Case kCases[] = {
    {"ALS default", SPECTRAL_MODE_ALS, false, 120, 100, 30s},
    {"ALS auto-exposure", SPECTRAL_MODE_ALS, true, 120, 100, 30s},
    {"flicker", SPECTRAL_MODE_FLICKER, false, 900, 100, 20s},
};

enum class Outcome { kAborted, kWhole, kImpossible };

struct Sample {
  double ms = 0.0;  // negative if Process returned before the abort
  Outcome outcome = Outcome::kImpossible;
};

// A complete ambient-light capture returns 0 and a valid result. An aborted one returns 0 and an
// invalid result or, in auto-exposure, -22.
Outcome outcome_of(int status, const ALSResult& als, bool auto_exposure) {
  if (status == 0 && als.valid == 1) return Outcome::kWhole;
  if (auto_exposure) return status == -22 ? Outcome::kAborted : Outcome::kImpossible;
  return status == 0 && als.valid == 0 ? Outcome::kAborted : Outcome::kImpossible;
}

// A flicker result is always valid. After an abort only its mains frequencies are filled in.
Outcome outcome_of(int status, const FlickerResult& flicker) {
  if (status != 0 || flicker.valid != 1 || flicker.freq_a != 100 || flicker.freq_b != 120) {
    return Outcome::kImpossible;
  }
  return flicker.channel == 0 ? Outcome::kAborted : Outcome::kWhole;
}

template <typename Service>
Sample abort_once(Service* service, const Case& what, int after_ms) {
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
  const int status = service->Process(what.mode, &output);
  const Clock::time_point returned = Clock::now();
  other.join();
  return {Milliseconds(returned - aborted).count(),
          what.mode == SPECTRAL_MODE_ALS ? outcome_of(status, output.als, what.auto_exposure)
                                         : outcome_of(status, output.flicker)};
}

// Returns whether every result was possible and most of the aborts ended their capture early.
template <typename Service>
bool measure(const char* facade, Service* service, const Case& what, std::mt19937_64* random) {
  std::vector<double> ms;
  std::size_t too_late = 0;
  int impossible = 0;
  const Clock::time_point start = Clock::now();
  while (ms.size() < what.samples && Clock::now() - start < what.budget) {
    const auto latest = static_cast<unsigned int>(what.latest_abort_ms);
    const Sample sample = abort_once(service, what, 20 + static_cast<int>((*random)() % latest));
    if (sample.outcome == Outcome::kImpossible) {
      ++impossible;
    } else if (sample.ms < 0.0 || sample.outcome == Outcome::kWhole) {
      ++too_late;
    } else {
      ms.push_back(sample.ms);
    }
  }
  std::sort(ms.begin(), ms.end());
  std::printf("%-8s %-18s %4zu", facade, what.name, ms.size());
  for (const std::size_t percent : {0u, 50u, 90u, 99u, 100u}) {
    if (ms.empty() || (percent == 99 && ms.size() < 100)) {
      std::printf(" %8s", "");
    } else {
      std::printf(" %8.2f", ms[(ms.size() - 1) * percent / 100]);
    }
  }
  std::printf("  %zu\n", too_late);
  std::fflush(stdout);
  if (impossible > 0) std::printf("BROKEN: %d captures with impossible results\n", impossible);
  if (ms.size() <= too_late) std::printf("BROKEN: aborts are not heeded\n");
  return impossible == 0 && ms.size() > too_late;
}

template <typename Service>
bool measure(const char* facade) {
  Service* service = Service::Create();
  bool ok = service != nullptr;
  for (const int mode : kModes) {
    ok = ok && service->Init(mode) == 0;
  }
  if (!ok) std::printf("BROKEN: the %s service does not come up\n", facade);
  std::mt19937_64 random(kSeed);
  for (const Case& what : kCases) {
    // Every case is measured, even after another one has failed.
    if (service != nullptr && !measure(facade, service, what, &random)) ok = false;
  }
  Service::Destroy();
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr char kHelp[] =
      "abort_latency\n"
      "Aborts captures on the simulated phone, on real time, for a minute or two, and prints\n"
      "how long they go on.\n";
  if (argc > 1) return sweep::show_help(kHelp, std::strcmp(argv[1], "--help") == 0 ? 0 : 2);
  setenv("SPECTRALHOST_LOG", "silent", 1);
  spectralsim::Phone phone;
  phone.clock().set_virtual(false);
  phone.keep_trace(false);
  phone.scene("mains-50hz");
  std::printf("Milliseconds from the abort to the return of Process; seed %llu\n",
              static_cast<unsigned long long>(kSeed));
  std::printf("%-8s %-18s %4s %8s %8s %8s %8s %8s  %s\n", "service", "capture", "n", "min",
              "median", "90 %", "99 %", "max", "not in time");
  const bool device = measure<SpectralSensorDevice>("device");
  const bool layered = measure<SpectralSensor>("layered");
  return device && layered ? 0 : 1;
}
