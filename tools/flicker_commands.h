#pragma once

// The `flicker` and `tunnel dump` commands.

#include <fcntl.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/files.h"
#include "tools/phone_facts.h"
#include "tools/plot.h"
#include "tools/report.h"
#include "tools/session.h"
#include "tools/simulate.h"
#include "tools/tunnel_dump.h"
#include "tools/waveform.h"

namespace spectralsensorctl {

constexpr int kConfirmations = 2;              // measurements that a confirmed verdict needs
constexpr unsigned short kSaturatedCount = 3;  // of the saturation counter; more light is cut off
constexpr char kStandardOutput[] = "-";        // as a file's name
constexpr char kRawStreamPath[] = "/data/unparsed_flicker_data";

struct FlickerOptions {
  int count = 1;
  bool watch = false;
  bool detector = false;
  std::string wav_path;
  std::string plot_path;
};

struct DumpOptions {
  unsigned int length_ms = 100;
  std::string raw_path;
};

// Calls `show(number)` as often as the options ask for. It stops if `show` returns false, which
// means that it was interrupted.
template <typename Show>
void repeat(const FlickerOptions& options, Show show) {
  for (int i = 1; (options.watch || i <= options.count) && !interrupted(); ++i) {
    if (!show(i)) break;
    flush_output();
  }
}

// Polls the detector of the running measurement until it has an answer, for at most five seconds.
// Returns the last answer, or nothing if interrupted.
inline std::optional<DetectorReading> ask_detector(SpectralSensorDevice* driver) {
  constexpr auto kPause = std::chrono::milliseconds(50);
  constexpr int kPolls = 100;
  DetectorReading reading = {};
  for (int i = 0; i < kPolls && reading.info.confidence == 0 && !interrupted(); ++i) {
    std::this_thread::sleep_for(kPause);
    require(driver->VD6281_GetFlickerFrequency(&reading.info), "reading the detector");
  }
  if (interrupted()) return std::nullopt;
  reading.time = now();
  unsigned short saturated_samples = 0;
  require(FlickerSensor().GetSaturationValue(&saturated_samples), "reading the saturation counter");
  reading.saturated = saturated_samples >= kSaturatedCount;
  return reading;
}

// A running flicker measurement. The destructor stops it, also if an exception is thrown.
template <typename Service>
class RunningFlicker {
 public:
  explicit RunningFlicker(Service* service) : m_service(service) {
    require(service->StartExpFLK_AutoGain(), "starting the flicker measurement");
  }
  ~RunningFlicker() { m_service->StopExpFLK(); }
  RunningFlicker(const RunningFlicker&) = delete;
  RunningFlicker& operator=(const RunningFlicker&) = delete;

 private:
  Service* m_service;
};

template <typename Service>
void watch_detector(Session<Service>* session, const FlickerOptions& options, Format format) {
  std::fprintf(stderr, "Counting light periods, up to five seconds\n");
  const RunningFlicker<Service> running(session->service());
  print_detector_head(format);
  repeat(options, [&](int number) {
    const auto reading = ask_detector(session->driver());
    if (reading) print_detector(format, number, *reading);
    return reading.has_value();
  });
}

// Throws if the measurement failed. Its status does not report a failure of the hub or of the chip,
// so the results are checked instead. If all samples are zero, none arrived, because even in the
// dark some samples are not zero. If the gain is lower than any gain of the chip, the search for a
// gain failed.
template <typename Service>
void require_measured(Session<Service>* session, const FlickerReading& reading) {
  const auto& samples = (*session)->m_flkSamples;
  const auto require_that = [](bool holds, const std::string& otherwise) {
    if (!holds) throw std::runtime_error(explain_failure(SPECTRAL_MODE_FLICKER, otherwise));
  };
  unsigned char id = 0;
  require_that(session->driver()->VD6281_RdByte(0, &id) == SPECTRAL_OK,
               "the sensor does not answer");
  require_that(reading.gain >= kLowestGain, "no gain could be chosen for the flicker channel");
  require_that(std::any_of(std::begin(samples), std::end(samples),
                           [](float sample) { return sample != 0.0f; }),
               std::string(kTunnelPath) + ": no samples of the light came");
}

inline void require_tunnel() {
  if (std::string why = explain_node(kTunnelPath, O_RDONLY); !why.empty()) {
    throw std::runtime_error(why);
  }
}

// Measures as often as the options ask for, and returns the last measurement.
template <typename Service>
std::optional<Waveform> measure_flicker(Session<Service>* session, const FlickerOptions& options,
                                        Format format) {
  const auto measure = [session](const char* why) {
    std::fprintf(stderr, "Sampling the light for a second%s\n", why);
    SpectralSensorOutput output{};
    (*session)->Process(SPECTRAL_MODE_FLICKER, &output);
    FlickerReading reading = {output.flicker, now(), 0.0, false};
    reading.gain = flicker_gain(session->service(), reading.result.gain);
    if (!interrupted()) require_measured(session, reading);
    return reading;
  };
  for (int i = 1; i < kConfirmations && !interrupted(); ++i) measure("");
  std::optional<Waveform> last;
  repeat(options, [&](int number) {
    FlickerReading reading = measure(number == 1 ? ", to confirm" : "");
    if (interrupted()) return false;
    const float* samples = (*session)->m_flkSamples;
    last = {{samples, samples + std::size((*session)->m_flkSamples)},
            reading.result,
            reading.gain,
            utc_text(reading.time),
            simulated_scene()};
    reading.saturated = is_saturated(last->samples);
    if (number == 1) print_flicker_head(format);
    print_flicker(format, number, reading);
    return true;
  });
  return last;
}

template <typename Service>
std::optional<Waveform> use_flicker(const FlickerOptions& options, Format format) {
  Session<Service> session(SPECTRAL_MODE_FLICKER);
  if (options.detector) {
    watch_detector(&session, options, format);
    return std::nullopt;
  }
  require_tunnel();
  return measure_flicker(&session, options, format);
}

template <typename Service>
void find_flicker(const FlickerOptions& options, Format format) {
  for (const std::string& path : {options.wav_path, options.plot_path}) {
    if (!path.empty()) check_writable(path);
  }
  if (!options.plot_path.empty()) require_plotter(options.plot_path);
  const std::optional<Waveform> last = use_flicker<Service>(options, format);
  const bool keeps = !options.wav_path.empty() || !options.plot_path.empty();
  if (keeps && !last) throw std::runtime_error("interrupted before there was anything to keep");
  if (last && !options.wav_path.empty()) save_wav(options.wav_path, *last);
  if (last && !options.plot_path.empty()) plot(options.plot_path, *last);
}

// Captures the raw stream of the tunnel. The driver dumps it to a file, which is read afterwards.
template <typename Service>
std::string capture_stream(Session<Service>* session, unsigned int length_ms) {
  SpectralSensorDevice* driver = session->driver();
  const RunningFlicker<Service> running(session->service());
  require_of_tunnel(driver->VD6281_QuilInit(), "preparing it");
  require_of_tunnel(driver->VD6281_QuilTunnelSetup(), "setting it up");
  require_of_tunnel(driver->VD6281_QuilResetRdBuf(), "preparing it");
  empty_file(kRawStreamPath);  // if the driver cannot open it, no earlier dump is read
  const int dumped = driver->VD6281_QuilDumpFlickerDataToFile(length_ms);
  require_of_tunnel(driver->VD6281_QuilTunnelTerminate(), "closing it");
  require_of_tunnel(dumped, "dumping it");
  return read_file(kRawStreamPath);
}

inline void print_dump(Format format, const std::string& bytes, const Moment& time) {
  const TunnelStream stream = parse_stream(bytes);
  print_stream(format, stream, time);
  if (stream.is_out_of_step) {
    std::fprintf(stderr, "%zu bytes at the end are no packet\n", stream.left_over);
  }
}

template <typename Service>
void dump_tunnel(const DumpOptions& options, Format format) {
  const bool to_output = options.raw_path == kStandardOutput;
  if (to_output && format != Format::kTable) {
    throw UsageError("--raw - prints the bytes, so it excludes --json and --csv");
  }
  const bool to_file = !options.raw_path.empty() && !to_output;
  if (to_file) check_writable(options.raw_path);
  Session<Service> session(SPECTRAL_MODE_FLICKER);
  require_tunnel();
  std::fprintf(stderr, "Reading the tunnel for %u ms\n", options.length_ms);
  const std::string bytes = capture_stream(&session, options.length_ms);
  const Moment time = now();
  if (interrupted()) return;
  if (bytes.empty()) {
    throw std::runtime_error(refer_to_log(std::string(kTunnelPath) + " gave nothing"));
  }
  if (to_file) write_file(options.raw_path, bytes);
  if (to_output) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);  // flush_output() finds an error
  } else {
    print_dump(format, bytes, time);
  }
}

}  // namespace spectralsensorctl
