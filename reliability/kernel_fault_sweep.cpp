// Lets system calls of whole sessions fail on the kernel's own nodes: a sample of what fault_sweep
// does on the phone in its own process. The client is a process of its own, so that its descriptors
// and mappings are the kernel's. See docs/reliability.md.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "reliability/arguments.h"
#include "reliability/fault_rules.h"
#include "reliability/furnish.h"
#include "reliability/injection.h"
#include "simulator/kernel_nodes.h"
#include "simulator/phone.h"

namespace {

using spectralsim::Call;
using spectralsim::Event;
using spectralsim::Phone;
using spectralsim::Trace;
using sweep::Injection;
using sweep::Kind;
using sweep::Session;
using Lines = std::vector<std::string>;
using SteadyClock = std::chrono::steady_clock;

constexpr int kSkippedExit = 77;
constexpr int kLongestSessionMs = 60000;
// What makes sense in real time, and what a system call can return.
constexpr Kind kRealKinds[] = {Kind::kFails, Kind::kFails, Kind::kEmpty, Kind::kHalf, Kind::kDies};

// What a client has left behind a session.
struct Left {
  long descriptors = 0;
  long mapped_files = 0;
  int kept = 0;
};

// A process that plays sessions on the kernel's own nodes.
class Client {
 public:
  explicit Client(Phone* phone) : m_phone(phone) {
    if (pipe2(m_input, O_CLOEXEC) != 0 || pipe2(m_output, O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    spectralsim::Command command;
    command.arguments = {here / "session_client"};
    command.environment = {"SPECTRALHOST_LOG=silent"};
    command.input = m_input[0];
    command.output = m_output[1];
    m_thread = std::thread([this, command] {
      spectralsim::KernelNodes(m_phone).run(command);
      close(m_output[1]);
    });
  }
  ~Client() {
    close(m_input[1]);
    m_thread.join();
    close(m_input[0]);
    close(m_output[0]);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Trace play(const Session& session, Left* left) {
    m_phone->clear_trace();
    const std::string line = session.name + "\n";
    if (write(m_input[1], line.data(), line.size()) < 0) throw std::runtime_error("no client");
    const std::string answer = read_line();
    if (std::sscanf(answer.c_str(), "done %ld %ld %d", &left->descriptors, &left->mapped_files,
                    &left->kept) != 3) {
      throw std::runtime_error("the client of " + session.name + " has ended");
    }
    return m_phone->trace();
  }

 private:
  std::string read_line() {
    std::string line;
    pollfd end = {m_output[0], POLLIN, 0};
    for (char c = '\0'; c != '\n'; line += c) {
      if (poll(&end, 1, kLongestSessionMs) != 1) {
        std::printf("BROKEN: the client hangs\n");
        std::fflush(stdout);
        std::_Exit(1);  // which ends the client as well
      }
      if (read(m_output[0], &c, 1) != 1) break;
    }
    return line;
  }

  Phone* m_phone;
  int m_input[2] = {-1, -1};
  int m_output[2] = {-1, -1};
  std::thread m_thread;
};

// The statuses of the client's calls, which do not depend on the time.
Lines statuses(const Trace& trace) {
  Lines lines;
  for (const Event& event : trace) {
    const bool is_status = event.text.find(" = ") != std::string::npos;
    if (event.tag == sweep::kClientTag && is_status) lines.push_back(event.text);
  }
  return lines;
}

class Sweep {
 public:
  explicit Sweep(std::uint64_t seed) : m_random(seed) {}

  int broken() const { return m_broken; }
  int faults() const { return m_faults; }
  int refused() const { return m_refused; }

  // Disturbs the session again and again until this much time has passed, at least once.
  void run(const Session& session, SteadyClock::duration duration) {
    Phone phone;
    sweep::furnish(session.furnished, &phone);
    phone.clock().set_virtual(false);
    phone.scene("pwm-300hz");
    phone.chip().noise(0, 1).otp(spectralsim::Otp().version(6).color_map(2).slope(0, 0x90));
    Client client(&phone);
    const auto end = SteadyClock::now() + duration;
    client.play(session, &m_reference);  // lets the process allocate what it makes once and keeps
    const Trace reference = client.play(session, &m_reference);
    report(session, nullptr, "undisturbed", check(&phone, reference, m_reference));
    const int before = m_faults;
    do {
      disturb(session, reference, &phone, &client);
    } while (SteadyClock::now() < end);
    std::printf("%-28s %4d faults\n", session.name.c_str(), m_faults - before);
    std::fflush(stdout);
  }

 private:
  Injection pick(const Trace& trace) {
    for (;;) {
      const std::size_t index = m_random() % trace.size();
      const Kind kind = kRealKinds[m_random() % std::size(kRealKinds)];
      if (trace[index].call != Call::kLog && sweep::applies(kind, trace[index])) {
        return sweep::injection_at(trace, index, kind);
      }
    }
  }

  void disturb(const Session& session, const Trace& reference, Phone* phone, Client* client) {
    const Injection injection = pick(reference);
    phone->fail(injection.fault);
    ++m_faults;
    Left left;
    const Trace trace = client->play(session, &left);
    phone->heal();
    m_refused += std::any_of(trace.begin(), trace.end(), sweep::is_refused) ? 1 : 0;
    Lines lines = check(phone, trace, left);
    if (injection.kind == Kind::kDies) {  // all attempts to switch the power off may have failed
      lines.erase(std::remove(lines.begin(), lines.end(), kPowered), lines.end());
    }
    report(session, &injection, "disturbed", lines);
    const Trace again = client->play(session, &left);
    lines = check(phone, again, left);
    if (statuses(again) != statuses(reference)) lines.emplace_back("other statuses");
    report(session, &injection, "the session after it", lines);
  }

  Lines check(Phone* phone, const Trace& trace, const Left& left) const {
    Lines lines = sweep::broken_rules(trace, {-1});
    if (phone->chip().powered()) lines.emplace_back(kPowered);
    // The phone hears of a close a moment after it has returned.
    for (int i = 0; i < 1000 && phone->open_descriptors() != 0; ++i) usleep(1000);
    if (phone->open_descriptors() != 0) lines.emplace_back("nodes left open");
    if (left.descriptors != m_reference.descriptors) lines.emplace_back("descriptors left open");
    if (left.mapped_files > m_reference.mapped_files) lines.emplace_back("mapped files left");
    if (left.kept != 0) lines.emplace_back("an instance or a device record left");
    return lines;
  }

  void report(const Session& session, const Injection* injection, const char* when,
              const Lines& lines) {
    if (lines.empty()) return;
    ++m_broken;
    std::printf("BROKEN: %s", session.name.c_str());
    if (injection != nullptr) {
      std::printf(", call %zu \"%s\" %s", injection->index, injection->call.c_str(),
                  sweep::name_of(injection->kind));
    }
    std::printf(", %s\n", when);
    for (const std::string& line : lines) std::printf("    %s\n", line.c_str());
  }

  static constexpr char kPowered[] = "power left on";

  std::mt19937_64 m_random;
  Left m_reference;
  int m_broken = 0;
  int m_faults = 0;
  int m_refused = 0;  // sessions in which the kernel refused a call
};

constexpr char kHelp[] =
    "kernel_fault_sweep [--seconds N] [--seed N]\n"
    "Lets system calls of whole sessions fail on the kernel's own nodes, and checks the library.\n"
    "  --seconds N  for about this long, and as long again for its setting-up (30); each session "
    "is disturbed at least once\n"
    "  --seed N     of the sample (1)\n";

int run(int argc, char** argv) {
  std::uint64_t seconds = 30;
  std::uint64_t seed = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--seconds") == 0 && i + 1 < argc) {
      if (!sweep::parse(argv[++i], &seconds)) return sweep::show_help(kHelp, 2);
    } else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
      if (!sweep::parse(argv[++i], &seed)) return sweep::show_help(kHelp, 2);
    } else {
      return sweep::show_help(kHelp, std::strcmp(argv[i], "--help") == 0 ? 0 : 2);
    }
  }
  const std::string why_not = spectralsim::KernelNodes::why_not();
  if (!why_not.empty()) {
    std::printf("no kernel nodes here: %s\n", why_not.c_str());
    return kSkippedExit;
  }
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  sigset_t all;
  sigfillset(&all);
  sigdelset(&all, SIGINT);
  sigprocmask(SIG_BLOCK, &all, nullptr);  // for the threads that wait for them
  Sweep sweep(seed);
  const auto& sessions = sweep::sessions();
  for (const Session& session : sessions) {
    sweep.run(session, std::chrono::milliseconds(1000 * seconds / sessions.size()));
  }
  std::printf("kernel nodes: %d faults injected, %d of them a refused call, %d sessions broken\n",
              sweep.faults(), sweep.refused(), sweep.broken());
  return sweep.broken() == 0 && sweep.refused() > sweep.faults() / 3 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::printf("BROKEN: %s\n", error.what());
    return 1;
  }
}
