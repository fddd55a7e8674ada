// Plays the sessions of the fault sweep on whatever phone it finds, a real one included, without
// being linked to the simulator. Every call's status goes to the log.

#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "reliability/arguments.h"
#include "reliability/fault_sessions.h"
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
    "  --alarm          a SIGALRM each millisecond, whose handler was set without SA_RESTART\n"
    "  --alarm-restart  the same with SA_RESTART\n"
    "  --list           prints the names of the sessions\n";

long count_descriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

long count_mapped_files() {
  std::ifstream maps("/proc/self/maps");
  long count = 0;
  for (std::string line; std::getline(maps, line);) {
    count += line.find('/') != std::string::npos ? 1 : 0;
  }
  return count;
}

bool library_kept_something() {
  return SpectralSensorDevice::m_pInstance != nullptr || SpectralSensor::m_pInstance != nullptr ||
         SpectralSensorDevice::m_VD6281Device[0].state != VD6281_STATE_NONE;
}

bool play(const std::string& name) {
  const auto& all = sweep::sessions();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&](const Session& session) { return session.name == name; });
  if (found == all.end()) {
    std::fprintf(stderr, "session_client: no session \"%s\"\n", name.c_str());
    return false;
  }
  found->play();
  std::printf("done %ld %ld %d\n", count_descriptors(), count_mapped_files(),
              library_kept_something() ? 1 : 0);
  std::fflush(stdout);
  return true;
}

void send_alarms(int flags) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  action.sa_flags = flags;
  sigaction(SIGALRM, &action, nullptr);
  const itimerval each_ms = {{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &each_ms, nullptr);
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
  if (option == "--alarm" || option == "--alarm-restart") {
    send_alarms(option == "--alarm" ? 0 : SA_RESTART);
    ++first;
  } else if (option.rfind("--", 0) == 0) {
    return sweep::show_help(kHelp, 2);
  }
  for (int i = first; i < argc; ++i) {
    if (!play(argv[i])) return 2;
  }
  if (first < argc) return 0;
  for (std::string name; std::getline(std::cin, name);) {
    if (!play(name)) return 2;
  }
  return 0;
}
