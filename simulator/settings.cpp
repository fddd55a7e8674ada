#include "simulator/settings.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace spectralsim {

namespace {

constexpr char kPrefix[] = "SPECTRALSIM_";
constexpr char kNone[] = "none";

// The variables with one text as their value.
struct Variable {
  const char* name;
  std::string Settings::*setting;
};
constexpr Variable kVariables[] = {{"SPECTRALSIM_SCENE", &Settings::scene},
                                   {"SPECTRALSIM_CUT", &Settings::cut},
                                   {"SPECTRALSIM_TIME", &Settings::time},
                                   {"SPECTRALSIM_MODEL", &Settings::model},
                                   {"SPECTRALSIM_FACTORY_FILE", &Settings::factory_file},
                                   {"SPECTRALSIM_ANALYSIS", &Settings::analysis},
                                   {"SPECTRALSIM_TRACE", &Settings::trace},
                                   {"SPECTRALSIM_DATA", &Settings::data}};
constexpr char kSensorVariable[] = "SPECTRALSIM_SENSOR";
constexpr char kFaultsVariable[] = "SPECTRALSIM_FAULTS";

std::vector<std::string> known_names() {
  std::vector<std::string> names;
  for (const Variable& variable : kVariables) names.emplace_back(variable.name);
  names.insert(names.end(), {kSensorVariable, kFaultsVariable});
  return names;
}

// Refuses a variable that has the prefix but is none of these, which is most likely a misspelt one.
void know_all_variables() {
  const std::vector<std::string> known = known_names();
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    if (name.rfind(kPrefix, 0) != 0) continue;
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    std::string list;
    for (const std::string& each : known) list += (list.empty() ? "" : ", ") + each;
    throw std::invalid_argument(std::string("no variable ").append(name) + "; there are " + list);
  }
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

Cut cut_named(const std::string& name) {
  if (name == "2.0") return Cut::k2_0;
  if (name == "2.1") return Cut::k2_1;
  if (name == "2.2") return Cut::k2_2;
  throw std::invalid_argument("the silicon cut is 2.0, 2.1 or 2.2, not \"" + name + "\"");
}

bool is_virtual(const std::string& time) {
  if (time == "virtual") return true;
  if (time == "real") return false;
  throw std::invalid_argument("the time is real or virtual, not \"" + time + "\"");
}

[[noreturn]] void refuse_file(const std::string& what, const std::string& path) {
  throw std::invalid_argument("cannot " + what + " " + path + ": " + std::strerror(errno));
}

std::string content_of(const std::string& path) {
  std::ifstream file(path);
  if (!file) refuse_file("open the factory file", path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void set_up_files(const Settings& settings, Phone* phone) {
  if (!settings.factory_file.empty()) phone->factory_file(content_of(settings.factory_file));
  if (settings.analysis == kNone) {
    phone->remove_analysis_library();
  } else if (!settings.analysis.empty()) {
    if (access(settings.analysis.c_str(), R_OK) != 0) {
      refuse_file("open the analysis library", settings.analysis);
    }
    phone->analysis_library(settings.analysis);
  }
  if (!settings.data.empty()) {
    if (access((settings.data + "/.").c_str(), W_OK) != 0) {
      refuse_file("write to the data folder", settings.data);
    }
    phone->data_folder(std::filesystem::absolute(settings.data));
  }
  if (!settings.trace.empty() && !std::ofstream(settings.trace)) {
    refuse_file("write the trace", settings.trace);
  }
  phone->keep_trace(!settings.trace.empty());
}

}  // namespace

std::vector<std::pair<std::string, std::string>> to_environment(const Settings& settings) {
  const Settings usual;
  std::vector<std::pair<std::string, std::string>> environment;
  for (const Variable& each : kVariables) {
    const std::string& value = settings.*each.setting;
    if (value != usual.*each.setting) environment.emplace_back(each.name, value);
  }
  if (!settings.has_sensor) environment.emplace_back(kSensorVariable, kNone);
  std::string faults;
  for (const std::string& fault : settings.faults) faults += (faults.empty() ? "" : " ") + fault;
  if (!faults.empty()) environment.emplace_back(kFaultsVariable, faults);
  return environment;
}

Settings from_environment() {
  know_all_variables();
  Settings settings;
  for (const Variable& each : kVariables) {
    const std::string value = variable(each.name);
    if (!value.empty()) settings.*each.setting = value;
  }
  const std::string sensor = variable(kSensorVariable);
  if (!sensor.empty() && sensor != kNone) {
    throw std::invalid_argument(std::string(kSensorVariable) + " is none or not set");
  }
  settings.has_sensor = sensor.empty();
  std::istringstream faults(variable(kFaultsVariable));
  for (std::string fault; faults >> fault;) settings.faults.push_back(fault);
  return settings;
}

void clear_environment() {
  for (const std::string& name : known_names()) unsetenv(name.c_str());
}

void set_up(const Settings& settings, Phone* phone) {
  phone->scene(settings.scene);
  // The OTP of a usual unit has a color map.
  phone->chip().cut(cut_named(settings.cut)).otp(Otp().version(6).color_map(2));
  phone->clock().set_virtual(is_virtual(settings.time));
  if (!settings.has_sensor) phone->remove_sensor();
  if (!settings.model.empty()) phone->model(settings.model);
  for (const std::string& fault : settings.faults) phone->fail(Fault::parse(fault));
  set_up_files(settings, phone);
}

bool write_trace(const Settings& settings, const Phone& phone) {
  if (settings.trace.empty()) return true;
  std::ofstream file(settings.trace);
  for (const std::string& line : phone.events()) file << line << '\n';
  return static_cast<bool>(file.flush());
}

}  // namespace spectralsim
