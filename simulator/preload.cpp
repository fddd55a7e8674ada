// Gives a phone to a program that has libspectralsim preloaded and does not use its interface. The
// environment sets the phone up; defaults stand in parentheses:
//   SPECTRALSIM_SCENE         a built-in scene or a JSON file (office)
//   SPECTRALSIM_CUT           2.0, 2.1 or 2.2 (2.2)
//   SPECTRALSIM_TIME          real or virtual (real)
//   SPECTRALSIM_SENSOR        none for a phone without the sensor
//   SPECTRALSIM_MODEL         the phone's model; SPECTRALHOST_PROPERTY_ro_product_device is ignored
//   SPECTRALSIM_FACTORY_FILE  a file that stands for the factory calibration file
//   SPECTRALSIM_ANALYSIS      a file that stands for the analysis library, or none (the project's)
//   SPECTRALSIM_FAULTS        faults as Fault::parse takes them, separated by blanks
//   SPECTRALSIM_TRACE         a file to which the trace is written when the program ends
// If the phone cannot be set up, or if there is another variable with this prefix, the program ends
// before it begins, with a line that says why.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

#include "simulator/phone.h"

namespace spectralsim {

namespace {

constexpr int kUsageExit = 2;

std::string variable(const char* name, const char* otherwise = "") {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

constexpr char kPrefix[] = "SPECTRALSIM_";
constexpr const char* kVariables[] = {
    "SPECTRALSIM_SCENE",    "SPECTRALSIM_CUT",    "SPECTRALSIM_TIME",
    "SPECTRALSIM_SENSOR",   "SPECTRALSIM_MODEL",  "SPECTRALSIM_FACTORY_FILE",
    "SPECTRALSIM_ANALYSIS", "SPECTRALSIM_FAULTS", "SPECTRALSIM_TRACE"};

std::string known_variables() {
  std::string list;
  for (const char* name : kVariables) list.append(list.empty() ? "" : ", ").append(name);
  return list;
}

// Refuses a variable that has the prefix but is none of these, which is most likely a misspelt one.
void know_all_variables() {
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    const bool is_known =
        std::find(std::begin(kVariables), std::end(kVariables), name) != std::end(kVariables);
    if (name.rfind(kPrefix, 0) != 0 || is_known) continue;
    throw std::invalid_argument("no variable " + name + "; there are " + known_variables());
  }
}

Cut cut_named(const std::string& name) {
  if (name == "2.0") return Cut::k2_0;
  if (name == "2.1") return Cut::k2_1;
  if (name == "2.2") return Cut::k2_2;
  throw std::invalid_argument("SPECTRALSIM_CUT is 2.0, 2.1 or 2.2");
}

bool is_virtual(const std::string& time) {
  if (time == "virtual") return true;
  if (time == "real") return false;
  throw std::invalid_argument("SPECTRALSIM_TIME is real or virtual");
}

std::string content_of(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::invalid_argument("cannot open SPECTRALSIM_FACTORY_FILE " + path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void set_up(Phone* phone) {
  phone->scene(variable("SPECTRALSIM_SCENE", kUsualScene));
  // The OTP of a usual unit has a color map.
  phone->chip()
      .cut(cut_named(variable("SPECTRALSIM_CUT", "2.2")))
      .otp(Otp().version(6).color_map(2));
  phone->clock().set_virtual(is_virtual(variable("SPECTRALSIM_TIME", "real")));
  const std::string trace = variable("SPECTRALSIM_TRACE");
  if (!trace.empty() && !std::ofstream(trace)) {
    throw std::invalid_argument("cannot write SPECTRALSIM_TRACE " + trace);
  }
  phone->keep_trace(!trace.empty());
  const std::string sensor = variable("SPECTRALSIM_SENSOR");
  if (sensor == "none") {
    phone->remove_sensor();
  } else if (!sensor.empty()) {
    throw std::invalid_argument("SPECTRALSIM_SENSOR is none or not set");
  }
  const std::string model = variable("SPECTRALSIM_MODEL");
  if (!model.empty()) phone->model(model);
  const std::string factory_file = variable("SPECTRALSIM_FACTORY_FILE");
  if (!factory_file.empty()) phone->factory_file(content_of(factory_file));
  const std::string analysis = variable("SPECTRALSIM_ANALYSIS");
  if (analysis == "none") {
    phone->remove_analysis_library();
  } else if (!analysis.empty()) {
    if (access(analysis.c_str(), R_OK) != 0) {
      throw std::invalid_argument("cannot open SPECTRALSIM_ANALYSIS " + analysis);
    }
    phone->analysis_library(analysis);
  }
  std::istringstream faults(variable("SPECTRALSIM_FAULTS"));
  for (std::string fault; faults >> fault;) phone->fail(Fault::parse(fault));
}

// The phone is never freed, because calls may come until the very end of the process.
Phone* g_phone = nullptr;

__attribute__((constructor)) void plug_in() {
  if (variable("LD_PRELOAD").find("spectralsim") == std::string::npos) return;
  g_phone = new Phone();
  try {
    know_all_variables();
    set_up(g_phone);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "spectralsim: %s\n", error.what());
    std::_Exit(kUsageExit);
  }
}

__attribute__((destructor)) void unplug() {
  const std::string path = variable("SPECTRALSIM_TRACE");
  if (g_phone == nullptr || path.empty()) return;
  std::ofstream file(path);
  for (const std::string& line : g_phone->events()) file << line << '\n';
  if (!file.flush()) std::fprintf(stderr, "spectralsim: cannot write %s\n", path.c_str());
}

}  // namespace

}  // namespace spectralsim
