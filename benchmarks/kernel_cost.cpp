// Prints what the library costs on the kernel's own nodes, next to its floor: the same calls from a
// bare loop in the same process, the two taking turns. See docs/performance.md.

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/print.h"
#include "benchmarks/recording.h"
#include "benchmarks/sessions.h"
#include "platform/android.h"
#include "support/heap.h"

namespace bench {

namespace {

// The median of the ratio that no session should exceed.
constexpr double kMostTimes = 1.05;

// How often each session is run in one minute of all of them.
int pairs_of(const std::string& session) {
  static const std::map<std::string, int> pairs = {{"Process(1), default", 200},
                                                   {"Process(1), auto-exposure", 60},
                                                   {"Process(2)", 8},
                                                   {"Init to Uninit", 100}};
  return pairs.at(session);
}

// The CPU time of this thread, user's and system's.
double cpu_us() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

template <typename Run>
double cost_us(Run run) {
  const double before = cpu_us();
  run();
  return cpu_us() - before;
}

double at(const std::vector<double>& sorted, double part) {
  return sorted[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(sorted.size() - 1)))];
}

std::string text_of(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// The recorded calls with this process's descriptors in the place of those that were open before.
spectralsim::Trace with_own_descriptors(spectralsim::Trace trace) {
  using spectralsim::Node;
  const VD6281_device& record = SpectralSensorDevice::m_VD6281Device[0];
  std::set<int> opened;
  for (spectralsim::Event& event : trace) {
    if (event.call == spectralsim::Call::kOpen) opened.insert(event.fd);
    if (opened.count(event.fd) != 0) continue;
    if (event.node == Node::kWriteByte) event.fd = record.fd_write_byte;
    if (event.node == Node::kDevice) event.fd = record.fd_dev;
  }
  return trace;
}

class Pairs {
 public:
  Pairs(const Session& session, const spectralsim::Trace& recorded)
      : m_session(session), m_sensor(session.clients) {
    session.prepare(&m_sensor);
    session.run(&m_sensor);
    m_floor = std::make_unique<Floor>(with_own_descriptors(recorded), session.waits,
                                      m_sensor.exposure_ms() + kReadOutTimeMs);
  }

  void library() { m_session.run(&m_sensor); }
  void floor() {
    m_floor->run();
    if (m_session.clients) return;
    char model[spectral::kPropertyValueMax];  // a bring-up asks the platform for it
    property_get("ro.product.device", model, "");
  }

  // Runs the two in turns, each as often as first.
  void print(int pairs) {
    std::vector<double> library_us;
    std::vector<double> floor_us;
    std::vector<double> ratios;
    for (int i = 0; i < 2 * pairs; ++i) {
      const bool floor_first = i % 2 == 0;
      if (floor_first) floor_us.push_back(cost_us([this] { floor(); }));
      library_us.push_back(cost_us([this] { library(); }));
      if (!floor_first) floor_us.push_back(cost_us([this] { floor(); }));
      ratios.push_back(library_us.back() / floor_us.back());
    }
    for (auto* values : {&library_us, &floor_us, &ratios})
      std::sort(values->begin(), values->end());
    const double median = at(ratios, 0.5);
    print_row(std::string(m_session.name) + ", kernel nodes, us of CPU",
              text_of("%.1f", at(library_us, 0.5)), text_of("%.1f", at(floor_us, 0.5)),
              text_of("%.3f times", median) + text_of(" (%.3f", at(ratios, 0.25)) +
                  text_of(" to %.3f)", at(ratios, 0.75)) +
                  (median > kMostTimes ? text_of(", more than %.2f", kMostTimes) : ""));
  }

  // Returns whether the library allocates no more often than its floor.
  bool print_allocations() {
    const long before = heap::allocations();
    library();
    const long allocated = heap::allocations() - before;
    floor();
    const long by_floor = heap::allocations() - before - allocated;
    print_row(std::string(m_session.name) + ", kernel nodes: allocations",
              std::to_string(allocated), std::to_string(by_floor),
              allocated <= by_floor ? "" : "MORE");
    return allocated <= by_floor;
  }

  // Runs each once, between lines of the phone's log.
  void mark() {
    const auto log = [this](const char* what) {
      __android_log_print(spectral::kLogInfo, "kernel_cost", "%s %s", what, m_session.name);
    };
    log("library");
    library();
    log("floor");
    floor();
    log("end");
  }

 private:
  const Session& m_session;
  WarmSensor m_sensor;
  std::unique_ptr<Floor> m_floor;
};

struct Request {
  std::string recording;
  bool once = false;
  std::string session;  // empty: all of them
  int pairs = 0;
};

int run(const Request& request) {
  const auto recorded = read_recording(request.recording);
  bool frugal = true;
  for (const Session& session : sessions()) {
    if (!request.session.empty() && request.session != session.name) continue;
    Pairs pairs(session, recorded.at(session.name));
    if (request.once) {
      pairs.mark();
      continue;
    }
    pairs.print(request.pairs > 0 ? request.pairs : pairs_of(session.name));
    frugal = pairs.print_allocations() && frugal;
    std::fflush(stdout);
  }
  return frugal ? 0 : 1;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  bench::Request request;
  if (!arguments.empty()) request.recording = arguments[0];
  request.once = arguments.size() == 2 && arguments[1] == "--once";
  if (arguments.size() == 3) {
    request.session = arguments[1];
    request.pairs = std::atoi(argv[3]);
  }
  if (arguments.empty() || (arguments.size() > 1 && !request.once && request.pairs < 1)) {
    std::fprintf(stderr, "kernel_cost RECORDING [--once | SESSION PAIRS]; scripts/bench runs it\n");
    return 2;
  }
  try {
    return bench::run(request);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kernel_cost: %s\n", error.what());
    return 2;
  }
}
