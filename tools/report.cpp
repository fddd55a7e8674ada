#include "tools/report.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "tools/live.h"
#include "tools/phone_facts.h"

namespace spectralsensorctl {

namespace {

constexpr int kColumnsBesideTheBar = 39;
constexpr double kRounding = 1.0;  // counts that may be lost in scaling a value and scaling it back
constexpr unsigned int kFirstRevision = 0xBA;  // cut 2.0

std::vector<int> channels_of(std::uint32_t mask) {
  std::vector<int> channels;
  for (int n = 0; n < 6; ++n) {
    if ((mask >> n & 1) != 0) channels.push_back(n);
  }
  return channels;
}

// Converts a float to the double that prints with the float's own digits.
double tidy(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
  return std::strtod(text, nullptr);
}

template <typename... Arguments>
std::string text_of(const char* pattern, Arguments... arguments) {
  char text[256];
  std::snprintf(text, sizeof text, pattern, arguments...);
  return text;
}

void print_line(const nlohmann::ordered_json& object) {
  std::printf("%s\n", object.dump().c_str());
}

nlohmann::ordered_json frequency(std::uint32_t hz, std::uint32_t strength) {
  if (!is_frequency(hz)) return nullptr;
  return {{"frequency_hz", hz}, {"strength_counts", strength}};
}

std::string frequency_text(std::uint32_t hz, std::uint32_t strength) {
  if (!is_frequency(hz)) return "none";
  return std::to_string(hz) + " Hz (" + std::to_string(strength) + ")";
}

void print_als_json(int number, const AlsReading& reading) {
  const ALSResult& als = reading.result;
  nlohmann::ordered_json line = {{"number", number},
                                 {"valid", als.valid != 0},
                                 {"exposure_ms", tidy(als.exposureMs)},
                                 {"smallest_gain", tidy(als.gain)},
                                 {"timestamp_ns", als.timestamp}};
  line["channels"] = nlohmann::json::array();
  for (const int n : channels_of(als.channelMask)) {
    line["channels"].push_back({{"channel", n},
                                {"color", reading.color[n]},
                                {"counts", tidy(als.value[n])},
                                {"saturated", reading.saturated[n]},
                                {"gain", reading.gain[n]}});
  }
  print_line(line);
}

void print_als_csv(int number, const AlsReading& reading) {
  const ALSResult& als = reading.result;
  std::printf("%d,%d,%llu,%g,%g", number, als.valid, static_cast<unsigned long long>(als.timestamp),
              static_cast<double>(als.exposureMs), static_cast<double>(als.gain));
  for (int n = 0; n < 6; ++n) {
    const bool delivered = (als.channelMask >> n & 1) != 0;
    if (delivered)
      std::printf(",%g,%g,%d", reading.gain[n], tidy(als.value[n]), reading.saturated[n]);
    if (!delivered) std::printf(",,,");
  }
  std::printf("\n");
}

void print_info_json(const UnitInfo& unit) {
  nlohmann::ordered_json line = {{"chip_id", unit.chip_id},
                                 {"revision", unit.revision},
                                 {"cut", text_of("2.%u", unit.revision - kFirstRevision)},
                                 {"uid", unit.uid},
                                 {"driver", text_of("%u.%u", unit.driver_major, unit.driver_minor)},
                                 {"otp_oscillator_trim", unit.oscillator_trim},
                                 {"otp_oscillator_2_trim", unit.oscillator_2_trim},
                                 {"otp_color_map", unit.color_map},
                                 {"otp_slope", unit.slope},
                                 {"colors", unit.color},
                                 {"phone_model", unit.phone_model},
                                 {"calibrated", unit.calibrated}};
  line["calibration_factor"] = nullptr;
  if (unit.calibrated) line["calibration_factor"] = unit.calibration_factor;
  print_line(line);
}

}  // namespace

bool is_saturated(double counts, double exposure_ms) {
  return counts > std::min(exposure_ms / kExposureStepMs * kCountsPerStep, kFullScale) - kRounding;
}

const char* color_name(VD6281_Color_Id_t color) {
  static constexpr const char* kNames[] = {"clear", "red", "green", "blue", "infrared"};
  const std::size_t index = color - VD6281_COLOR_CLEAR;
  return index < std::size(kNames) ? kNames[index] : "unknown";
}

void print_info(Format format, const UnitInfo& unit) {
  if (format == Format::kJson) {
    print_info_json(unit);
    return;
  }
  std::printf("chip           0x%02x, revision 0x%02x (cut 2.%u)\n", unit.chip_id, unit.revision,
              unit.revision - kFirstRevision);
  std::printf("unit           %s\n", unit.uid.c_str());
  std::printf("driver         %u.%u\n", unit.driver_major, unit.driver_minor);
  std::printf("OTP            oscillator trims 0x%03x and 0x%x, color map %u\n",
              unit.oscillator_trim, unit.oscillator_2_trim, unit.color_map);
  std::printf("phone model    %u%s (by ro.product.device)\n", unit.phone_model,
              unit.phone_model == 0 ? ", unknown" : "");
  std::printf("calibration    %s\n", unit.calibrated ? "from the factory file" : "none");
  std::printf("channel        color     slope   calibration factor\n");
  for (int n = 0; n < 6; ++n) {
    std::printf("%7d        %-8s  %.3f   ", n, unit.color[n], unit.slope[n]);
    std::printf("%s\n",
                unit.calibrated ? text_of("%.4f", unit.calibration_factor[n]).c_str() : "-");
  }
}

void print_als_head(Format format) {
  if (format == Format::kCsv) {
    std::printf("number,valid,timestamp_ns,exposure_ms,smallest_gain");
    for (int n = 0; n < 6; ++n) std::printf(",gain_%d,counts_%d,saturated_%d", n, n, n);
    std::printf("\n");
  } else if (format == Format::kTable) {
    std::printf("  #  exposure ms   counts (gain) of each channel, * saturated\n");
  }
}

void print_als(Format format, int number, const AlsReading& reading) {
  if (format == Format::kJson) return print_als_json(number, reading);
  if (format == Format::kCsv) return print_als_csv(number, reading);
  const ALSResult& als = reading.result;
  std::printf("%3d  %11.1f  ", number, static_cast<double>(als.exposureMs));
  if (als.valid == 0) std::printf(" no measurement");
  for (const int n : channels_of(als.channelMask)) {
    std::printf("  %d: %9.2f%s(%.2f)", n, static_cast<double>(als.value[n]),
                reading.saturated[n] ? "*" : " ", reading.gain[n]);
  }
  std::printf("\n");
}

std::string als_panel(const AlsReading& reading, int columns) {
  const ALSResult& als = reading.result;
  if (als.valid == 0) return "no measurement\n";
  std::string text = text_of("exposure %.1f ms, counts at gain %.2f\n",
                             static_cast<double>(als.exposureMs), static_cast<double>(als.gain));
  text += "channel  color       gain     counts  * saturated\n";
  for (const int n : channels_of(als.channelMask)) {
    const auto value = static_cast<double>(als.value[n]);
    text += text_of("%7d  %-8s  %6.2f  %9.2f", n, reading.color[n], reading.gain[n], value);
    text += reading.saturated[n] ? " *" : columns > 0 ? "  " : "";
    if (columns > 0) text += " " + bar(value, kFullScale, columns - kColumnsBesideTheBar);
    text += "\n";
  }
  return text;
}

void print_flicker_head(Format format) {
  if (format == Format::kCsv) {
    std::printf(
        "number,timestamp_ns,channel_mask,gain,saturated,strength_100_hz_counts,"
        "strength_120_hz_counts,dominant_hz,dominant_strength_counts,secondary_hz,"
        "secondary_strength_counts\n");
  } else if (format == Format::kTable) {
    std::printf("  #  channel mask   gain    100 Hz    120 Hz   dominant, secondary (strength)\n");
  }
}

void print_flicker(Format format, int number, const FlickerReading& reading) {
  const FlickerResult& result = reading.result;
  if (format == Format::kJson) {
    print_line({{"number", number},
                {"timestamp_ns", result.timestamp_ns},
                {"channel_mask", result.channel},
                {"gain", reading.gain},
                {"saturated", reading.saturated},
                {"strength_100_hz_counts", result.strength_a},
                {"strength_120_hz_counts", result.strength_b},
                {"dominant", frequency(result.dominant_freq, result.dominant_strength)},
                {"secondary", frequency(result.secondary_freq, result.secondary_strength)}});
    return;
  }
  if (format == Format::kCsv) {
    const auto hz = [](std::uint32_t value) { return is_frequency(value) ? value : 0; };
    std::printf("%d,%llu,%u,%g,%d,%u,%u,%u,%u,%u,%u\n", number,
                static_cast<unsigned long long>(result.timestamp_ns), result.channel, reading.gain,
                reading.saturated, result.strength_a, result.strength_b, hz(result.dominant_freq),
                result.dominant_strength, hz(result.secondary_freq), result.secondary_strength);
    return;
  }
  std::printf("%3d          0x%02x  %5.2f  %8u  %8u   %s, %s%s\n", number, result.channel,
              reading.gain, result.strength_a, result.strength_b,
              frequency_text(result.dominant_freq, result.dominant_strength).c_str(),
              frequency_text(result.secondary_freq, result.secondary_strength).c_str(),
              reading.saturated ? "  saturated: too bright to tell" : "");
}

void print_detector_head(Format format) {
  if (format == Format::kCsv) std::printf("number,frequency_hz,confidence\n");
  if (format == Format::kTable) std::printf("  #  frequency  confidence\n");
}

void print_detector(Format format, int number, const VD6281_FlickerInfo_t& info) {
  if (format == Format::kJson) {
    nlohmann::ordered_json line = {{"number", number}, {"frequency_hz", nullptr}};
    if (info.frequency != 0) line["frequency_hz"] = info.frequency;
    line["confidence"] = info.confidence;
    print_line(line);
  } else if (format == Format::kCsv) {
    std::printf("%d,%u,%u\n", number, info.frequency, info.confidence);
  } else {
    const std::string hz = info.frequency != 0 ? text_of("%6u Hz", info.frequency) : "none";
    std::printf("%3d  %9s  %10u\n", number, hz.c_str(), info.confidence);
  }
}

}  // namespace spectralsensorctl
