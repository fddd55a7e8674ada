// Makes each system call of whole sessions fail in turn, then pairs of calls. After every such
// session it checks the promises of reliability/fault_rules.h, that nothing is left open, powered
// or leaked, and that the next session in the process runs as if nothing had happened. See
// docs/reliability.md.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>

#include "reliability/arguments.h"
#include "reliability/disturbed_session.h"
#include "reliability/fault_rules.h"
#include "reliability/fault_sessions.h"
#include "reliability/process.h"
#include "simulator/phone.h"
#include "spectral_sensor.h"
#include "support/heap.h"

namespace {

using spectralsim::Call;
using spectralsim::Cut;
using spectralsim::Event;
using spectralsim::Phone;
using spectralsim::Trace;
using sweep::Injection;
using sweep::Kind;
using sweep::kKinds;
using sweep::Reference;
using sweep::Session;
using Lines = std::vector<std::string>;

constexpr int kMostReports = 20;

class Sweep {
 public:
  Sweep(bool whole, std::uint64_t every, std::uint64_t seed)
      : m_whole(whole), m_every(every), m_random(seed) {}

  int failures() const { return m_failures; }
  long singles() const { return m_singles; }
  long sessions() const { return m_singles + m_others + m_pairs; }
  long faults() const { return sessions() + m_pairs; }

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
  static constexpr int kPairs[] = {2, 60};  // per session and cut: short form, whole form
  // In the short form, one call in this many gets another disturbance than a plain failure.
  static constexpr std::size_t kSample = 12;

  std::size_t run(const Session& session, Cut cut) {
    sweep::reference_of(session, cut);  // lets the process allocate what it makes once and keeps
    const long mappings = sweep::count_mapped_files();
    const Reference reference = sweep::reference_of(session, cut);
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
        if (!sweep::applies(kind, trace[i]) || !is_due(kind)) continue;
        ++(kind == Kind::kFails ? m_singles : m_others);
        check(session, cut, reference, {sweep::injection_at(trace, i, kind)});
      }
    }
    for (int i = 0; i < kPairs[m_whole ? 1 : 0]; ++i) check_pair(session, cut, reference);
    const bool is_sanitized = heap::live_blocks() < 0;  // a sanitizer maps files of its own
    if (!is_sanitized && sweep::count_mapped_files() > mappings) {
      report(session, cut, {}, {"file mappings lost"});
    }
    return calls;
  }

  // Returns whether to inject this kind of fault. Every call fails once with an errno; the short
  // form injects only a random sample of the other kinds.
  bool is_due(Kind kind) {
    return m_whole || kind == Kind::kFails || pick(kSample * (std::size(kKinds) - 1)) == 0;
  }

  // Checks the session with a fault at a random call, and another in what it does after that.
  void check_pair(const Session& session, Cut cut, const Reference& reference) {
    const Injection first = random_injection(reference.first, 0);
    const Trace trace = sweep::trace_of(session, cut, first);
    if (first.index + 1 >= trace.size()) return;
    const Injection second = random_injection(trace, first.index + 1);
    if (second.index <= first.index) return;  // no call followed the first fault
    ++m_pairs;
    check(session, cut, reference, {first, second});
  }

  Injection random_injection(const Trace& trace, std::size_t from) {
    std::vector<std::size_t> calls;
    for (std::size_t i = from; i < trace.size(); ++i) {
      if (trace[i].call != Call::kLog) calls.push_back(i);
    }
    if (calls.empty()) return sweep::injection_at(trace, 0, Kind::kFails);
    const std::size_t index = calls[pick(calls.size())];
    for (;;) {
      const Kind kind = kKinds[pick(std::size(kKinds))];
      if (sweep::applies(kind, trace[index])) return sweep::injection_at(trace, index, kind);
    }
  }

  std::size_t pick(std::size_t choices) { return m_random() % choices; }

  void check(const Session& session, Cut cut, const Reference& reference,
             const std::vector<Injection>& injections) {
    const Lines broken = sweep::disturb(session, cut, reference, injections);
    if (!broken.empty()) report(session, cut, injections, broken);
  }

  void report(const Session& session, Cut cut, const std::vector<Injection>& injections,
              const Lines& broken) {
    if (++m_failures > kMostReports) return;
    std::printf("BROKEN: %s, cut 2.%d", session.name.c_str(), static_cast<int>(cut));
    for (const Injection& injection : injections) {
      std::printf(", call %zu \"%s\" %s", injection.index, injection.call.c_str(),
                  sweep::name_of(injection.kind));
    }
    std::printf("\n");
    for (const std::string& line : broken) std::printf("    %s\n", line.c_str());
  }

  bool m_whole;
  std::uint64_t m_every;
  std::mt19937_64 m_random;
  int m_failures = 0;
  long m_singles = 0;
  long m_others = 0;
  long m_pairs = 0;
};

bool is_broken(const Trace& trace) { return !sweep::broken_rules(trace, {-1}).empty(); }

// Returns the trace that a faulty library would have left: without the lines that contain
// `removed`, and with `from` replaced by `to` at the start of the client's last line that begins
// with it.
Trace altered(Trace trace, const char* removed, const char* from, const char* to) {
  trace.erase(std::remove_if(trace.begin(), trace.end(),
                             [&](const Event& event) {
                               return *removed != '\0' && event.tag != sweep::kClientTag &&
                                      event.text.find(removed) != std::string::npos;
                             }),
              trace.end());
  const auto last = std::find_if(trace.rbegin(), trace.rend(), [&](const Event& event) {
    return event.tag == sweep::kClientTag && event.text.rfind(from, 0) == 0;
  });
  if (last != trace.rend()) last->text.replace(0, std::strlen(from), to);
  return trace;
}

// Returns the trace of the session `name` on cut 2.2 when its last `call` on the register `address`
// is refused. The trace is empty if there is no such call.
Trace refused_at_last(const char* name, Call call, int address) {
  for (const Session& session : sweep::sessions()) {
    if (session.name != name) continue;
    const Trace reference = sweep::reference_of(session, Cut::k2_2).first;
    for (std::size_t i = reference.size(); i-- > 0;) {
      if (reference[i].call != call || reference[i].address != address) continue;
      return sweep::trace_of(session, Cut::k2_2, sweep::injection_at(reference, i, Kind::kFails));
    }
  }
  return {};
}

// An alteration that breaks a rule. It is made to the trace of the session with its last such call
// refused, and the altered trace must break the rules. The sweep itself shows whether the unaltered
// trace keeps them.
struct Rule {
  const char* session;
  Call call;
  int address;
  const char* removed;
  const char* from;
  const char* to;
};

constexpr Rule kRules[] = {
    // A missing message, and an undocumented status.
    {"device bring-up", Call::kWrite, 0x58, "VD6281_WrByte", "", ""},
    {"wrapper AmbientLightSensor", Call::kWrite, 0x03, "", "StopAls = -1", "StopAls = -9"},
    // A capture that returns 0 after a failed read, or delivers what was not read.
    {"device ALS auto-exposure", Call::kIoctl, 0x02, "", "ProcessALSAuto = -22",
     "ProcessALSAuto = 0"},
    {"layered ALS auto-exposure", Call::kIoctl, 0x06, "", "ProcessALSAuto = -22",
     "ProcessALSAuto = 0"},
    {"device ALS default", Call::kIoctl, 0x06, "", "ProcessALS = -22", "ProcessALS = 0"},
    {"layered ALS default", Call::kIoctl, 0x02, "", "als 0", "als 1"},
    {"device ALS auto-exposure", Call::kWrite, 0x02, "", "als 1 1b", "als 1 1a"},
    // A step of a capture that fails without its message.
    {"device ALS auto-exposure", Call::kIoctl, 0x02, "ReadALS: ", "", ""},
    {"device ALS default", Call::kWrite, 0x1E, "ConfigALS: ", "", ""},
    {"layered ALS default", Call::kWrite, 0x2E, "StopExpALS: ", "", ""},
};

bool rules_can_be_broken() {
  for (const Rule& rule : kRules) {
    const Trace trace = refused_at_last(rule.session, rule.call, rule.address);
    if (trace.empty()) {
      std::printf("%s has no such call\n", rule.session);
    } else if (!is_broken(altered(trace, rule.removed, rule.from, rule.to))) {
      std::printf("%s, %02x refused: unnoticed\n", rule.session,
                  static_cast<unsigned int>(rule.address));
    } else {
      continue;
    }
    return false;
  }
  return true;
}

// Returns whether the checks notice broken rules, and a client that leaves everything behind.
bool checks_can_fail() {
  const long blocks = heap::live_blocks();
  Lines left;
  {
    Phone phone;
    SpectralSensorDevice::Create()->Init(SPECTRAL_MODE_ALS);
    left = sweep::left_over(phone, phone.chip().powered(), false);
    SpectralSensorDevice::m_pInstance->Uninit(SPECTRAL_MODE_ALS);
  }
  const bool counts = blocks < 0 || heap::live_blocks() > blocks;
  SpectralSensorDevice::Destroy();
  return rules_can_be_broken() && left.size() >= 4 && counts;
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
  std::uint64_t every = 1;
  std::uint64_t seed = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--whole") == 0) {
      whole = true;
    } else if (std::strcmp(argv[i], "--every") == 0 && i + 1 < argc) {
      if (!sweep::parse(argv[++i], &every) || every == 0) return sweep::show_help(kHelp, 2);
    } else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
      if (!sweep::parse(argv[++i], &seed)) return sweep::show_help(kHelp, 2);
    } else {
      return sweep::show_help(kHelp, std::strcmp(argv[i], "--help") == 0 ? 0 : 2);
    }
  }
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  if (!checks_can_fail()) {
    std::printf("BROKEN: the checks do not notice a fault\n");
    return 1;
  }
  Sweep sweep(whole, every, seed);
  for (const Session& session : sweep::sessions()) sweep.run(session);
  std::printf("%ld faults injected in %ld sessions, %d broken\n", sweep.faults(), sweep.sessions(),
              sweep.failures());
  if (sweep.singles() == 0) std::printf("BROKEN: no call was disturbed\n");
  return sweep.failures() == 0 && sweep.singles() > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // Standard input cannot be written, as in a camera process: a bring-up whose nodes do not open
  // writes to descriptor 0.
  if (std::freopen("/dev/null", "r", stdin) == nullptr) return 1;
  setenv("SPECTRALHOST_LOG", "silent", 1);  // the trace records the log
  return run(argc, argv);
}
