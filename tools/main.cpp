// spectralsensorctl: bring a sensor up, read light, find flicker, look at registers and controls,
// on a phone or on the simulated one.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

#include "tools/commands.h"
#include "tools/simulate.h"

namespace spectralsensorctl {

namespace {

constexpr int kUsageExit = 2;

// The arguments, and what they ask for.
class Tool {
 public:
  Tool() {
    m_app.require_subcommand(1);
    m_app.option_defaults()->always_capture_default();
    m_app.add_option("--facade", m_facade, "The service to use: device or layered")
        ->check(CLI::IsMember({"device", "layered"}));
    m_app
        .add_option("--simulate", m_scene,
                    "Run on the simulated phone, before this scene (see scenes) or JSON file")
        ->expected(0, 1)
        ->default_str("office");
    add_info();
    add_als();
    add_flicker();
    add_registers();
    add_controls();
    m_app.add_subcommand("scenes", "List the simulated phone's scenes")->callback([this] {
      m_action = list_scenes;
    });
  }

  int run(int argc, char** argv) {
    try {
      m_app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return m_app.exit(error, std::cout, std::cerr) == 0 ? 0 : kUsageExit;
    }
    if (m_app.count("--simulate") > 0) run_simulated(argv, m_scene);
    m_action();
    const bool watches = m_als.watch || m_flicker.watch;  // Ctrl-C is how these end
    return interrupted() && !watches ? 1 : 0;
  }

 private:
  template <typename ForDevice, typename ForLayered>
  void act(ForDevice for_device, ForLayered for_layered) {
    m_action = [this, for_device, for_layered] {
      if (m_facade == "layered") {
        for_layered();
      } else {
        for_device();
      }
    };
  }

  Format format() const { return m_json ? Format::kJson : m_csv ? Format::kCsv : Format::kTable; }

  void add_formats(CLI::App* command) {
    auto* json = command->add_flag("--json", m_json, "An object a line");
    command->add_flag("--csv", m_csv, "Comma-separated values")->excludes(json);
  }

  void add_info() {
    m_app.add_subcommand("info", "Chip, unit, OTP, driver, phone model and calibration")
        ->callback([this] { act(show_info<SpectralSensorDevice>, show_info<SpectralSensor>); });
  }

  void add_als() {
    auto* command = m_app.add_subcommand("als", "Read the ambient light");
    command->add_option("--count", m_als.count, "Readings to take")->check(CLI::Range(1, 1000000));
    command->add_flag("--watch", m_als.watch, "Go on until Ctrl-C");
    command->add_flag("--no-auto-exposure", m_als.fixed, "Keep exposure and gain as given");
    command->add_option("--exposure-us", m_als.exposure_us, "Exposure to begin with, microseconds")
        ->check(CLI::Range(1600u, 1636800u));
    command->add_option("--gain", m_als.gain, "Gain to begin with, a factor")
        ->check(CLI::Range(0.71, 100.0));
    command->add_option("--channels", m_als.channels, "Mask of the channels to measure, 1..63")
        ->check(CLI::Range(1u, 63u));
    add_formats(command);
    command->callback([this] {
      act([this] { read_als<SpectralSensorDevice>(m_als, format()); },
          [this] { read_als<SpectralSensor>(m_als, format()); });
    });
  }

  void add_flicker() {
    auto* command = m_app.add_subcommand("flicker", "Find the flicker frequencies of the light");
    command->add_option("--count", m_flicker.count, "Verdicts to give")
        ->check(CLI::Range(1, 1000000));
    command->add_flag("--watch", m_flicker.watch, "Go on until Ctrl-C");
    command->add_flag("--detector", m_flicker.detector, "Ask the chip's own detector");
    add_formats(command);
    command->callback([this] {
      act([this] { find_flicker<SpectralSensorDevice>(m_flicker, format()); },
          [this] { find_flicker<SpectralSensor>(m_flicker, format()); });
    });
  }

  void add_registers() {
    auto* command = m_app.add_subcommand("registers", "Read or write the chip's registers");
    command->require_subcommand(1);
    auto* read = command->add_subcommand("read", "Read registers");
    read->add_option("address", m_address, "First register")
        ->required()
        ->check(CLI::Range(0u, 255u));
    read->add_option("count", m_count, "How many")->check(CLI::Range(1u, 256u));
    read->callback([this] { act_on_registers(m_address, m_count); });
    auto* write = command->add_subcommand("write", "Write a register");
    write->add_option("address", m_address, "Register")->required()->check(CLI::Range(0u, 255u));
    write->add_option("value", m_value, "Value")->required()->check(CLI::Range(0u, 255u));
    write->callback([this] {
      act([this] { write_register<SpectralSensorDevice>(m_address, m_value); },
          [this] { write_register<SpectralSensor>(m_address, m_value); });
    });
    command->add_subcommand("dump", "Read all registers")->callback([this] {
      act_on_registers(0, 256);
    });
  }

  void act_on_registers(unsigned int first, unsigned int count) {
    act([first, count] { read_registers<SpectralSensorDevice>(first, count); },
        [first, count] { read_registers<SpectralSensor>(first, count); });
  }

  void add_controls() {
    auto* command = m_app.add_subcommand("control", "The chip's secondary settings");
    command->require_subcommand(1);
    command->add_subcommand("list", "List them, with their values")->callback([this] {
      m_action = list_controls;
    });
    auto* get = command->add_subcommand("get", "Read one");
    get->add_option("name", m_name, "The control")->required();
    get->callback([this] {
      act([this] { get_control<SpectralSensorDevice>(m_name); },
          [this] { get_control<SpectralSensor>(m_name); });
    });
    auto* set = command->add_subcommand("set", "Set one, while the tool has the sensor");
    set->add_option("name", m_name, "The control")->required();
    set->add_option("value", m_value, "Its value")->required();
    set->callback([this] {
      act([this] { set_control<SpectralSensorDevice>(m_name, m_value); },
          [this] { set_control<SpectralSensor>(m_name, m_value); });
    });
  }

  CLI::App m_app{"Use a VD6281 spectral light sensor through libspectralsensor",
                 "spectralsensorctl"};
  std::function<void()> m_action;
  std::string m_facade = "device";
  std::string m_scene = "office";
  AlsOptions m_als;
  FlickerOptions m_flicker;
  bool m_json = false;
  bool m_csv = false;
  unsigned int m_address = 0;
  unsigned int m_count = 1;
  unsigned int m_value = 0;
  std::string m_name;
};

}  // namespace

}  // namespace spectralsensorctl

int main(int argc, char** argv) {
  try {
    return spectralsensorctl::Tool().run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "spectralsensorctl: %s\n", error.what());
    return 1;
  }
}
