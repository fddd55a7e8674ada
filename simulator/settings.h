#pragma once

// What a simulated phone is like, as a user of a program on it sets it: by the options of
// `spectralsim run`, or by the environment of a program that has libspectralsim preloaded.

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/phone.h"

namespace spectralsim {

struct Settings {
  std::string scene = kUsualScene;  // a built-in scene or a JSON file
  std::string cut = "2.2";          // "2.0", "2.1" or "2.2"
  std::string time = "real";        // "real" or "virtual"
  bool has_sensor = true;
  std::string model;         // empty: the property "ro.product.device" is not set
  std::string factory_file;  // a file with the content of the factory calibration file, or empty
  std::string analysis;      // a file, "none", or empty for the project's own library
  std::vector<std::string> faults;  // as Fault::parse takes them
  std::string trace;                // a file for the trace, or empty
  std::string data;                 // a folder that keeps the dump files, or empty
};

// The variables and their values by which the environment sets up a phone with these settings. A
// variable whose setting has its default is not among them.
std::vector<std::pair<std::string, std::string>> to_environment(const Settings& settings);

// The settings that the environment of this process asks for. Throws std::invalid_argument for an
// unknown variable that begins with "SPECTRALSIM_", with a text that lists the known ones.
Settings from_environment();

// Removes the variables of a phone from this process's environment.
void clear_environment();

// Sets the phone up. Throws std::invalid_argument with a text that says which setting is wrong, and
// why. The trace file exists from then on, but is empty.
void set_up(const Settings& settings, Phone* phone);

// Writes the phone's trace to the file of the settings, if there is one. Returns false if it cannot
// be written.
bool write_trace(const Settings& settings, const Phone& phone);

}  // namespace spectralsim
