// Lets each single system call of whole sessions fail in turn, then pairs of them, and requires
// after each what tests/support/fault_rules.h says, that nothing is left open, powered or lost, and
// that the next session in the process is as if nothing had happened. See docs/reliability.md.

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <utility>

#include "simulator/phone.h"
#include "spectral_sensor.h"
#include "tests/support/fault_rules.h"
#include "tests/support/fault_sessions.h"
#include "tests/support/live_blocks.h"

namespace {

using spectralsim::Call;
using spectralsim::Cut;
using spectralsim::Event;
using spectralsim::Fault;
using spectralsim::Node;
using spectralsim::Phone;
using spectralsim::Trace;
using sweep::Session;
using Lines = std::vector<std::string>;

constexpr std::int64_t kHourMs = 3600000;
constexpr std::int64_t kAgainMs = 10000 * kHourMs;
constexpr std::int64_t kStallMs = 60000;
constexpr long kOtherResult = -5;
constexpr int kMostReports = 20;

enum class Kind { kFails, kFailsOtherwise, kEmpty, kHalf, kLate, kStalls, kDies };
constexpr Kind kKinds[] = {Kind::kFails, Kind::kFailsOtherwise, Kind::kEmpty, Kind::kHalf,
                           Kind::kLate,  Kind::kStalls,         Kind::kDies};

const char* name_of(Kind kind) {
  static constexpr const char* kNames[] = {
      "fails",           "fails with -5", "is empty",          "is half",
      "is an hour late", "stalls",        "fails from here on"};
  return kNames[static_cast<int>(kind)];
}

bool applies(Kind kind, const Event& event) {
  const bool moves_bytes = event.call == Call::kRead || event.call == Call::kWrite;
  switch (kind) {
    case Kind::kFailsOtherwise:
      return event.call != Call::kClose && event.call != Call::kDlopen;
    case Kind::kEmpty:
      return moves_bytes && event.result > 0;
    case Kind::kHalf:
      return moves_bytes && event.result > 1;
    default:
      return event.call != Call::kLog;
  }
}

// Whether the client must not notice.
bool is_harmless(Kind kind, const Event& event) {
  return kind == Kind::kHalf || (kind == Kind::kEmpty && event.call == Call::kWrite);
}

// The fault that strikes call number `index` of a session that goes as `trace` up to there.
Fault fault_at(const Trace& trace, std::size_t index, Kind kind) {
  const Event& struck = trace[index];
  int nth = 0;
  for (std::size_t i = 0; i <= index; ++i) {
    const Event& event = trace[i];
    nth += event.call == struck.call && event.node == struck.node && event.address == struck.address
               ? 1
               : 0;
  }
  Fault fault(struck.call, struck.node);
  if (struck.address >= 0) fault.at(struck.address);
  fault.nth(nth);
  switch (kind) {
    case Kind::kFails:
      return fault.with_errno(EIO);
    case Kind::kFailsOtherwise:
      return fault.returning(kOtherResult);
    case Kind::kEmpty:
      return fault.returning(0);
    case Kind::kHalf:
      return fault.returning(struck.result / 2);
    case Kind::kLate:
      return fault.late_by_ms(kHourMs);
    case Kind::kStalls:
      return fault.late_by_ms(kStallMs).with_errno(ETIMEDOUT);
    case Kind::kDies:
      return fault.onwards();
  }
  return fault;
}

struct Injection {
  std::size_t index;  // of the call in the trace
  Kind kind;
  std::string call;
  Fault fault;
};

Injection injection_at(const Trace& trace, std::size_t index, Kind kind) {
  return {index, kind, describe(trace[index]), fault_at(trace, index, kind)};
}

void set_up(Phone* phone, Cut cut) {
  phone->scene("pwm-300hz");
  phone->chip().noise(0, 1).cut(cut).otp(spectralsim::Otp().version(6).color_map(2).slope(0, 0x90));
}

Trace play(const Session& session, Phone* phone) {
  phone->clear_trace();
  session.run(phone);
  return phone->trace();
}

// The session once more, at one and the same time of the phone's life however late the first one
// has become, so that lamps and rounding are the same.
Trace play_again(const Session& session, Phone* phone) {
  phone->heal();
  phone->clock().sleep_ns(kAgainMs * spectralsim::kNsPerMs - phone->clock().now_ns());
  return play(session, phone);
}

// An undisturbed phone on which the session ran twice.
struct Reference {
  Trace first;
  Trace again;
};

Reference reference_of(const Session& session, Cut cut) {
  Phone phone;
  set_up(&phone, cut);
  Trace first = play(session, &phone);
  return {std::move(first), play_again(session, &phone)};
}

Trace trace_of(const Session& session, Cut cut, const Injection& injection) {
  Phone phone;
  set_up(&phone, cut);
  phone.fail(injection.fault);
  Trace trace = play(session, &phone);
  dlerror();  // gives back the text of a failed dlopen, which the C library keeps until then
  return trace;
}

bool is_same(const Event& a, const Event& b) {
  return a.call == b.call && a.node == b.node && a.address == b.address && a.count == b.count &&
         a.value == b.value && a.text == b.text && a.priority == b.priority && a.tag == b.tag &&
         (a.call == Call::kOpen ? (a.result < 0) == (b.result < 0) : a.result == b.result);
}

Lines client_lines(const Trace& trace) {
  Lines lines;
  for (const Event& event : trace) {
    if (event.tag == sweep::kClientTag) lines.push_back(event.text);
  }
  return lines;
}

void compare(const Trace& reference, const Trace& clean, Lines* broken) {
  for (std::size_t i = 0; i < std::max(reference.size(), clean.size()); ++i) {
    if (i < std::min(reference.size(), clean.size()) && is_same(reference[i], clean[i])) continue;
    broken->push_back("the next session differs at call " + std::to_string(i) + ": \"" +
                      (i < clean.size() ? describe(clean[i]) : "") + "\", undisturbed \"" +
                      (i < reference.size() ? describe(reference[i]) : "") + "\"");
    return;
  }
}

bool last_power_switch_was_refused(const Trace& trace) {
  bool refused = false;
  for (const Event& event : trace) {
    const bool switches =
        event.node == Node::kEnable && (event.call == Call::kOpen || event.call == Call::kWrite);
    if (switches) refused = sweep::is_refused(event);
  }
  return refused;
}

// What a session has left behind on the phone and in the library. The power may stay on only where
// more than one fault can have met each try to switch it off.
void left_over(const Phone& phone, bool powered, bool may_stay_on, Lines* broken) {
  if (phone.open_descriptors() != 0) {
    broken->push_back(std::to_string(phone.open_descriptors()) + " descriptors left open");
  }
  if (powered && !may_stay_on) broken->push_back("power left on");
  if (SpectralSensorDevice::m_pInstance != nullptr || SpectralSensor::m_pInstance != nullptr) {
    broken->push_back("an instance left");
  }
  if (SpectralSensorDevice::m_VD6281Device[0].state != VD6281_STATE_NONE) {
    broken->push_back("device record left in use");
  }
}

long count_descriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

long count_file_mappings() {
  std::ifstream maps("/proc/self/maps");
  long count = 0;
  for (std::string line; std::getline(maps, line);) {
    count += line.find('/') != std::string::npos ? 1 : 0;
  }
  return count;
}

// Runs a session with these faults, and without faults after that.
Lines disturb(const Session& session, Cut cut, const Reference& reference,
              const std::vector<Injection>& injections) {
  Phone phone;
  set_up(&phone, cut);
  for (const Injection& injection : injections) phone.fail(injection.fault);
  const Trace trace = play(session, &phone);

  Lines broken = sweep::broken_rules(trace, {-1, kOtherResult});
  const bool single =
      injections.size() <= 1 && (injections.empty() || injections[0].kind != Kind::kDies);
  left_over(phone, phone.chip().powered(), !single && last_power_switch_was_refused(trace),
            &broken);
  if (!injections.empty()) {
    const Injection& first = injections[0];
    const Event& struck = reference.first[first.index];
    if (first.index >= trace.size() || trace[first.index].call != struck.call ||
        (first.kind == Kind::kFails && !sweep::is_refused(trace[first.index]))) {
      broken.push_back("the fault did not strike");
    }
    if (injections.size() == 1 && is_harmless(first.kind, struck) &&
        client_lines(trace) != client_lines(reference.first)) {
      broken.push_back("the client noticed");
    }
  }
  compare(reference.again, play_again(session, &phone), &broken);
  left_over(phone, phone.chip().powered(), false, &broken);
  return broken;
}

Lines disturb_and_count(const Session& session, Cut cut, const Reference& reference,
                        const std::vector<Injection>& injections) {
  const long descriptors = count_descriptors();
  const long blocks = sweep::live_blocks();
  Lines broken = disturb(session, cut, reference, injections);
  if (!broken.empty()) return broken;
  const long lost = sweep::live_blocks() - blocks;
  const long opened = count_descriptors() - descriptors;
  if (lost != 0) broken.push_back(std::to_string(lost) + " blocks of memory lost");
  if (opened != 0) broken.push_back(std::to_string(opened) + " descriptors lost");
  return broken;
}

class Sweep {
 public:
  Sweep(bool whole, std::size_t every, std::uint64_t seed)
      : m_whole(whole), m_every(every), m_random(seed) {}

  int failures() const { return m_failures; }
  long faults() const { return m_singles + m_others + m_pairs; }

  void run(const Session& session) {
    const long before[] = {m_singles, m_others, m_pairs};
    std::size_t calls = 0;
    for (const Cut cut : {Cut::k2_0, Cut::k2_1, Cut::k2_2}) calls += run(session, cut);
    std::printf("%-28s %5zu calls: %5ld failed, %5ld otherwise disturbed, %4ld pairs\n",
                session.name.c_str(), calls, m_singles - before[0], m_others - before[1],
                m_pairs - before[2]);
    std::fflush(stdout);
  }

 private:
  static constexpr int kPairs[] = {2, 60};    // of a session on a cut, short and whole
  static constexpr std::size_t kSample = 12;  // of so many calls one is disturbed otherwise

  std::size_t run(const Session& session, Cut cut) {
    reference_of(session, cut);  // what is made once and kept, is made here
    const long mappings = count_file_mappings();
    const Reference reference = reference_of(session, cut);
    const Trace& trace = reference.first;
    for (const std::string& line : sweep::needless_messages(trace)) {
      report(session, cut, {}, {"undisturbed, yet: " + line});
    }
    check(session, cut, reference, {});
    std::size_t calls = 0;
    for (std::size_t i = 0; i < trace.size(); ++i) {
      if (trace[i].call == Call::kLog) continue;
      ++calls;
      if (calls % m_every != 0) continue;
      for (const Kind kind : kKinds) {
        if (!applies(kind, trace[i]) || !is_due(kind)) continue;
        ++(kind == Kind::kFails ? m_singles : m_others);
        check(session, cut, reference, {injection_at(trace, i, kind)});
      }
    }
    for (int i = 0; i < kPairs[m_whole ? 1 : 0]; ++i) check_pair(session, cut, reference);
    const bool is_sanitized = sweep::live_blocks() < 0;  // and maps files of its own
    if (!is_sanitized && count_file_mappings() > mappings) {
      report(session, cut, {}, {"file mappings lost"});
    }
    return calls;
  }

  // Each call fails plainly; of what else can happen to it the short form takes a sample.
  bool is_due(Kind kind) {
    return m_whole || kind == Kind::kFails || pick(kSample * (std::size(kKinds) - 1)) == 0;
  }

  // A fault anywhere, and another in what the session does after it.
  void check_pair(const Session& session, Cut cut, const Reference& reference) {
    const Injection first = random_injection(reference.first, 0);
    const Trace trace = trace_of(session, cut, first);
    if (first.index + 1 >= trace.size()) return;
    const Injection second = random_injection(trace, first.index + 1);
    if (second.index <= first.index) return;  // there was no call left
    ++m_pairs;
    check(session, cut, reference, {first, second});
  }

  Injection random_injection(const Trace& trace, std::size_t from) {
    std::vector<std::size_t> calls;
    for (std::size_t i = from; i < trace.size(); ++i) {
      if (trace[i].call != Call::kLog) calls.push_back(i);
    }
    if (calls.empty()) return injection_at(trace, 0, Kind::kFails);
    const std::size_t index = calls[pick(calls.size())];
    for (;;) {
      const Kind kind = kKinds[pick(std::size(kKinds))];
      if (applies(kind, trace[index])) return injection_at(trace, index, kind);
    }
  }

  std::size_t pick(std::size_t choices) { return m_random() % choices; }

  void check(const Session& session, Cut cut, const Reference& reference,
             const std::vector<Injection>& injections) {
    const Lines broken = disturb_and_count(session, cut, reference, injections);
    if (!broken.empty()) report(session, cut, injections, broken);
  }

  void report(const Session& session, Cut cut, const std::vector<Injection>& injections,
              const Lines& broken) {
    if (++m_failures > kMostReports) return;
    std::printf("BROKEN: %s, cut 2.%d", session.name.c_str(), static_cast<int>(cut));
    for (const Injection& injection : injections) {
      std::printf(", call %zu \"%s\" %s", injection.index, injection.call.c_str(),
                  name_of(injection.kind));
    }
    std::printf("\n");
    for (const std::string& line : broken) std::printf("    %s\n", line.c_str());
  }

  bool m_whole;
  std::size_t m_every;
  std::mt19937_64 m_random;
  int m_failures = 0;
  long m_singles = 0;
  long m_others = 0;
  long m_pairs = 0;
};

// That the checks notice what they are there for: a message that is missing, a status that is not
// documented, a client that goes without a word.
bool checks_can_fail() {
  const Session& session = sweep::sessions().front();
  const Trace reference = reference_of(session, Cut::k2_2).first;
  std::size_t index = 0;
  while (!reference[index].is_register_write()) ++index;
  Trace trace = trace_of(session, Cut::k2_2, injection_at(reference, index, Kind::kFails));
  const auto behind = trace.begin() + static_cast<std::ptrdiff_t>(index) + 1;
  Trace silent = trace;
  silent.erase(silent.begin() + (behind - trace.begin()));
  Trace wrong = trace;
  for (Event& event : wrong) {
    if (event.text == "Init = -22") event.text = "Init = -21";
  }
  const long blocks = sweep::live_blocks();
  Lines left;
  {
    Phone phone;
    SpectralSensorDevice::Create()->Init(SPECTRAL_MODE_ALS);
    left_over(phone, phone.chip().powered(), false, &left);
    SpectralSensorDevice::m_pInstance->Uninit(SPECTRAL_MODE_ALS);
  }
  const bool counts = blocks < 0 || sweep::live_blocks() > blocks;
  SpectralSensorDevice::Destroy();
  return sweep::broken_rules(trace, {-1}).empty() && !sweep::broken_rules(silent, {-1}).empty() &&
         !sweep::broken_rules(wrong, {-1}).empty() && left.size() >= 4 && counts;
}

constexpr char kHelp[] =
    "fault_sweep [--whole] [--every N] [--seed N]\n"
    "Lets each system call of whole sessions on the simulated phone fail, and checks the library.\n"
    "  --whole    every disturbance of every call, and many pairs; else every call fails once and\n"
    "             the rest is a sample\n"
    "  --every N  disturbs only every N-th call (1)\n"
    "  --seed N   of the sample and the pairs (1)\n";

int run(int argc, char** argv) {
  bool whole = false;
  std::size_t every = 1;
  std::uint64_t seed = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--whole") == 0) {
      whole = true;
    } else if (std::strcmp(argv[i], "--every") == 0 && i + 1 < argc) {
      every = std::max<std::size_t>(std::strtoull(argv[++i], nullptr, 10), 1);
    } else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
      seed = std::strtoull(argv[++i], nullptr, 10);
    } else {
      std::fputs(kHelp, stdout);
      return std::strcmp(argv[i], "--help") == 0 ? 0 : 2;
    }
  }
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  if (!checks_can_fail()) {
    std::printf("BROKEN: the checks do not notice a fault\n");
    return 1;
  }
  Sweep sweep(whole, every, seed);
  for (const Session& session : sweep::sessions()) sweep.run(session);
  std::printf("%ld disturbed sessions, %d broken\n", sweep.faults(), sweep.failures());
  return sweep.failures() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // Closed to writing, as for a camera process: a bring-up without nodes writes to descriptor 0.
  if (std::freopen("/dev/null", "r", stdin) == nullptr) return 1;
  setenv("SPECTRALHOST_LOG", "silent", 1);  // what is logged is in the trace
  return run(argc, argv);
}
