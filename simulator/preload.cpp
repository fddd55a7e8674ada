// Gives a phone to a program that has libspectralsim preloaded and does not use its interface. The
// environment sets the phone up (simulator/settings.h, docs/simulator.md). If the phone cannot be
// set up, the program ends before it begins, with a line that says why.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "simulator/phone.h"
#include "simulator/settings.h"

namespace spectralsim {

namespace {

constexpr int kUsageExit = 2;

// Neither is ever freed, because calls may come until the very end of the process.
Phone* g_phone = nullptr;
Settings* g_settings = nullptr;

__attribute__((constructor)) void plug_in() {
  const char* preloaded = std::getenv("LD_PRELOAD");
  if (preloaded == nullptr || std::strstr(preloaded, "spectralsim") == nullptr) return;
  g_phone = new Phone();
  try {
    g_settings = new Settings(from_environment());
    set_up(*g_settings, g_phone);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "spectralsim: %s\n", error.what());
    std::_Exit(kUsageExit);
  }
}

__attribute__((destructor)) void unplug() {
  if (g_phone == nullptr || write_trace(*g_settings, *g_phone)) return;
  std::fprintf(stderr, "spectralsim: cannot write %s\n", g_settings->trace.c_str());
}

}  // namespace

}  // namespace spectralsim
