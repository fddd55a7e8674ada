#pragma once

// Lays out --help as a manual page.

#include <CLI/CLI.hpp>
#include <string>

namespace spectralsensorctl {

// Shows a command in sections. The first line of the command's description stands in NAME and the
// rest in DESCRIPTION. The command's footer stands in EXAMPLES.
class ManualPage : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

// The name of a command with those above it, such as "spectralsensorctl als".
std::string full_name(const CLI::App* app);

}  // namespace spectralsensorctl
