// Plays the sessions of the fault sweep on whatever phone it finds, a real one included, without
// being linked to the simulator. Every call's status goes to the log.

#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>

#include "platform/android.h"
#include "reliability/arguments.h"
#include "reliability/fault_sessions.h"
#include "reliability/process.h"
#include "spectral_sensor.h"
#include "spectral_sensor_device.h"

namespace {

using sweep::Session;

constexpr char kHelp[] =
    "session_client [--alarm | --alarm-restart] [SESSION...]\n"
    "Plays these sessions, or those whose names come on standard input, a line each. Prints a "
    "line\n"
    "behind each session: \"done\", its open descriptors, its mapped files, and 1 if the library "
    "kept\n"
    "an instance or its device record.\n"
    "  --alarm          each session twice, first with a SIGALRM each millisecond, whose handler "
    "was\n"
    "                   set without SA_RESTART\n"
    "  --alarm-restart  the same with SA_RESTART\n"
    "  --list           prints the names of the sessions\n";

bool library_kept_something() {
  return SpectralSensorDevice::m_pInstance != nullptr || SpectralSensor::m_pInstance != nullptr ||
         SpectralSensorDevice::m_VD6281Device[0].state != VD6281_STATE_NONE;
}

// Sends a SIGALRM each `interval_us` microseconds, or none if that is 0.
void send_alarms(int interval_us) {
  const itimerval each = {{0, interval_us}, {0, interval_us}};
  setitimer(ITIMER_REAL, &each, nullptr);
}

void handle_alarms(int flags) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  action.sa_flags = flags;
  sigaction(SIGALRM, &action, nullptr);
}

void tell(const char* what, const std::string& name) {
  __android_log_print(spectral::kLogInfo, sweep::kClientTag, "%s: %s", what, name.c_str());
}

bool play(const std::string& name, bool is_disturbed) {
  const auto& all = sweep::sessions();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&](const Session& session) { return session.name == name; });
  if (found == all.end()) {
    std::fprintf(stderr, "session_client: no session \"%s\"\n", name.c_str());
    return false;
  }
  if (is_disturbed) {
    tell("disturbed", name);
    send_alarms(1000);
    found->play();
    send_alarms(0);
  }
  tell("undisturbed", name);
  found->play();
  std::printf("done %ld %ld %d\n", sweep::count_descriptors(), sweep::count_mapped_files(),
              library_kept_something() ? 1 : 0);
  std::fflush(stdout);
  return true;
}

int list() {
  for (const Session& session : sweep::sessions()) std::puts(session.name.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int first = 1;
  const std::string option = argc > 1 ? argv[1] : "";
  if (option == "--help") return sweep::show_help(kHelp, 0);
  if (option == "--list") return list();
  const bool is_disturbed = option == "--alarm" || option == "--alarm-restart";
  if (is_disturbed) {
    handle_alarms(option == "--alarm" ? 0 : SA_RESTART);
    ++first;
  } else if (option.rfind("--", 0) == 0) {
    return sweep::show_help(kHelp, 2);
  }
  for (int i = first; i < argc; ++i) {
    if (!play(argv[i], is_disturbed)) return 2;
  }
  if (first < argc) return 0;
  for (std::string name; std::getline(std::cin, name);) {
    if (!play(name, is_disturbed)) return 2;
  }
  return 0;
}
