#include "tools/manual.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace spectralsensorctl {

namespace {

constexpr std::size_t kIndent = 4;
constexpr std::size_t kWidth = 80;

constexpr char kExitStatus[] =
    "0 on success or when a watch was ended, 1 when the sensor failed, it stays powered or the "
    "output could not be written, 2 when the arguments or the scene were wrong, 130 when Ctrl-C "
    "came before the end, 141 when the output's reader has gone. Errors go to stderr and name the "
    "node.";

// Wraps the text to the page's width. A line that begins with a blank loses the blank and is not
// wrapped.
std::string wrapped(const std::string& text, std::size_t indent) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    const std::string margin(indent, ' ');
    if (line.empty() || line.front() == ' ') {
      result += (line.empty() ? "" : margin + line.substr(1)) + "\n";
      continue;
    }
    std::istringstream words(line);
    std::string row;
    for (std::string word; words >> word;) {
      if (!row.empty() && indent + row.size() + 1 + word.size() > kWidth) {
        result += margin + row + "\n";
        row.clear();
      }
      row += (row.empty() ? "" : " ") + word;
    }
    result += margin + row + "\n";
  }
  return result;
}

std::string section(const std::string& title, const std::string& body) {
  return body.empty() ? "" : title + "\n" + body + "\n";
}

// The way to a command, with the commands above it, such as "spectralsensorctl [OPTIONS] als".
std::string way_to(const CLI::App* app) {
  const CLI::App* parent = app->get_parent();
  if (parent == nullptr) return app->get_name();
  const bool is_root = parent->get_parent() == nullptr;
  return way_to(parent) + (is_root ? " [OPTIONS] " : " ") + app->get_name();
}

std::string synopsis(const CLI::App* app) {
  std::string line = way_to(app) + (app->get_parent() == nullptr ? " [OPTIONS]" : "");
  const auto takes = [](const CLI::Option* option) { return option->get_name() != "--help"; };
  if (app->get_parent() != nullptr && !app->get_options(takes).empty()) line += " [OPTIONS]";
  for (const CLI::Option* option : app->get_options()) {
    if (!option->get_positional()) continue;
    const std::string name = option->get_name();
    line += option->get_required() ? " " + name : " [" + name + "]";
  }
  if (!app->get_subcommands({}).empty()) line += " COMMAND ...";
  return wrapped(line, kIndent);
}

std::string value_of(const CLI::Option* option) {
  const std::string type = option->get_type_name();
  if (type.empty()) return "";
  const std::string name = type.substr(0, type.find(':'));
  return option->get_expected_min() == 0 ? "[=" + name + "]" : " " + name;
}

std::string describe(const CLI::Option* option) {
  std::string name = option->get_positional() ? option->get_name() : option->get_name(false, true);
  const std::string negated = "{false}";
  if (const std::size_t at = name.find(negated); at != std::string::npos) {
    name.erase(at, negated.size());
  }
  std::string text = option->get_description();
  const std::string preset = option->get_default_str();
  if (!preset.empty()) text += " Default: " + preset + ".";
  return std::string(kIndent, ' ') + name + (option->get_positional() ? "" : value_of(option)) +
         "\n" + wrapped(text, 2 * kIndent) + "\n";
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string rest(const std::string& text) {
  const std::size_t end = text.find('\n');
  return end == std::string::npos ? "" : text.substr(end + 1);
}

}  // namespace

std::string full_name(const CLI::App* app) {
  const CLI::App* parent = app->get_parent();
  return parent == nullptr ? app->get_name() : full_name(parent) + " " + app->get_name();
}

std::string ManualPage::make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const {
  const std::string about = app->get_description();
  const std::string name = full_name(app);
  std::string options;
  for (const CLI::Option* option : app->get_options()) options += describe(option);
  if (!options.empty()) options.pop_back();
  std::string commands;
  for (const CLI::App* command : app->get_subcommands({})) {
    std::string row = std::string(kIndent, ' ') + command->get_name();
    row.resize(std::max<std::size_t>(row.size() + 2, kIndent + 12), ' ');
    commands += row + first_line(command->get_description()) + "\n";
  }
  if (!commands.empty()) commands += "\n    " + name + " COMMAND --help shows more about each.\n";
  return section("NAME", wrapped(name + " - " + first_line(about), kIndent)) +
         section("SYNOPSIS", synopsis(app)) +
         section("DESCRIPTION", wrapped(rest(about), kIndent)) + section("COMMANDS", commands) +
         section("OPTIONS", options) + section("EXAMPLES", wrapped(app->get_footer(), kIndent)) +
         section("EXIT STATUS", wrapped(kExitStatus, kIndent)) + "SEE ALSO\n" +
         "    spectralsensorctl(1)\n";
}

}  // namespace spectralsensorctl
