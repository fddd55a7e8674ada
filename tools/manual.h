#pragma once

// How --help reads: as a manual page.

#include <CLI/CLI.hpp>
#include <string>

namespace spectralsensorctl {

// Shows a command by sections. The first line of an application's description is what it is in a
// word, the rest its DESCRIPTION; its footer are its EXAMPLES.
class ManualPage : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

// "spectralsensorctl als": the command with those above it.
std::string full_name(const CLI::App* app);

}  // namespace spectralsensorctl
