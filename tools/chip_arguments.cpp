// The declaration of the commands that look into the chip: `info`, `registers` and `control`.

#include "tools/arguments.h"
#include "tools/chip_commands.h"

namespace spectralsensorctl {

namespace {

void add_address(CLI::App* command, Arguments* arguments, const char* about) {
  command->add_option("address", arguments->address, about)
      ->required()
      ->transform(whole_number(0, 255));
}

void add_register_reading(CLI::App* to, Arguments* arguments) {
  CLI::App* read = add_command(to, "read",
                               "read registers, wrapping from 0xff to 0x00\n"
                               "Prints a line for sixteen registers: the first one's address, and "
                               "their values in hexadecimal.",
                               " spectralsensorctl registers read 0x1d 2");
  add_address(read, arguments, "First register, 0 to 255.");
  read->add_option("count", arguments->count, "How many, 1 to 256.")
      ->transform(whole_number(1, 256))
      ->capture_default_str();
  add_json(read, arguments);
  do_with_service(read, arguments, [arguments](auto* service) {
    read_registers<ServiceOf<decltype(service)>>(arguments->format(), arguments->address,
                                                 arguments->count);
  });
}

void add_register_writing(CLI::App* to, Arguments* arguments) {
  CLI::App* write = add_command(to, "write",
                                "write a register\n"
                                "The sensor is powered down after it, and the value with it.",
                                " spectralsensorctl registers write 0x32 0x05");
  add_address(write, arguments, "Register, 0 to 255.");
  write->add_option("value", arguments->value, "Value, 0 to 255.")
      ->required()
      ->transform(whole_number(0, 255));
  do_with_service(write, arguments, [arguments](auto* service) {
    write_register<ServiceOf<decltype(service)>>(arguments->address, arguments->value);
  });
}

void add_register_dump(CLI::App* to, Arguments* arguments) {
  CLI::App* dump = add_command(to, "dump",
                               "read all registers\n"
                               "Prints a line for sixteen registers, as read does.",
                               " spectralsensorctl registers dump");
  add_json(dump, arguments);
  do_with_service(dump, arguments, [arguments](auto* service) {
    read_registers<ServiceOf<decltype(service)>>(arguments->format(), 0, 256);
  });
}

void add_control_list(CLI::App* to, Arguments* arguments) {
  CLI::App* list = add_command(to, "list",
                               "list them, with the values that they take\n"
                               "A line each. Needs no sensor.",
                               " spectralsensorctl control list");
  add_json(list, arguments);
  list->callback(
      [arguments] { arguments->action = [arguments] { list_controls(arguments->format()); }; });
}

void add_control_reading(CLI::App* to, Arguments* arguments) {
  CLI::App* get = add_command(to, "get",
                              "read one\n"
                              "Prints its value, as it is after bring-up.",
                              " spectralsensorctl control get pedestal-value");
  get->add_option("name", arguments->name, "A name that control list shows.")->required();
  add_json(get, arguments);
  do_with_service(get, arguments, [arguments](auto* service) {
    get_control<ServiceOf<decltype(service)>>(arguments->format(), arguments->name);
  });
}

void add_control_setting(CLI::App* to, Arguments* arguments) {
  CLI::App* set = add_command(to, "set",
                              "set one, while the tool has the sensor\n"
                              "Shows whether the chip takes it: the sensor is powered down after "
                              "it, and the setting with it.",
                              " spectralsensorctl control set sda-drive 20");
  set->add_option("name", arguments->name, "A name that control list shows.")->required();
  set->add_option("value", arguments->control_value, "Its value, one that control list shows.")
      ->required();
  do_with_service(set, arguments, [arguments](auto* service) {
    set_control<ServiceOf<decltype(service)>>(arguments->name, arguments->control_value);
  });
}

}  // namespace

void add_info(CLI::App* to, Arguments* arguments) {
  CLI::App* command = add_command(
      to, "info",
      "show what the unit is\n"
      "Brings the sensor up and shows its chip and silicon cut, the unit's id, its OTP, the "
      "driver's version, the phone model, and the calibration with its factors, or why there is "
      "none.",
      " spectralsensorctl info\n spectralsensorctl --simulate info --json");
  add_json(command, arguments);
  do_with_service(command, arguments, [arguments](auto* service) {
    show_info<ServiceOf<decltype(service)>>(arguments->format());
  });
}

void add_registers(CLI::App* to, Arguments* arguments) {
  CLI::App* command =
      add_command(to, "registers",
                  "read or write the chip's registers\n"
                  "The sensor is brought up before and powered down after: a write lasts no "
                  "longer than the command. Numbers are decimal, or hexadecimal after 0x.",
                  " spectralsensorctl registers dump\n"
                  " spectralsensorctl registers read 0x1d 2\n"
                  " spectralsensorctl registers write 0x32 0x05");
  command->require_subcommand(1);
  add_register_reading(command, arguments);
  add_register_writing(command, arguments);
  add_register_dump(command, arguments);
}

void add_controls(CLI::App* to, Arguments* arguments) {
  CLI::App* command =
      add_command(to, "control",
                  "read or set the chip's secondary settings\n"
                  "Pedestal, dark output, drive strength, use of the OTP, by name. A setting "
                  "lasts no longer than the command.",
                  " spectralsensorctl control list\n"
                  " spectralsensorctl control get pedestal-value\n"
                  " spectralsensorctl control set sda-drive 20");
  command->require_subcommand(1);
  add_control_list(command, arguments);
  add_control_reading(command, arguments);
  add_control_setting(command, arguments);
}

}  // namespace spectralsensorctl
