// spectralsensorctl reads light, finds flicker, and shows and changes registers and controls, on a
// phone or on the simulated one.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "simulator/scene.h"
#include "tools/als_commands.h"
#include "tools/chip_commands.h"
#include "tools/flicker_commands.h"
#include "tools/manual.h"
#include "tools/simulate.h"

namespace spectralsensorctl {

namespace {

constexpr int kUsageExit = 2;

void list_scenes() {
  for (const std::string& name : spectralsim::Scene::names()) {
    std::printf("%-12s %s\n", name.c_str(), spectralsim::Scene::description(name).c_str());
  }
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
    m_app
        .add_option("--facade", m_facade,
                    "Which of the library's services to use: device is SpectralSensorDevice, "
                    "layered is SpectralSensor.")
        ->check(CLI::IsMember({"device", "layered"}))
        ->type_name("NAME")
        ->capture_default_str();
    m_app
        .add_option(
            "--simulate", m_scene,
            "Run on the simulated phone, before this scene (one that the scenes command "
            "lists, or a JSON file); without one, the environment's SPECTRALSIM_SCENE, or an "
            "office.")
        ->expected(0, 1)
        ->type_name("SCENE");
    add_info();
    add_als();
    add_flicker();
    add_registers();
    add_controls();
    add_tunnel();
    add_command(&m_app, "scenes",
                "list the simulated phone's scenes\n"
                "A line each: the name that --simulate takes, and what is seen.",
                " spectralsensorctl scenes")
        ->callback([this] { m_action = list_scenes; });
  }

  int run(int argc, char** argv) {
    try {
      m_app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      if (m_app.exit(error, std::cout, std::cerr) != 0) return kUsageExit;
      std::cout.flush();
      flush_output();
      return 0;
    }
    if (m_app.count("--simulate") > 0) run_simulated(argv, m_scene);
    m_action();
    flush_output();
    const bool watches = m_als.watch || m_flicker.watch;  // Ctrl-C is the usual end of a watch
    // A terminal shows "^C" without an end of line.
    if (interrupted() && isatty(STDERR_FILENO) == 1) std::fputs("\n", stderr);
    return interrupted() && !watches ? 1 : 0;
  }

 private:
  // Describes what is wrong with the arguments. For a mistyped command CLI11 only reports that a
  // command is missing, so this function names the mistyped one.
  static std::string usage_failure(const CLI::App* app, const CLI::Error& error) {
    const CLI::App* command = app;
    while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    const auto commands = command->get_subcommands({});
    const bool lacks_command =
        !commands.empty() && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
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

  // Makes the command call `act` for the service that is chosen. The argument is a null pointer;
  // only its type is used.
  template <typename Act>
  void do_with_service(CLI::App* command, Act act) {
    command->callback([this, act] {
      m_action = [this, act] {
        if (m_facade == "layered") {
          act(static_cast<SpectralSensor*>(nullptr));
        } else {
          act(static_cast<SpectralSensorDevice*>(nullptr));
        }
      };
    });
  }
  template <typename Pointer>
  using ServiceOf = std::remove_pointer_t<Pointer>;

  static CLI::Validator ends_in(const std::vector<std::string>& endings) {
    const auto check = [endings](const std::string& name) -> std::string {
      for (const std::string& ending : endings) {
        const bool fits = name.size() > ending.size() &&
                          name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
        if (fits) return "";
      }
      return name + " does not end in " + CLI::detail::join(endings, " or ");
    };
    return {check, ""};
  }

  static CLI::App* add_command(CLI::App* to, const char* name, const char* about,
                               const char* examples = "") {
    CLI::App* command = to->add_subcommand(name, about);
    command->footer(examples);
    return command;
  }

  Format format() const { return m_json ? Format::kJson : m_csv ? Format::kCsv : Format::kTable; }

  CLI::Option* add_json(CLI::App* command) {
    return command->add_flag("--json", m_json, "An object a line, with units in the names.");
  }

  void add_formats(CLI::App* command) {
    CLI::Option* json = add_json(command);
    command->add_flag("--csv", m_csv, "Comma-separated values, with a head.")->excludes(json);
  }

  void add_repeating(CLI::App* command, int* count, bool* watch) {
    CLI::Option* number = command->add_option("--count", *count, "How many, 1 to 1000000.")
                              ->check(CLI::Range(1, 1000000))
                              ->type_name("N")
                              ->capture_default_str();
    command->add_flag("--watch", *watch, "Go on until Ctrl-C.")->excludes(number);
  }

  void add_info() {
    CLI::App* command = add_command(
        &m_app, "info",
        "show what the unit is\n"
        "Brings the sensor up and shows its chip and silicon cut, the unit's id, its OTP, the "
        "driver's version, the phone model, and the calibration with its factors.",
        " spectralsensorctl info\n spectralsensorctl --simulate info --json");
    add_json(command);
    do_with_service(command,
                    [this](auto* service) { show_info<ServiceOf<decltype(service)>>(format()); });
  }

  void add_als() {
    CLI::App* command = add_command(
        &m_app, "als",
        "read the ambient light\n"
        "Takes readings of the light on each channel, in counts at the smallest gain in use. A "
        "single reading is one for which the auto-exposure has settled. A watch on a terminal "
        "shows each channel with a bar, from 1 to 65535 counts by the logarithm, and draws it "
        "again in place; elsewhere it prints a line a reading.",
        " spectralsensorctl als\n"
        " spectralsensorctl als --watch\n"
        " spectralsensorctl als --count 100 --csv >light.csv\n"
        " spectralsensorctl als --no-auto-exposure --exposure-us 100800 --gain 2.5");
    add_repeating(command, &m_als.count, &m_als.watch);
    command->add_flag("--auto-exposure,!--no-auto-exposure", m_als.auto_exposure,
                      "Let each reading choose the exposure and the gains of the next one, or keep "
                      "those given. On unless told otherwise.");
    command
        ->add_option("--exposure-us", m_als.exposure_us,
                     "Exposure to begin with in microseconds, 1600 to 1636800; the chip takes the "
                     "nearest step of 1600.")
        ->check(CLI::Range(1600u, 1636800u))
        ->type_name("US")
        ->capture_default_str();
    command
        ->add_option("--gain", m_als.gain,
                     "Gain to begin with, a factor of 0.71 to 66.67; the chip takes the nearest of "
                     "its fifteen.")
        ->check(CLI::Range(0.71, 66.67))
        ->check([](const std::string& text) {
          const bool is_number = !std::isnan(std::strtod(text.c_str(), nullptr));
          return is_number ? std::string() : text + " is no factor";
        })
        ->type_name("FACTOR")
        ->capture_default_str();
    command
        ->add_option("--channels", m_als.channels,
                     "Mask of the channels to measure, 1 to 63: bit 0 is channel 0.")
        ->check(CLI::Range(1u, 63u))
        ->type_name("MASK")
        ->capture_default_str();
    add_formats(command);
    do_with_service(command, [this](auto* service) {
      read_als<ServiceOf<decltype(service)>>(m_als, format());
    });
  }

  void add_flicker() {
    CLI::App* command = add_command(
        &m_app, "flicker",
        "find the flicker frequencies of the light\n"
        "Samples the light for a second, 2000 times, and reports the strength of the mains' "
        "flicker at 100 and 120 Hz and the strongest other frequencies; a verdict is confirmed by "
        "a second measurement. What it does goes to stderr meanwhile.",
        " spectralsensorctl flicker\n"
        " spectralsensorctl flicker --plot lamp.png --save lamp.wav\n"
        " spectralsensorctl flicker --watch --json\n"
        " spectralsensorctl flicker --detector");
    add_repeating(command, &m_flicker.count, &m_flicker.watch);
    CLI::Option* detector =
        command->add_flag("--detector", m_flicker.detector,
                          "Ask the chip's own detector instead: it counts the light's periods.");
    command
        ->add_option("--save", m_flicker.wav_path,
                     "Keep the last measurement's samples as a WAV file, 2000 a second.")
        ->check(ends_in({".wav"}))
        ->type_name("FILE.wav")
        ->excludes(detector);
    command
        ->add_option("--plot", m_flicker.plot_path,
                     "Draw the last measurement: its waveform, and its spectrum with the reported "
                     "frequencies marked. A PNG picture by gnuplot, or for a name in .gp the "
                     "script that draws it.")
        ->check(ends_in({".png", ".gp"}))
        ->type_name("FILE.png")
        ->excludes(detector);
    add_formats(command);
    do_with_service(command, [this](auto* service) {
      find_flicker<ServiceOf<decltype(service)>>(m_flicker, format());
    });
  }

  void add_registers() {
    CLI::App* command =
        add_command(&m_app, "registers",
                    "read or write the chip's registers\n"
                    "The sensor is brought up before and powered down after: a write lasts no "
                    "longer than the command. Numbers are as in C: 0x1d is hexadecimal, 010 octal.",
                    " spectralsensorctl registers dump\n"
                    " spectralsensorctl registers read 0x1d 2\n"
                    " spectralsensorctl registers write 0x32 0x05");
    command->require_subcommand(1);
    CLI::App* read =
        add_command(command, "read",
                    "read registers, wrapping from 0xff to 0x00\n"
                    "Prints a line for sixteen registers: the first one's address, and "
                    "their values in hexadecimal.",
                    " spectralsensorctl registers read 0x1d 2");
    add_address(read, "First register, 0 to 255.");
    read->add_option("count", m_count, "How many, 1 to 256.")
        ->check(CLI::Range(1u, 256u))
        ->capture_default_str();
    do_with_service(read, [this](auto* service) {
      read_registers<ServiceOf<decltype(service)>>(m_address, m_count);
    });
    CLI::App* write = add_command(command, "write",
                                  "write a register\n"
                                  "The sensor is powered down after it, and the value with it.",
                                  " spectralsensorctl registers write 0x32 0x05");
    add_address(write, "Register, 0 to 255.");
    write->add_option("value", m_value, "Value, 0 to 255.")
        ->required()
        ->check(CLI::Range(0u, 255u));
    do_with_service(write, [this](auto* service) {
      write_register<ServiceOf<decltype(service)>>(m_address, m_value);
    });
    do_with_service(add_command(command, "dump",
                                "read all registers\n"
                                "Prints a line for sixteen registers, as read does.",
                                " spectralsensorctl registers dump"),
                    [](auto* service) { read_registers<ServiceOf<decltype(service)>>(0, 256); });
  }

  void add_address(CLI::App* command, const char* about) {
    command->add_option("address", m_address, about)->required()->check(CLI::Range(0u, 255u));
  }

  void add_controls() {
    CLI::App* command =
        add_command(&m_app, "control",
                    "read or set the chip's secondary settings\n"
                    "Pedestal, dark output, drive strength, use of the OTP, by name. A setting "
                    "lasts no longer than the command.",
                    " spectralsensorctl control list\n"
                    " spectralsensorctl control get pedestal-value\n"
                    " spectralsensorctl control set sda-drive 20");
    command->require_subcommand(1);
    add_command(command, "list",
                "list them, with the values that they take\n"
                "A line each. Needs no sensor.",
                " spectralsensorctl control list")
        ->callback([this] { m_action = list_controls; });
    CLI::App* get = add_command(command, "get",
                                "read one\n"
                                "Prints its value, as it is after bring-up.",
                                " spectralsensorctl control get pedestal-value");
    get->add_option("name", m_name, "A name that control list shows.")->required();
    do_with_service(get,
                    [this](auto* service) { get_control<ServiceOf<decltype(service)>>(m_name); });
    CLI::App* set = add_command(command, "set",
                                "set one, while the tool has the sensor\n"
                                "Shows whether the chip takes it: the sensor is powered down after "
                                "it, and the setting with it.",
                                " spectralsensorctl control set sda-drive 20");
    set->add_option("name", m_name, "A name that control list shows.")->required();
    set->add_option("value", m_control_value, "Its value, one that control list shows.")
        ->required();
    do_with_service(set, [this](auto* service) {
      set_control<ServiceOf<decltype(service)>>(m_name, m_control_value);
    });
  }

  void add_tunnel() {
    CLI::App* command = add_command(&m_app, "tunnel", "look into the sensor hub's tunnel",
                                    " spectralsensorctl tunnel dump --length-ms 100");
    command->require_subcommand(1);
    CLI::App* dump = add_command(
        command, "dump",
        "show the packets of the tunnel\n"
        "Starts a flicker measurement, reads the stream of /dev/sensor_tunnel until there are "
        "the packets of that many milliseconds, and shows a line a packet: stream id (0 flicker, "
        "15 VSYNC), auxiliary word, time stamp, sequence number, length, and the samples of "
        "flicker packets. The driver dumps by way of /data/unparsed_flicker_data.",
        " spectralsensorctl tunnel dump\n"
        " spectralsensorctl tunnel dump --length-ms 1000 --raw stream.bin --csv");
    dump->add_option("--length-ms", m_dump.length_ms, "How long to read, 10 to 1000.")
        ->check(CLI::Range(10u, 1000u))
        ->type_name("MS")
        ->capture_default_str();
    dump->add_option("--raw", m_dump.raw_path, "Keep the stream's bytes, as they came.")
        ->type_name("FILE");
    add_formats(dump);
    do_with_service(dump, [this](auto* service) {
      dump_tunnel<ServiceOf<decltype(service)>>(m_dump, format());
    });
  }

  CLI::App m_app{
      "use a VD6281 spectral light sensor\n"
      "Brings the sensor up through libspectralsensor, does what is asked, and leaves it powered "
      "down. On a phone it needs to be root; with --simulate it runs on any development machine. "
      "The library's log goes to logcat on a phone and to stderr elsewhere "
      "(SPECTRALHOST_LOG=silent to debug).",
      "spectralsensorctl"};
  std::function<void()> m_action;
  std::string m_facade = "device";
  std::string m_scene;
  AlsOptions m_als;
  FlickerOptions m_flicker;
  DumpOptions m_dump;
  bool m_json = false;
  bool m_csv = false;
  unsigned int m_address = 0;
  unsigned int m_count = 1;
  unsigned int m_value = 0;
  std::string m_name;
  std::string m_control_value;
};

}  // namespace

}  // namespace spectralsensorctl

// If a standard stream is closed, the first node that is opened would get its descriptor and thus
// everything that is printed. /dev/null takes the descriptor instead. It is opened for reading
// only, so that printing still fails.
static void hold_standard_streams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDONLY);
  }
}

int main(int argc, char** argv) {
  hold_standard_streams();
  std::signal(SIGPIPE, SIG_IGN);  // writing to a closed pipe is then reported like any other error
  try {
    return spectralsensorctl::Tool().run(argc, argv);
  } catch (const spectralsensorctl::UsageError& error) {
    std::fprintf(stderr, "spectralsensorctl: %s\n", error.what());
    return spectralsensorctl::kUsageExit;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "spectralsensorctl: %s\n", error.what());
    return 1;
  }
}
