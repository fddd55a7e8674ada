#include "tools/arguments.h"

#include "simulator/scene.h"
#include "tools/numbers.h"

namespace spectralsensorctl {

namespace {

void list_scenes(Format format) {
  for (const std::string& name : spectralsim::Scene::names()) {
    const std::string description = spectralsim::Scene::description(name);
    if (format == Format::kJson) {
      print_json({{"name", name}, {"description", description}});
    } else {
      std::printf("%-12s %s\n", name.c_str(), description.c_str());
    }
  }
}

}  // namespace

CLI::App* add_command(CLI::App* to, const char* name, const char* about, const char* examples) {
  CLI::App* command = to->add_subcommand(name, about);
  command->footer(examples);
  return command;
}

CLI::Option* add_json(CLI::App* command, Arguments* arguments) {
  return command->add_flag("--json", arguments->json, "An object a line, with units in the names.");
}

void add_formats(CLI::App* command, Arguments* arguments) {
  CLI::Option* json = add_json(command, arguments);
  command->add_flag("--csv", arguments->csv, "Comma-separated values, with a head.")
      ->excludes(json);
}

CLI::Validator whole_number(unsigned int lowest, unsigned int highest) {
  const auto check = [lowest, highest](std::string& text) -> std::string {
    const auto value = parse_whole_number(text);
    if (!value || *value < lowest || *value > highest) {
      return text + " is not a whole number from " + std::to_string(lowest) + " to " +
             std::to_string(highest);
    }
    text = std::to_string(*value);
    return "";
  };
  return {check, ""};
}

CLI::Validator number(const std::string& lowest, const std::string& highest) {
  const auto check = [lowest, highest](const std::string& text) -> std::string {
    const auto value = parse_number(text);
    const bool fits = value && *value >= *parse_number(lowest) && *value <= *parse_number(highest);
    return fits ? "" : text + " is not a number from " + lowest + " to " + highest;
  };
  return {check, ""};
}

CLI::Validator ends_in(const std::vector<std::string>& endings) {
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

void add_scenes(CLI::App* to, Arguments* arguments) {
  CLI::App* command = add_command(to, "scenes",
                                  "list the simulated phone's scenes\n"
                                  "A line each: the name that --simulate takes, and what is seen.",
                                  " spectralsensorctl scenes");
  add_json(command, arguments);
  command->callback(
      [arguments] { arguments->action = [arguments] { list_scenes(arguments->format()); }; });
}

}  // namespace spectralsensorctl
