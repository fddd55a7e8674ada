#include "tools/report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <vector>

#include "tools/live.h"
#include "tools/phone_facts.h"

namespace spectralsensorctl {

namespace {

constexpr double kRounding = 1.0;  // counts that may be lost in scaling a value and scaling it back

std::vector<int> channels_of(std::uint32_t mask) {
  std::vector<int> channels;
  for (int n = 0; n < 6; ++n) {
    if ((mask >> n & 1) != 0) channels.push_back(n);
  }
  return channels;
}

template <typename... Arguments>
std::string text_of(const char* pattern, Arguments... arguments) {
  char text[256];
  std::snprintf(text, sizeof text, pattern, arguments...);
  return text;
}

std::string frequency_text(std::uint32_t hz, std::uint32_t strength) {
  if (!is_frequency(hz)) return "none";
  return std::to_string(hz) + " Hz (" + std::to_string(strength) + ")";
}

const char* saturation_text(bool saturated) {
  return saturated ? "  saturated: too bright to tell" : "";
}

// A value that is null where there is none.
template <typename Value>
Json value_or_null(bool exists, Value value) {
  return exists ? Json(value) : Json(nullptr);
}

// The fields of a reading that do not belong to a channel.
Json als_fields(int number, const AlsReading& reading) {
  const ALSResult& als = reading.result;
  const bool valid = als.valid != 0;
  Json fields = measurement_fields(number, reading.time);
  fields["valid"] = valid;
  fields["settled"] = value_or_null(reading.settled.has_value(), reading.settled.value_or(false));
  fields["exposure_ms"] = value_or_null(valid, tidy(als.exposureMs));
  fields["smallest_gain"] = value_or_null(valid, static_cast<double>(als.gain));
  return fields;
}

void print_als_json(int number, const AlsReading& reading) {
  const ALSResult& als = reading.result;
  Json fields = als_fields(number, reading);
  fields["channels"] = Json::array();
  for (const int n : channels_of(als.channelMask)) {
    fields["channels"].push_back({{"channel", n},
                                  {"color", reading.color[n]},
                                  {"gain", reading.gain[n]},
                                  {"counts", tidy(als.value[n])},
                                  {"saturated", reading.saturated[n]}});
  }
  print_json(fields);
}

void print_als_csv(int number, const AlsReading& reading) {
  const ALSResult& als = reading.result;
  std::vector<Json> values = values_of(als_fields(number, reading));
  for (int n = 0; n < 6; ++n) {
    const bool delivered = (als.channelMask >> n & 1) != 0;
    values.push_back(value_or_null(delivered, reading.gain[n]));
    values.push_back(value_or_null(delivered, tidy(als.value[n])));
    values.push_back(value_or_null(delivered, reading.saturated[n]));
  }
  print_csv(values);
}

Json flicker_fields(int number, const FlickerReading& reading) {
  const FlickerResult& result = reading.result;
  const bool has_dominant = is_frequency(result.dominant_freq);
  const bool has_secondary = is_frequency(result.secondary_freq);
  Json fields = measurement_fields(number, reading.time);
  fields["channel_mask"] = result.channel;
  fields["gain"] = reading.gain;
  fields["saturated"] = reading.saturated;
  fields["strength_100_hz_counts"] = result.strength_a;
  fields["strength_120_hz_counts"] = result.strength_b;
  fields["dominant_hz"] = value_or_null(has_dominant, result.dominant_freq);
  fields["dominant_strength_counts"] = value_or_null(has_dominant, result.dominant_strength);
  fields["secondary_hz"] = value_or_null(has_secondary, result.secondary_freq);
  fields["secondary_strength_counts"] = value_or_null(has_secondary, result.secondary_strength);
  return fields;
}

Json detector_fields(int number, const DetectorReading& reading) {
  const std::uint32_t hz = reading.info.frequency;
  Json fields = measurement_fields(number, reading.time);
  fields["frequency_hz"] = value_or_null(hz != 0, hz);
  fields["confidence"] = reading.info.confidence;
  fields["saturated"] = reading.saturated;
  return fields;
}

// A row for each channel, below a heading. Columns for which a terminal of `columns` columns is too
// narrow are left out whole; 0 stands for any width, without a bar.
std::string channel_rows(const AlsReading& reading, int columns) {
  constexpr int kWithColor = 30;
  constexpr int kWithGain = 38;
  constexpr int kWithMeaning = 49;
  constexpr int kShortestBar = 8;
  const bool has_color = columns == 0 || columns >= kWithColor;
  const bool has_gain = columns == 0 || columns >= kWithGain;
  const bool has_meaning = columns == 0 || columns >= kWithMeaning;
  const int bar_width = columns - kWithGain - 1;
  const bool has_bar = bar_width >= kShortestBar;
  std::string text = "channel";
  if (has_color) text += "  color   ";
  if (has_gain) text += "    gain";
  text += has_meaning ? "     counts  * saturated\n" : "     counts\n";
  bool is_any_saturated = false;
  for (const int n : channels_of(reading.result.channelMask)) {
    const auto value = static_cast<double>(reading.result.value[n]);
    is_any_saturated = is_any_saturated || reading.saturated[n];
    text += text_of("%7d", n);
    if (has_color) text += text_of("  %-8s", reading.color[n]);
    if (has_gain) text += text_of("  %6.2f", reading.gain[n]);
    text += text_of("  %9.2f", value) + (reading.saturated[n] ? " *" : has_bar ? "  " : "");
    if (has_bar) text += " " + bar(value, kFullScale, bar_width);
    text += "\n";
  }
  return text + (is_any_saturated && !has_meaning ? "* saturated\n" : "");
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

void print_als_head(Format format) {
  if (format == Format::kCsv) {
    std::vector<Json> names = names_of(als_fields(0, {}));
    for (const char n : {'0', '1', '2', '3', '4', '5'}) {
      for (const char* name : {"gain_", "counts_", "saturated_"})
        names.emplace_back(std::string(name) + n);
    }
    print_csv(names);
  } else if (format == Format::kTable) {
    std::printf(
        "  #  time (UTC)                exposure ms    counts (gain) of each channel, * saturated, "
        "~ not settled\n");
  }
}

void print_als(Format format, int number, const AlsReading& reading) {
  if (format == Format::kJson) return print_als_json(number, reading);
  if (format == Format::kCsv) return print_als_csv(number, reading);
  const ALSResult& als = reading.result;
  std::printf("%3d  %s  %11.1f %s", number, utc_text(reading.time).c_str(),
              static_cast<double>(als.exposureMs), reading.settled.value_or(true) ? " " : "~");
  if (als.valid == 0) std::printf("  no measurement");
  for (const int n : channels_of(als.channelMask)) {
    std::printf("  %d: %9.2f%s(%.2f)", n, static_cast<double>(als.value[n]),
                reading.saturated[n] ? "*" : " ", reading.gain[n]);
  }
  std::printf("\n");
}

std::string als_panel(const AlsReading& reading, int columns) {
  const ALSResult& als = reading.result;
  std::string text = "time " + utc_text(reading.time) + "\n";
  if (als.valid == 0) return text + "no measurement\n";
  text +=
      text_of("exposure %.1f ms, counts at gain %.2f%s\n", static_cast<double>(als.exposureMs),
              static_cast<double>(als.gain), reading.settled.value_or(true) ? "" : ", not settled");
  return (columns > 0 ? wrapped(text, columns) : text) + channel_rows(reading, columns);
}

void print_flicker_head(Format format) {
  if (format == Format::kCsv) {
    print_csv(names_of(flicker_fields(0, {})));
  } else if (format == Format::kTable) {
    std::printf(
        "  #  time (UTC)                channel mask   gain    100 Hz    120 Hz   dominant, "
        "secondary (strength)\n");
  }
}

void print_flicker(Format format, int number, const FlickerReading& reading) {
  if (format == Format::kJson) return print_json(flicker_fields(number, reading));
  if (format == Format::kCsv) return print_csv(values_of(flicker_fields(number, reading)));
  const FlickerResult& result = reading.result;
  std::printf("%3d  %s          0x%02x  %5.2f  %8u  %8u   %s, %s%s\n", number,
              utc_text(reading.time).c_str(), result.channel, reading.gain, result.strength_a,
              result.strength_b,
              frequency_text(result.dominant_freq, result.dominant_strength).c_str(),
              frequency_text(result.secondary_freq, result.secondary_strength).c_str(),
              saturation_text(reading.saturated));
}

void print_detector_head(Format format) {
  if (format == Format::kCsv) print_csv(names_of(detector_fields(0, {})));
  if (format == Format::kTable) {
    std::printf("  #  time (UTC)                frequency  confidence\n");
  }
}

void print_detector(Format format, int number, const DetectorReading& reading) {
  if (format == Format::kJson) return print_json(detector_fields(number, reading));
  if (format == Format::kCsv) return print_csv(values_of(detector_fields(number, reading)));
  const VD6281_FlickerInfo_t& info = reading.info;
  const std::string hz = info.frequency != 0 ? text_of("%6u Hz", info.frequency) : "none";
  std::printf("%3d  %s  %9s  %10u%s\n", number, utc_text(reading.time).c_str(), hz.c_str(),
              info.confidence, saturation_text(reading.saturated));
}

}  // namespace spectralsensorctl
