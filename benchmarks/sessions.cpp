#include "benchmarks/sessions.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/floor.h"
#include "benchmarks/table.h"
#include "simulator/phone.h"
#include "spectral_sensor_device.h"
#include "support/heap.h"

namespace bench {

namespace {

using spectralsim::Event;
using spectralsim::Phone;

constexpr int kWarmCaptures = 10;
constexpr unsigned int kExposureUs = 16000;
constexpr int kReadOutTimeMs = 12;
// The ratio of CPU times that no session should reach on the simulated phone in the process, whose
// nodes cost far less than a system call.
constexpr double kMostTimes = 1.3;

// A sensor in an office, with one client of each mode if `clients` is set.
class WarmSensor {
 public:
  explicit WarmSensor(bool clients) : m_sensor(SpectralSensorDevice::Create()), m_clients(clients) {
    if (!m_clients) return;
    m_sensor->Init(SPECTRAL_MODE_ALS);
    m_sensor->Init(SPECTRAL_MODE_FLICKER);
  }
  ~WarmSensor() {
    if (m_clients) {
      m_sensor->Uninit(SPECTRAL_MODE_FLICKER);
      m_sensor->Uninit(SPECTRAL_MODE_ALS);
    }
    SpectralSensorDevice::Destroy();
  }
  WarmSensor(const WarmSensor&) = delete;
  WarmSensor& operator=(const WarmSensor&) = delete;

  Phone& phone() { return m_phone; }
  SpectralSensorDevice* operator->() { return m_sensor; }
  void process(int mode) { m_sensor->Process(mode, &m_output); }
  bool valid() const { return m_output.als.valid != 0; }

 private:
  Phone m_phone;
  SpectralSensorDevice* m_sensor;
  bool m_clients;
  SpectralSensorOutput m_output = {};
};

// The numbers of calls that an operation cannot do without.
struct Minimum {
  int writes;
  int register_reads;
  int others;  // opens, closes, reads and tunnel requests; not the reads of its stream
};

struct Session {
  const char* name;
  bool clients;
  Waits waits;
  Minimum minimum;
  void (*prepare)(WarmSensor* sensor);
  void (*run)(WarmSensor* sensor);
};

// The writes of an ALS capture: exposure (two registers), four gains, channels on, start;
// acknowledge (two), stop, channels off.
constexpr int kAlsWrites = 2 + 4 + 1 + 1 + 2 + 1 + 1;
// The register reads of a polled ALS capture: the status in every millisecond of the exposure, the
// status when the result is ready, and all counts in one read.
constexpr int kAlsPolledReads = kExposureUs / 1000 + 1 + 1;
// The writes of a bring-up: power; reset (two), OTP load, trims and configuration; pedestal on,
// pedestal value.
constexpr int kBringUpWrites = 1 + 2 + 1 + 21 + 1 + 1;
// The writes of a tear-down: reset (two), OTP load, the control of cut 2.2; power.
constexpr int kTearDownWrites = 2 + 1 + 1 + 1;
constexpr int kIdentityReads = 2;
constexpr int kReadyReads = 2;  // of the OTP status, until the OTP is loaded
constexpr int kOtpReads = 16;
constexpr int kPedestalReads = 1;
// The writes of one trial of the gain search: the gain; six to start (AC enable, AC mode, two
// settings, the control of cut 2.2, run) and six to stop. The AC mode and the run bit are read
// before each change.
constexpr int kTrialWrites = 1 + 6 + 6;
constexpr int kTrialReads = 2 + 2;
constexpr int kPollReads = 2;  // of the saturation counter
constexpr int kFullPolls = 13;

const Session kSessions[] = {
    {"Process(1), default",
     true,
     Waits::kPolling,
     {kAlsWrites, kAlsPolledReads, 0},
     [](WarmSensor* sensor) {
       (*sensor)->m_alsAeEnable = 0;
       (*sensor)->m_alsConfig.exposureTime = kExposureUs;
     },
     [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_ALS); }},
    {"Process(1), auto-exposure",
     true,
     Waits::kOnce,
     {kAlsWrites, 1 + 1, 0},
     [](WarmSensor* sensor) {
       for (int i = 0; i < kWarmCaptures; ++i) sensor->process(SPECTRAL_MODE_ALS);
     },
     [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_ALS); }},
    {"Process(2)",
     true,
     Waits::kNone,
     // Five trials, two of which saturate at the first poll; then the start and stop of the
     // capture.
     {6 * kTrialWrites, 6 * kTrialReads + (3 * kFullPolls + 2) * kPollReads, 1 + 1 + 6},
     [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_FLICKER); },
     [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_FLICKER); }},
    {"Init to Uninit",
     false,
     Waits::kNone,
     {kBringUpWrites + kTearDownWrites,
      kIdentityReads + 2 * kReadyReads + kOtpReads + kPedestalReads, 2 * (2 + 3)},
     [](WarmSensor*) {},
     [](WarmSensor* sensor) {
       (*sensor)->Init(SPECTRAL_MODE_ALS);
       (*sensor)->Uninit(SPECTRAL_MODE_ALS);
     }},
};

std::unique_ptr<WarmSensor> warm(const Session& session) {
  auto sensor = std::make_unique<WarmSensor>(session.clients);
  session.prepare(sensor.get());
  return sensor;
}

spectralsim::Trace record(const Session& session, WarmSensor* sensor) {
  sensor->phone().clear_trace();
  session.run(sensor);
  return sensor->phone().trace();
}

std::unique_ptr<Floor> floor_of(const Session& session, WarmSensor* sensor) {
  const int exposure_ms = static_cast<int>((*sensor)->m_alsConfig.exposureTime / 1000);
  return std::make_unique<Floor>(record(session, sensor), session.waits,
                                 exposure_ms + kReadOutTimeMs);
}

// Returns whether an event counts. Log lines and stdio's own reads of the tunnel do not.
bool counts(const Event& event) {
  const bool reads_tunnel =
      event.call == spectralsim::Call::kRead && event.node == spectralsim::Node::kTunnel;
  return event.call != spectralsim::Call::kLog && !reads_tunnel;
}

Minimum count(const spectralsim::Trace& trace) {
  Minimum counted = {};
  for (const Event& event : trace) {
    if (event.is_register_read()) {
      ++counted.register_reads;
    } else if (event.call == spectralsim::Call::kWrite) {
      ++counted.writes;
    } else if (counts(event)) {
      ++counted.others;
    }
  }
  return counted;
}

std::string text_of(const Minimum& calls) {
  return std::to_string(calls.writes) + "+" + std::to_string(calls.register_reads) + "+" +
         std::to_string(calls.others);
}

// Returns whether the floor issues the same calls as the library.
bool is_same(const spectralsim::Trace& library, const spectralsim::Trace& floor) {
  const auto lines = [](const spectralsim::Trace& trace) {
    std::vector<std::string> result;
    for (const Event& event : trace) {
      if (!counts(event)) continue;
      Event plain = event;
      plain.value = event.is_register_read() ? 0 : event.value;
      result.push_back(spectralsim::describe(plain));
    }
    return result;
  };
  return lines(library) == lines(floor);
}

// Prints how often the library and its floor allocate memory. Returns whether the library does so
// no more often.
bool print_allocations(const Session& session, WarmSensor* sensor, Floor* floor) {
  sensor->phone().keep_trace(false);
  const long before = heap::allocations();
  session.run(sensor);
  const long allocated = heap::allocations() - before;
  const long floor_before = heap::allocations();
  floor->run();
  const long floor_allocated = heap::allocations() - floor_before;
  const bool least = allocated <= floor_allocated;
  print_row(std::string(session.name) + ": allocations", std::to_string(allocated),
            std::to_string(floor_allocated), least ? "" : "MORE");
  return least;
}

bool print_counts_of(const Session& session) {
  const auto sensor = warm(session);
  const spectralsim::Trace library = record(session, sensor.get());
  const Minimum calls = count(library);
  const bool least = text_of(calls) == text_of(session.minimum);
  print_row(std::string(session.name) + ": writes+register reads+others", text_of(calls),
            text_of(session.minimum), least ? "equal" : "NOT EQUAL");
  const auto floor = floor_of(session, sensor.get());
  sensor->phone().clear_trace();
  floor->run();
  const bool same = is_same(library, sensor->phone().trace());
  if (!same) std::printf("the floor of %s issues other calls\n", session.name);
  const bool frugal = print_allocations(session, sensor.get(), floor.get());
  return least && same && frugal;
}

}  // namespace

bool print_counts() {
  bool fine = true;
  for (const Session& session : kSessions) fine = print_counts_of(session) && fine;
  return fine;
}

void register_sessions(Table* table) {
  for (const Session& session : kSessions) {
    const std::string name = session.name;
    table->at_most(name, kMostTimes);
    benchmark::RegisterBenchmark((name + "/library").c_str(), [&session](benchmark::State& state) {
      const auto sensor = warm(session);
      sensor->phone().keep_trace(false);
      while (state.KeepRunning()) session.run(sensor.get());
    });
    benchmark::RegisterBenchmark((name + "/floor").c_str(), [&session](benchmark::State& state) {
      const auto sensor = warm(session);
      const auto floor = floor_of(session, sensor.get());
      sensor->phone().keep_trace(false);
      while (state.KeepRunning()) floor->run();
    });
  }
}

bool run_session(const std::string& name, int times) {
  for (const Session& session : kSessions) {
    const bool bare = name == std::string(session.name) + "/floor";
    if (!bare && name != session.name) continue;
    const auto sensor = warm(session);
    const auto floor = floor_of(session, sensor.get());
    sensor->phone().keep_trace(false);
    for (int i = 0; i < times; ++i) {
      if (bare) {
        floor->run();
      } else {
        session.run(sensor.get());
      }
    }
    return true;
  }
  return false;
}

}  // namespace bench
