#include "tools/unit_info.h"

#include <sys/stat.h>

#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "tools/files.h"

namespace spectralsensorctl {

namespace {

constexpr unsigned int kFirstRevision = 0xBA;  // cut 2.0

constexpr char kFactoryFilePath[] = "/mnt/vendor/persist/camera/ials_fac_test";
constexpr int kLeastReading = 100;
constexpr int kLargestReading = 50000;
constexpr std::size_t kShownBytes = 20;  // of a line that holds no number

// Which line of the factory file holds the reading of which channel. Line 11 holds none, and the
// last three channels are in this order.
struct ReadingLine {
  std::size_t line;
  int channel;
};
constexpr ReadingLine kReadingLines[] = {{7, 0}, {8, 1}, {9, 2}, {10, 5}, {12, 4}, {13, 3}};

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The beginning of a text in quotes, with a question mark for each byte that cannot be printed.
std::string quoted(const std::string& text) {
  std::string shown;
  for (const char c : text.substr(0, kShownBytes)) {
    shown += std::isprint(static_cast<unsigned char>(c)) != 0 ? c : '?';
  }
  return "\"" + shown + (text.size() > kShownBytes ? "\"..." : "\"");
}

// Returns what is wrong with the line of a channel, or an empty text if nothing is. `reading` is
// what the library has read there.
std::string explain_line(const ReadingLine& where, const std::string& line, int reading) {
  const std::string place = "line " + std::to_string(where.line) + " of " + kFactoryFilePath;
  const std::string channel = "the reading of channel " + std::to_string(where.channel);
  char* end = nullptr;
  const long number = std::strtol(line.c_str(), &end, 0);
  if (end == line.c_str() || number < INT_MIN || number > INT_MAX) {
    return place + " holds " + quoted(line) + " in place of " + channel;
  }
  if (reading >= kLeastReading && reading <= kLargestReading) return "";
  // The library keeps 16 bits of a number.
  const std::string kept = number == reading ? "" : ", which is read as " + std::to_string(reading);
  return channel + ", " + std::to_string(number) + kept + ", is not within " +
         std::to_string(kLeastReading) + ".." + std::to_string(kLargestReading) + " (" + place +
         ")";
}

std::string explain_factory_file(const unsigned short (&readings)[6]) {
  // Opening a pipe would block.
  struct stat status = {};
  if (stat(kFactoryFilePath, &status) == 0 && !S_ISREG(status.st_mode)) {
    return std::string(kFactoryFilePath) + " is not a regular file";
  }
  std::vector<std::string> lines;
  try {
    lines = lines_of(read_file(kFactoryFilePath));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  for (const ReadingLine& where : kReadingLines) {
    if (lines.size() < where.line) {
      return std::string(kFactoryFilePath) + " ends before line " + std::to_string(where.line) +
             ", the reading of channel " + std::to_string(where.channel);
    }
    std::string why = explain_line(where, lines[where.line - 1], readings[where.channel]);
    if (!why.empty()) return why;
  }
  return std::string("the library does not accept ") + kFactoryFilePath;
}

std::string hex(unsigned int value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*x", digits, value);
  return text;
}

std::string cut_of(const UnitInfo& unit) {
  return "2." + std::to_string(static_cast<int>(unit.revision - kFirstRevision));
}

std::string driver_version(const UnitInfo& unit) {
  return std::to_string(unit.driver_major) + "." + std::to_string(unit.driver_minor);
}

void print_info_json(const UnitInfo& unit) {
  const bool calibrated = unit.calibration_problem.empty();
  Json fields = {{"chip_id", unit.chip_id},
                 {"revision", unit.revision},
                 {"cut", cut_of(unit)},
                 {"uid", unit.uid},
                 {"driver", driver_version(unit)},
                 {"otp_oscillator_trim", unit.oscillator_trim},
                 {"otp_oscillator_2_trim", unit.oscillator_2_trim},
                 {"otp_color_map", unit.color_map},
                 {"otp_slope", unit.slope},
                 {"colors", unit.color},
                 {"phone_model", unit.phone_model},
                 {"calibrated", calibrated},
                 {"calibration_problem", nullptr},
                 {"calibration_factor", nullptr}};
  if (calibrated) {
    std::vector<double> factors;
    for (const double factor : unit.calibration_factor) {
      factors.push_back(tidy(static_cast<float>(factor)));
    }
    fields["calibration_factor"] = factors;
  } else {
    fields["calibration_problem"] = unit.calibration_problem;
  }
  print_json(fields);
}

}  // namespace

std::string explain_calibration(unsigned int phone_model, bool are_plausible,
                                const unsigned short (&readings)[6]) {
  if (phone_model == 0) return "ro.product.device is none of the four known phone models";
  // The file may have changed since the sensor was brought up.
  if (are_plausible) return std::string(kFactoryFilePath) + " was not readable at first";
  return explain_factory_file(readings);
}

void print_info(Format format, const UnitInfo& unit) {
  if (format == Format::kJson) return print_info_json(unit);
  const bool calibrated = unit.calibration_problem.empty();
  std::printf("chip           %s, revision %s (cut %s)\n", hex(unit.chip_id, 2).c_str(),
              hex(unit.revision, 2).c_str(), cut_of(unit).c_str());
  std::printf("unit           %s\n", unit.uid.c_str());
  std::printf("driver         %s\n", driver_version(unit).c_str());
  std::printf("OTP            oscillator trims %s and %s, color map %u\n",
              hex(unit.oscillator_trim, 3).c_str(), hex(unit.oscillator_2_trim, 1).c_str(),
              unit.color_map);
  std::printf("phone model    %u%s (by ro.product.device)\n", unit.phone_model,
              unit.phone_model == 0 ? ", unknown" : "");
  std::printf("calibration    %s\n",
              calibrated ? "from the factory file" : ("none: " + unit.calibration_problem).c_str());
  std::printf("channel        color     slope   calibration factor\n");
  for (int n = 0; n < 6; ++n) {
    std::printf("%7d        %-8s  %.3f   ", n, unit.color[n], unit.slope[n]);
    calibrated ? std::printf("%.4f\n", unit.calibration_factor[n]) : std::printf("-\n");
  }
}

}  // namespace spectralsensorctl
