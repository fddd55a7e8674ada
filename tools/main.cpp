// spectralsensorctl reads light, finds flicker, and shows and changes registers and controls, on a
// phone or on the simulated one.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "tools/arguments.h"
#include "tools/manual.h"
#include "tools/simulate.h"

namespace spectralsensorctl {

namespace {

constexpr int kFailureExit = 1;
constexpr int kUsageExit = 2;
constexpr int kSignalExit = 128;  // plus the signal's number, as a shell reports a signal

// Describes what is wrong with the arguments. For a mistyped command CLI11 only reports that a
// command is missing, so this function names the mistyped one.
std::string usage_failure(const CLI::App* app, const CLI::Error& error) {
  const CLI::App* command = app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  const auto commands = command->get_subcommands({});
  const bool lacks_command =
      !commands.empty() && error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError);
  const std::vector<std::string> unknown = app->remaining(true);
  std::string what = error.what();
  if (lacks_command && !unknown.empty()) {
    what = (unknown.front().front() == '-' ? "no option \"" : "no command \"") + unknown.front() +
           "\"";
  } else if (lacks_command) {
    what = "a command is needed:";
    for (const CLI::App* known : commands) what += " " + known->get_name();
  }
  return "spectralsensorctl: " + what + "\nTry " + full_name(command) + " --help.\n";
}

// Parses the arguments and does what they ask for.
class Tool {
 public:
  Tool() {
    m_app.formatter(std::make_shared<ManualPage>());
    m_app.set_help_flag("-h,--help", "Show this page.");
    m_app.set_version_flag("--version", SPECTRAL_VERSION, "Show the version.");
    m_app.require_subcommand(1);
    m_app.fallthrough();  // the tool's options may also follow the command
    m_app.failure_message(usage_failure);
    m_app.footer(
        " spectralsensorctl info\n"
        " spectralsensorctl --simulate=daylight als --watch\n"
        " spectralsensorctl --simulate=mixed flicker --plot lamp.png");
    add_options();
    add_info(&m_app, &m_arguments);
    add_als(&m_app, &m_arguments);
    add_flicker(&m_app, &m_arguments);
    add_registers(&m_app, &m_arguments);
    add_controls(&m_app, &m_arguments);
    add_tunnel(&m_app, &m_arguments);
    add_scenes(&m_app, &m_arguments);
  }

  // Returns the exit status, or throws what went wrong.
  int run(int argc, char** argv) {
    try {
      m_app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      if (m_app.exit(error, std::cout, std::cerr) != 0) return kUsageExit;
      std::cout.flush();
      flush_output();
      return 0;
    }
    if (m_app.count("--simulate") > 0) run_simulated(argv, m_arguments.scene);
    m_arguments.action();
    flush_output();
    // Ctrl-C is the usual end of a watch.
    const bool watches = m_arguments.als.watch || m_arguments.flicker.watch;
    return interrupted() && !watches ? kSignalExit + interrupting_signal() : 0;
  }

 private:
  void add_options() {
    m_app
        .add_option("--facade", m_arguments.facade,
                    "Which of the library's services to use: device is SpectralSensorDevice, "
                    "layered is SpectralSensor.")
        ->check(CLI::IsMember({"device", "layered"}))
        ->type_name("NAME")
        ->capture_default_str();
    m_app
        .add_option(
            "--simulate", m_arguments.scene,
            "Run on the simulated phone, before this scene (one that the scenes command "
            "lists, or a JSON file); without one, the environment's SPECTRALSIM_SCENE, or an "
            "office.")
        ->expected(0, 1)
        ->type_name("SCENE");
  }

  Arguments m_arguments;
  CLI::App m_app{
      "use a VD6281 spectral light sensor\n"
      "Brings the sensor up through libspectralsensor, does what is asked, and leaves it powered "
      "down. On a phone it needs to be root; with --simulate it runs on any development machine. "
      "The library's log goes to logcat on a phone and to stderr elsewhere "
      "(SPECTRALHOST_LOG=silent to debug).",
      "spectralsensorctl"};
};

// Runs the tool, reports an error on stderr, and returns the exit status.
int run(int argc, char** argv) {
  const auto complain = [](const std::exception& error, int status) {
    std::fprintf(stderr, "spectralsensorctl: %s\n", error.what());
    return interrupted() ? kSignalExit + interrupting_signal() : status;
  };
  try {
    return Tool().run(argc, argv);
  } catch (const OutputClosed&) {
    return kSignalExit + SIGPIPE;  // as if the signal had ended the tool, and as silent
  } catch (const UsageError& error) {
    return complain(error, kUsageExit);
  } catch (const std::exception& error) {
    return complain(error, kFailureExit);
  }
}

// If a standard stream is closed, the first node that is opened would get its descriptor and thus
// everything that is printed. /dev/null takes the descriptor instead. It is opened for reading
// only, so that printing still fails.
void hold_standard_streams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDONLY);
  }
}

}  // namespace

}  // namespace spectralsensorctl

int main(int argc, char** argv) {
  spectralsensorctl::hold_standard_streams();
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe does not end the tool before it powers down
  std::signal(SIGXFSZ, SIG_IGN);  // nor does a file that exceeds its limit
  const int status = spectralsensorctl::run(argc, argv);
  // A terminal shows "^C" without an end of line.
  if (spectralsensorctl::interrupted() && isatty(STDERR_FILENO) == 1) std::fputs("\n", stderr);
  return spectralsensorctl::left_powered() ? spectralsensorctl::kFailureExit : status;
}
