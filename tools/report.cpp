#include "tools/report.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace spectralsensorctl {

namespace {

constexpr double kNsPerMs = 1e6;

std::vector<int> channels_of(std::uint32_t mask) {
  std::vector<int> channels;
  for (int n = 0; n < 6; ++n) {
    if ((mask >> n & 1) != 0) channels.push_back(n);
  }
  return channels;
}

// A float's own digits, without those that a double adds.
double tidy(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
  return std::strtod(text, nullptr);
}

// Where the analysis finds no tone, its -1 or a 0 comes through.
bool is_frequency(std::uint32_t hz) { return hz != 0 && hz != 0xFFFFFFFF; }

nlohmann::json frequency(std::uint32_t hz, std::uint32_t strength) {
  if (!is_frequency(hz)) return nullptr;
  return {{"frequency_hz", hz}, {"strength", strength}};
}

std::string frequency_text(std::uint32_t hz, std::uint32_t strength) {
  if (!is_frequency(hz)) return "none";
  return std::to_string(hz) + " Hz (" + std::to_string(strength) + ")";
}

}  // namespace

void print_als_head(Format format) {
  if (format == Format::kCsv) {
    std::printf("number,valid,exposure_ms,smallest_gain");
    for (int n = 0; n < 6; ++n) std::printf(",gain_%d,value_%d", n, n);
    std::printf("\n");
  } else if (format == Format::kTable) {
    std::printf("  #  exposure ms   value (gain) of each channel\n");
  }
}

void print_als(Format format, int number, const AlsReading& reading) {
  const ALSResult& als = reading.result;
  const std::vector<int> channels = channels_of(als.channelMask);
  if (format == Format::kJson) {
    nlohmann::json line = {{"number", number},
                           {"valid", als.valid != 0},
                           {"exposure_ms", tidy(als.exposureMs)},
                           {"smallest_gain", tidy(als.gain)},
                           {"timestamp_ns", als.timestamp}};
    line["channels"] = nlohmann::json::array();
    for (const int n : channels) {
      line["channels"].push_back(
          {{"channel", n}, {"value", tidy(als.value[n])}, {"gain", reading.gain[n]}});
    }
    std::printf("%s\n", line.dump().c_str());
    return;
  }
  if (format == Format::kCsv) {
    std::printf("%d,%d,%g,%g", number, als.valid, static_cast<double>(als.exposureMs),
                static_cast<double>(als.gain));
    std::size_t next = 0;
    for (int n = 0; n < 6; ++n) {
      const bool delivered = next < channels.size() && channels[next] == n;
      if (delivered) ++next;
      if (delivered) std::printf(",%g,%g", reading.gain[n], static_cast<double>(als.value[n]));
      if (!delivered) std::printf(",,");
    }
    std::printf("\n");
    return;
  }
  std::printf("%3d  %11.1f  ", number, static_cast<double>(als.exposureMs));
  if (als.valid == 0) std::printf(" no measurement");
  for (const int n : channels)
    std::printf("  %d: %9.2f (%.2f)", n, static_cast<double>(als.value[n]), reading.gain[n]);
  std::printf("\n");
}

void print_flicker_head(Format format) {
  if (format == Format::kCsv) {
    std::printf(
        "number,channel_mask,gain,strength_100_hz,strength_120_hz,dominant_hz,dominant_strength,"
        "secondary_hz,secondary_strength\n");
  } else if (format == Format::kTable) {
    std::printf("  #  channel mask   gain    100 Hz    120 Hz   dominant, secondary (strength)\n");
  }
}

void print_flicker(Format format, int number, const FlickerResult& result, double gain) {
  if (format == Format::kJson) {
    const nlohmann::json line = {
        {"number", number},
        {"channel_mask", result.channel},
        {"gain", gain},
        {"strength_100_hz", result.strength_a},
        {"strength_120_hz", result.strength_b},
        {"dominant", frequency(result.dominant_freq, result.dominant_strength)},
        {"secondary", frequency(result.secondary_freq, result.secondary_strength)},
        {"timestamp_ms", static_cast<double>(result.timestamp_ns) / kNsPerMs}};
    std::printf("%s\n", line.dump().c_str());
    return;
  }
  if (format == Format::kCsv) {
    const auto hz = [](std::uint32_t value) { return is_frequency(value) ? value : 0; };
    std::printf("%d,%u,%g,%u,%u,%u,%u,%u,%u\n", number, result.channel, gain, result.strength_a,
                result.strength_b, hz(result.dominant_freq), result.dominant_strength,
                hz(result.secondary_freq), result.secondary_strength);
    return;
  }
  std::printf("%3d          0x%02x  %5.2f  %8u  %8u   %s, %s\n", number, result.channel, gain,
              result.strength_a, result.strength_b,
              frequency_text(result.dominant_freq, result.dominant_strength).c_str(),
              frequency_text(result.secondary_freq, result.secondary_strength).c_str());
}

}  // namespace spectralsensorctl
