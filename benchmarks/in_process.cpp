#include "benchmarks/in_process.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/floor.h"
#include "benchmarks/print.h"
#include "benchmarks/recording.h"
#include "benchmarks/sessions.h"
#include "benchmarks/table.h"
#include "simulator/phone.h"
#include "support/heap.h"

namespace bench {

namespace {

using spectralsim::Event;
using spectralsim::Phone;

// The ratio of CPU times that no session should reach on the simulated phone in the process, whose
// nodes cost far less than a system call.
constexpr double kMostTimes = 1.3;

// A phone in an office, and a sensor on it that is ready for the session.
class Bench {
 public:
  explicit Bench(const Session& session) : m_session(session), m_sensor(session.clients) {
    session.prepare(&m_sensor);
  }

  Phone& phone() { return m_phone; }
  void run() { m_session.run(&m_sensor); }
  spectralsim::Trace record() {
    m_phone.clear_trace();
    run();
    return m_phone.trace();
  }
  std::unique_ptr<Floor> floor() {
    const int exposure_ms = m_sensor.exposure_ms();
    return std::make_unique<Floor>(record(), m_session.waits, exposure_ms + kReadOutTimeMs);
  }

 private:
  Phone m_phone;
  const Session& m_session;
  WarmSensor m_sensor;
};

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
bool print_allocations(const Session& session, Bench* bench, Floor* floor) {
  bench->phone().keep_trace(false);
  const long before = heap::allocations();
  bench->run();
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
  Bench bench(session);
  const spectralsim::Trace library = bench.record();
  const Minimum calls = count(library);
  const bool least = text_of(calls) == text_of(session.minimum);
  print_row(std::string(session.name) + ": writes+register reads+others", text_of(calls),
            text_of(session.minimum), least ? "equal" : "NOT EQUAL");
  const auto floor = bench.floor();
  bench.phone().clear_trace();
  floor->run();
  const bool same = is_same(library, bench.phone().trace());
  if (!same) std::printf("the floor of %s issues other calls\n", session.name);
  const bool frugal = print_allocations(session, &bench, floor.get());
  return least && same && frugal;
}

[[maybe_unused]] void measure_library(benchmark::State& state, const Session& session) {
  Bench bench(session);
  bench.phone().keep_trace(false);
  while (state.KeepRunning()) bench.run();
}

[[maybe_unused]] void measure_floor(benchmark::State& state, const Session& session) {
  Bench bench(session);
  const auto floor = bench.floor();
  bench.phone().keep_trace(false);
  while (state.KeepRunning()) floor->run();
}

}  // namespace

bool print_counts() {
  bool fine = true;
  for (const Session& session : sessions()) fine = print_counts_of(session) && fine;
  return fine;
}

void register_sessions(Table* table) {
  for (const Session& session : sessions()) {
    const std::string name = session.name;
    table->at_most(name, kMostTimes);
#ifndef __clang_analyzer__  // it takes the benchmarks that are registered for lost memory
    benchmark::RegisterBenchmark((name + "/library").c_str(), [&session](benchmark::State& state) {
      measure_library(state, session);
    });
    benchmark::RegisterBenchmark((name + "/floor").c_str(), [&session](benchmark::State& state) {
      measure_floor(state, session);
    });
#endif
  }
}

bool run_session(const std::string& name, int times) {
  for (const Session& session : sessions()) {
    const bool bare = name == std::string(session.name) + "/floor";
    if (!bare && name != session.name) continue;
    Bench bench(session);
    const auto floor = bench.floor();
    bench.phone().keep_trace(false);
    for (int i = 0; i < times; ++i) {
      if (bare) {
        floor->run();
      } else {
        bench.run();
      }
    }
    return true;
  }
  return false;
}

bool write_recording(const std::string& path) {
  std::FILE* const file = std::fopen(path.c_str(), "w");
  if (file == nullptr) return false;
  for (const Session& session : sessions()) {
    std::fprintf(file, "session %s\n", session.name);
    for (const Event& event : Bench(session).record()) {
      if (event.call != spectralsim::Call::kLog) write_event(event, file);
    }
  }
  return std::fclose(file) == 0;
}

}  // namespace bench
