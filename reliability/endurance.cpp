// Runs many hours of a phone's life on virtual time: random sessions of either service, one after
// the other, with clients that come and go, light that changes, captures of both modes, and aborts
// at random moments. The numbers of memory blocks, descriptors and threads must not change, and
// resident memory must hardly grow. See docs/reliability.md.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "reliability/arguments.h"
#include "reliability/process.h"
#include "simulator/phone.h"
#include "spectral_sensor.h"
#include "support/heap.h"

namespace {

using spectralsim::Phone;

constexpr int kAls = SPECTRAL_MODE_ALS;
constexpr int kFlicker = SPECTRAL_MODE_FLICKER;
constexpr int kWarmUpSessions = 20;
// Resident memory may differ by this much at two moments, because the allocator and the kernel
// round it up. A lost block, however small, shows up in the count of blocks.
constexpr long kMostGrowthKb = 256;
constexpr double kNsPerHour = 3600e9;

struct Footprint {
  long resident_kb = 0;
  long descriptors = 0;
  long threads = 0;
  long blocks = 0;
};

// Returns the least of several counts, since a joined thread is still listed for a moment.
long count_threads() {
  constexpr int kLooks = 5000;
  long least = sweep::count_entries("/proc/self/task");
  for (int i = 0; i < kLooks && least > 1; ++i) {
    std::this_thread::yield();
    least = std::min(least, sweep::count_entries("/proc/self/task"));
  }
  return least;
}

Footprint footprint() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  statm >> pages >> pages;
  return {pages * (sysconf(_SC_PAGESIZE) / 1024), sweep::count_descriptors(), count_threads(),
          heap::live_blocks()};
}

struct Counts {
  long sessions = 0;
  long captures = 0;
  long aborts = 0;
  long failures = 0;
};

class Random {
 public:
  explicit Random(std::uint64_t seed) : m_engine(seed) {}
  long below(long limit) {
    return static_cast<long>(m_engine() % static_cast<unsigned long>(limit));
  }
  bool one_in(long n) { return below(n) == 0; }

 private:
  std::mt19937_64 m_engine;
};

// One session of a service, made of random steps.
template <typename Service>
class Session {
 public:
  Session(Phone* phone, Random* random, Counts* counts)
      : m_phone(phone), m_random(random), m_counts(counts), m_service(Service::Create()) {}

  void run() {
    for (long steps = 5 + m_random->below(60); steps > 0; --steps) step();
    for (const int mode : {kAls, kFlicker}) {
      while (m_clients[mode] > 0) leave(mode);
    }
    m_phone->clock().sleep_ns(5000 * spectralsim::kNsPerMs);  // runs the aborts that are still due
    Service::Destroy();
    require(m_phone->open_descriptors() == 0 && !m_phone->chip().powered(), "all is closed");
  }

 private:
  void step() {
    const int mode = m_random->one_in(2) ? kAls : kFlicker;
    switch (m_random->below(12)) {
      case 0:
        join(mode);
        break;
      case 1:
        if (m_clients[mode] > 0) leave(mode);
        break;
      case 2:
        change_light();
        break;
      case 3:
        m_phone->clock().sleep_ns(m_random->below(20000) * spectralsim::kNsPerMs);
        break;
      case 4:
        m_service->m_alsAeEnable = m_random->one_in(2) ? 1 : 0;
        break;
      default:
        m_clients[mode] > 0 ? capture(mode) : join(mode);
    }
  }

  void join(int mode) {
    const bool first_of_all = m_clients[kAls] + m_clients[kFlicker] == 0;
    const bool first_flicker = mode == kFlicker && m_clients[kFlicker] == 0;
    require(m_service->Init(mode) == (first_of_all || first_flicker ? 0 : -17), "Init");
    ++m_clients[mode];
  }

  void leave(int mode) {
    m_service->Uninit(mode);
    --m_clients[mode];
  }

  void change_light() {
    const std::vector<std::string> scenes = spectralsim::Scene::names();
    m_phone->scene(
        scenes[static_cast<std::size_t>(m_random->below(static_cast<long>(scenes.size())))]);
  }

  void capture(int mode) {
    for (const int each : {kAls, kFlicker}) m_service->SetEnableFlag(each, true);
    m_aborted = false;
    if (m_random->one_in(4)) {
      m_phone->clock().after_ms(m_random->below(1500), [this, mode] {
        m_service->SetEnableFlag(mode, false);
        m_aborted = true;
        ++m_counts->aborts;
      });
    }
    SpectralSensorOutput output = {};
    const int status = m_service->Process(mode, &output);
    ++m_counts->captures;
    const bool valid = mode == kAls ? output.als.valid != 0 : output.flicker.valid != 0;
    require(m_aborted ? status == 0 || status == -22 : status == 0 && valid, "Process");
  }

  void require(bool holds, const char* what) {
    if (!holds && ++m_counts->failures <= 10) {
      std::printf("BROKEN: %s, in session %ld\n", what, m_counts->sessions);
    }
  }

  Phone* m_phone;
  Random* m_random;
  Counts* m_counts;
  Service* m_service;
  int m_clients[3] = {};
  bool m_aborted = false;
};

// Runs a session on a thread of its own, since the threads of a camera process come and go as well.
void run_session(Phone* phone, Random* random, Counts* counts) {
  constexpr spectralsim::Cut kCuts[] = {spectralsim::Cut::k2_0, spectralsim::Cut::k2_1,
                                        spectralsim::Cut::k2_2};
  phone->chip().cut(kCuts[random->below(3)]);
  const bool layered = random->one_in(2);
  std::thread([=] {
    if (layered) {
      Session<SpectralSensor>(phone, random, counts).run();
    } else {
      Session<SpectralSensorDevice>(phone, random, counts).run();
    }
  }).join();
  ++counts->sessions;
}

void print(const char* when, const Footprint& now) {
  std::printf("%-8s resident %ld KiB, %ld descriptors, %ld threads, %ld blocks of memory\n", when,
              now.resident_kb, now.descriptors, now.threads, now.blocks);
}

bool is_flat(const Footprint& start, const Footprint& end, bool emulated) {
  // Resident memory is not compared under a sanitizer, which keeps freed memory and reports leaks
  // itself, nor under an emulator, which keeps the code that it has translated.
  const bool counts_blocks = start.blocks >= 0;
  const bool resident_is_flat =
      !counts_blocks || emulated || end.resident_kb - start.resident_kb <= kMostGrowthKb;
  return resident_is_flat && end.blocks == start.blocks && end.descriptors == start.descriptors &&
         end.threads == start.threads;
}

bool endure(double hours, std::uint64_t seed, bool emulated) {
  Random random(seed);
  Counts counts;
  Phone phone;
  phone.keep_trace(false);
  phone.model("ostrel").factory_file("\n\n\n\n\n\n1764\n3021\n1240\n8113\n0\n6350\n6511\n");
  phone.scene("office");
  footprint();  // lets the measurement allocate what it keeps
  while (counts.sessions < kWarmUpSessions) run_session(&phone, &random, &counts);
  phone.scene("office");  // the same scene as at the end, since scenes differ in size
  const Footprint start = footprint();
  while (static_cast<double>(phone.clock().now_ns()) < hours * kNsPerHour) {
    run_session(&phone, &random, &counts);
  }
  phone.scene("office");
  const Footprint end = footprint();
  const double lived = static_cast<double>(phone.clock().now_ns()) / kNsPerHour;
  std::printf("%.2f hours of the phone: %ld sessions, %ld captures, %ld aborts\n", lived,
              counts.sessions, counts.captures, counts.aborts);
  print("start", start);
  print("end", end);
  const bool ok = counts.failures == 0 && is_flat(start, end, emulated);
  if (!ok) std::printf("BROKEN: %ld failures, or not flat\n", counts.failures);
  return ok;
}

constexpr char kHelp[] =
    "endurance [--hours H] [--seed N] [--emulated]\n"
    "Uses the library on the simulated phone for hours of its time, at random.\n"
    "  --hours H  so many (1)\n"
    "  --seed N   of all that is random (1)\n"
    "  --emulated resident memory is that of an emulator, and may grow\n";

}  // namespace

int main(int argc, char** argv) {
  double hours = 1.0;
  std::uint64_t seed = 1;
  bool emulated = false;
  for (int i = 1; i < argc; ++i) {
    const bool has_value = i + 1 < argc;
    if (std::strcmp(argv[i], "--hours") == 0 && has_value) {
      if (!sweep::parse(argv[++i], &hours)) return sweep::show_help(kHelp, 2);
    } else if (std::strcmp(argv[i], "--seed") == 0 && has_value) {
      if (!sweep::parse(argv[++i], &seed)) return sweep::show_help(kHelp, 2);
    } else if (std::strcmp(argv[i], "--emulated") == 0) {
      emulated = true;
    } else {
      return sweep::show_help(kHelp, std::strcmp(argv[i], "--help") == 0 ? 0 : 2);
    }
  }
  setenv("SPECTRALHOST_LOG", "silent", 1);
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  const auto begin = std::chrono::steady_clock::now();
  const bool ok = endure(hours, seed, emulated);
  const std::chrono::duration<double> real = std::chrono::steady_clock::now() - begin;
  std::printf("%.1f s of real time\n", real.count());
  return ok ? 0 : 1;
}
