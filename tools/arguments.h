#pragma once

// The tool's arguments: their values, and the declaration of the commands that take them.

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "tools/als_commands.h"
#include "tools/flicker_commands.h"

namespace spectralsensorctl {

struct Arguments {
  std::function<void()> action;  // carries out the command
  std::string facade = "device";
  std::string scene;
  bool json = false;
  bool csv = false;
  AlsOptions als;
  FlickerOptions flicker;
  DumpOptions dump;
  // The arguments of the `registers` and `control` commands.
  unsigned int address = 0;
  unsigned int count = 1;
  unsigned int value = 0;
  std::string name;
  std::string control_value;

  Format format() const { return json ? Format::kJson : csv ? Format::kCsv : Format::kTable; }
};

// Adds a command. The first line of `about` is its summary, the rest its description.
CLI::App* add_command(CLI::App* to, const char* name, const char* about, const char* examples = "");

CLI::Option* add_json(CLI::App* command, Arguments* arguments);
void add_formats(CLI::App* command, Arguments* arguments);

// Each of these adds one command, with its own commands if it has any. `arguments` must outlive
// `to`.
void add_info(CLI::App* to, Arguments* arguments);
void add_als(CLI::App* to, Arguments* arguments);
void add_flicker(CLI::App* to, Arguments* arguments);
void add_registers(CLI::App* to, Arguments* arguments);
void add_controls(CLI::App* to, Arguments* arguments);
void add_tunnel(CLI::App* to, Arguments* arguments);
void add_scenes(CLI::App* to, Arguments* arguments);

// A validator that accepts the whole numbers of a range and passes them on in decimal.
CLI::Validator whole_number(unsigned int lowest, unsigned int highest);

// A validator that accepts the numbers from `lowest` to `highest`. These two are texts because an
// error message shows them.
CLI::Validator number(const std::string& lowest, const std::string& highest);

// A validator that accepts file names with one of these endings.
CLI::Validator ends_in(const std::vector<std::string>& endings);

// Makes the command call `act` for the service that is chosen. The argument of `act` is a null
// pointer; only its type is used, by ServiceOf.
template <typename Act>
void do_with_service(CLI::App* command, Arguments* arguments, Act act) {
  command->callback([arguments, act] {
    arguments->action = [arguments, act] {
      if (arguments->facade == "layered") {
        act(static_cast<SpectralSensor*>(nullptr));
      } else {
        act(static_cast<SpectralSensorDevice*>(nullptr));
      }
    };
  });
}
template <typename Pointer>
using ServiceOf = std::remove_pointer_t<Pointer>;

}  // namespace spectralsensorctl
