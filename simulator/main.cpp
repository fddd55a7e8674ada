// spectralsim runs a command on a simulated phone.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/run.h"
#include "simulator/scene.h"
#include "simulator/settings.h"

namespace {

using spectralsim::Settings;

constexpr int kUsageExit = 2;
constexpr char kRunFooter[] =
    "The options come before the command. The variables of the preloaded simulator, such as\n"
    "SPECTRALSIM_SCENE, give the defaults of the options.\n"
    "Exit status: the command's; 128 and the number of the signal that ended it; 126 or 127\n"
    "if it cannot be run or found; 2 if the arguments are wrong or the phone cannot be set up.\n"
    "Example: spectralsim run --scene daylight -- spectralsensorctl als";

// Shows the command behind the options, which CLI11 does not parse.
class RunHelp : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App*, std::string) const override {
    return "\nUsage: spectralsim run [OPTIONS] [--] COMMAND [ARGUMENT...]\n";
  }
};

// A check of CLI11: the text of the exception with which `use(text)` refuses it, or an empty one.
template <typename Use>
auto refusal_by(Use use) {
  return [use](const std::string& text) -> std::string {
    try {
      use(text);
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
    return "";
  };
}

std::string check_analysis(const std::string& path) {
  return path == "none" ? "" : CLI::ExistingFile(path);
}

struct Options {
  Settings settings;
  std::string nodes = "auto";
};

// The options that say what the phone is like.
void add_phone(CLI::App* run, Settings* phone) {
  Settings& settings = *phone;
  run->add_option("--scene", settings.scene, "The light: a built-in scene, or a JSON file.")
      ->check(refusal_by(spectralsim::Scene::named_or_file))
      ->type_name("NAME|FILE")
      ->capture_default_str();
  run->add_option("--cut", settings.cut, "The chip's silicon cut.")
      ->check(CLI::IsMember({"2.0", "2.1", "2.2"}))
      ->capture_default_str();
  run->add_option("--model", settings.model, "The phone's model, property ro.product.device.")
      ->type_name("NAME");
  run->add_option("--factory-file", settings.factory_file,
                  "The content of the unit's factory calibration file.")
      ->check(CLI::ExistingFile.description(""))
      ->type_name("FILE");
  run->add_option("--analysis", settings.analysis,
                  "The flicker analysis library, or none. Without it the project's own.")
      ->check(check_analysis)
      ->type_name("FILE|none");
  run->add_option("--fault", settings.faults,
                  "A call that fails, as call:node[@0xREGISTER][#COUNT[+]|#every]"
                  "[=ERRNO|=RESULT|=+DELAYms]. May be given several times.")
      ->check(refusal_by(spectralsim::Fault::parse))
      ->type_name("FAULT")
      ->allow_extra_args(false);
  run->add_flag_callback(
      "--no-sensor", [&settings] { settings.has_sensor = false; }, "A phone without the sensor.");
}

void add_run(CLI::App* app, Options* options) {
  CLI::App* const run = app->add_subcommand(
      "run",
      "Runs a command on a simulated phone, and exits as the command does: with its exit status, "
      "or with 128 and the number of the signal that ended it.");
  Settings& settings = options->settings;
  run->add_option("--nodes", options->nodes,
                  "kernel: the kernel serves the phone's nodes, for any program and its child "
                  "processes (needs /dev/fuse and bubblewrap). preload: a library in front of libc "
                  "serves them, for a program that is linked to libc at run time. auto: kernel "
                  "where it can be, else preload.")
      ->check(CLI::IsMember({"auto", "kernel", "preload"}))
      ->capture_default_str();
  add_phone(run, &settings);
  run->add_option("--trace", settings.trace,
                  "Writes every call on the phone's nodes and every log line to this file.")
      ->type_name("FILE");
  run->add_option("--time", settings.time,
                  "real, or virtual: sleeps take no time (with --nodes preload only).")
      ->check(CLI::IsMember({"real", "virtual"}))
      ->capture_default_str();
  run->add_option("--data", settings.data,
                  "The folder that keeps what the phone's /data gets: the dump files.")
      ->check(CLI::ExistingDirectory.description(""))
      ->type_name("DIR");
  run->formatter(std::make_shared<RunHelp>());
  run->footer(kRunFooter);
}

// Returns how many of the arguments come before the command: the program's name, "run" and the
// options with their values.
int arguments_before_command(const CLI::App& run, int argc, char** argv) {
  int index = 2;
  while (index < argc && argv[index][0] == '-') {
    const std::string argument = argv[index++];
    if (argument == "--") return index;
    const CLI::Option* option = run.get_option_no_throw(argument);
    if (option != nullptr && option->get_expected_min() > 0) ++index;
  }
  return std::min(index, argc);
}

int run_tool(int argc, char** argv) {
  CLI::App app(
      "Runs programs on a simulated phone with a VD6281 spectral light sensor, its kernel nodes, "
      "its sensor hub and its files.",
      "spectralsim");
  app.set_version_flag("--version", SPECTRAL_VERSION);
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return "spectralsim: " + std::string(error.what()) + "\nTry spectralsim run --help.\n";
  });
  Options options;
  options.settings = spectralsim::from_environment();
  add_run(&app, &options);
  const CLI::App& run = *app.get_subcommand("run");
  const bool runs = argc > 1 && std::strcmp(argv[1], "run") == 0;
  const int before = runs ? arguments_before_command(run, argc, argv) : argc;
  const std::vector<std::string> command(argv + before, argv + argc);
  const bool is_split = before > 2 && std::strcmp(argv[before - 1], "--") == 0;
  try {
    app.parse(before - (is_split ? 1 : 0), argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) != 0 ? kUsageExit : 0;
  }
  if (command.empty()) {
    throw std::invalid_argument("a command is needed\nTry spectralsim run --help.");
  }
  return spectralsim::run(options.settings, options.nodes, command);
}

}  // namespace

int main(int argc, char** argv) {
  spectralsim::enter_sandbox_if_asked(argc, argv);
  try {
    return run_tool(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "spectralsim: " << error.what() << '\n';
    return kUsageExit;
  }
}
