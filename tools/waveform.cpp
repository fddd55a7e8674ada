#include "tools/waveform.h"

#include <kiss_fftr.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <numeric>
#include <sstream>
#include <stdexcept>

#include "tools/files.h"
#include "tools/report.h"

namespace spectralsensorctl {

namespace {

constexpr double kPi = 3.14159265358979323846;
const std::string kScriptEnd = ".gp";
constexpr double kShownMs = 100.0;
constexpr float kLargestSample = 32767.0f;
constexpr double kLeastAmplitude = 0.1;  // counts; above 0 because of the logarithmic axis

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string plot_text(const std::vector<std::pair<double, double>>& points, const char* name) {
  std::ostringstream text;
  text << "$" << name << " << END\n";
  for (const auto& [x, y] : points) text << x << " " << y << "\n";
  text << "END\n";
  return text.str();
}

// Sets the range of the axis for a constant wave, for which gnuplot finds none.
std::string range_text(const std::vector<std::pair<double, double>>& wave) {
  const double level = wave.front().second;
  const bool is_flat = std::all_of(wave.begin(), wave.end(),
                                   [level](const auto& point) { return point.second == level; });
  if (!is_flat) return "";
  std::ostringstream text;
  text << "set yrange [" << level - 1.0 << ":" << level + 1.0 << "]\n";
  return text.str();
}

// The highest amplitude within two steps of a frequency, because the window spreads a tone that
// far.
float amplitude_at(const std::vector<float>& amplitudes, double step_hz, unsigned int hz) {
  const auto bin = static_cast<std::size_t>(std::lround(hz / step_hz));
  float highest = static_cast<float>(kLeastAmplitude);
  for (std::size_t i = bin - std::min<std::size_t>(bin, 2); i <= bin + 2 && i < amplitudes.size();
       ++i) {
    highest = std::max(highest, amplitudes[i]);
  }
  return highest;
}

// Quotes a text for gnuplot, where a quote within the text is doubled.
std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) result += c == '\'' ? "''" : std::string(1, c);
  return result + "'";
}

// Returns the gnuplot script that draws the waveform and its spectrum into the file `picture`.
std::string script_of(const std::string& picture, const Waveform& waveform) {
  std::vector<std::pair<double, double>> wave;
  const auto shown = static_cast<std::size_t>(kShownMs * kSampleRateHz / 1000.0);
  for (std::size_t i = 0; i < std::min(shown, waveform.samples.size()); ++i) {
    wave.emplace_back(static_cast<double>(i) * 1000.0 / kSampleRateHz, waveform.samples[i]);
  }
  const std::vector<float> amplitudes = amplitude_spectrum(waveform.samples);
  const double step_hz =
      static_cast<double>(kSampleRateHz) / static_cast<double>(waveform.samples.size());
  std::vector<std::pair<double, double>> spectrum;
  double highest = 1.0;
  for (std::size_t i = 1; i < amplitudes.size(); ++i) {
    const double amplitude = std::max(static_cast<double>(amplitudes[i]), kLeastAmplitude);
    spectrum.emplace_back(static_cast<double>(i) * step_hz, amplitude);
    highest = std::max(highest, amplitude);
  }
  std::ostringstream text;
  text << "set terminal pngcairo size 1000,800\nset output " << quoted(picture) << "\n"
       << plot_text(wave, "wave") << plot_text(spectrum, "spectrum")
       << "set multiplot layout 2,1\nset grid linecolor rgb '#dddddd'\nset lmargin 10\nunset key\n"
       << "set title 'Light, the first " << kShownMs << " ms'\n"
       << "set xlabel 'time (ms)'\nset ylabel 'counts'\n"
       << range_text(wave)
       << "plot $wave using 1:2 with lines linewidth 1.5 linecolor rgb '#2471a3' notitle\n"
       << "set title 'Spectrum, and the frequencies reported'\nset key top right horizontal\n"
       << "set xlabel 'frequency (Hz)'\nset ylabel 'amplitude (counts)'\n"
       << "set logscale y\nset xrange [0:" << kSampleRateHz / 2 << "]\n"
       << "set yrange [" << kLeastAmplitude << ":" << 20.0 * highest << "]\n";
  text << "plot $spectrum using 1:2 with lines linecolor rgb '#2471a3' notitle";
  int symbol = 5;
  for (const Peak& peak : peaks_of(waveform.verdict)) {
    const float amplitude = amplitude_at(amplitudes, step_hz, peak.frequency_hz);
    text << ", '+' every ::::0 using (" << peak.frequency_hz << "):(" << amplitude
         << ") with points pointtype " << symbol++ << " pointsize 2 linecolor rgb '#c0392b' title '"
         << peak.name << " " << peak.frequency_hz << " Hz'";
  }
  text << "\nunset multiplot\n";
  return text.str();
}

void run_gnuplot(const std::string& path, const std::string& script) {
  std::FILE* gnuplot = popen("gnuplot", "w");
  if (gnuplot == nullptr) cannot_write(path, std::strerror(errno));
  std::fputs(script.c_str(), gnuplot);
  const int status = pclose(gnuplot);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) cannot_write(path, "gnuplot failed");
}

}  // namespace

std::vector<Peak> peaks_of(const FlickerResult& verdict) {
  std::vector<Peak> peaks;
  const auto add = [&peaks](const char* name, std::uint32_t hz, std::uint32_t strength) {
    if (is_frequency(hz) && strength != 0) peaks.push_back({name, hz});
  };
  add("mains", verdict.freq_a, verdict.strength_a);
  add("mains", verdict.freq_b, verdict.strength_b);
  add("dominant", verdict.dominant_freq, verdict.dominant_strength);
  add("secondary", verdict.secondary_freq, verdict.secondary_strength);
  return peaks;
}

bool is_saturated(const std::vector<float>& samples) {
  return std::any_of(samples.begin(), samples.end(),
                     [](float sample) { return sample >= kLargestSample; });
}

std::vector<float> amplitude_spectrum(const std::vector<float>& samples) {
  const std::size_t count = samples.size();
  const auto size = static_cast<double>(count);
  const float mean =
      std::accumulate(samples.begin(), samples.end(), 0.0f) / static_cast<float>(count);
  std::vector<float> windowed(count);
  for (std::size_t i = 0; i < count; ++i) {
    const double hann = 0.5 - 0.5 * std::cos(2.0 * kPi * static_cast<double>(i) / size);
    windowed[i] = (samples[i] - mean) * static_cast<float>(hann);
  }
  using Plan = std::remove_pointer_t<kiss_fftr_cfg>;
  const std::unique_ptr<Plan, void (*)(void*)> plan(
      kiss_fftr_alloc(static_cast<int>(count), 0, nullptr, nullptr), std::free);
  if (plan == nullptr) throw std::bad_alloc();
  std::vector<kiss_fft_cpx> bins(count / 2 + 1);
  kiss_fftr(plan.get(), windowed.data(), bins.data());
  std::vector<float> amplitudes;
  amplitudes.reserve(bins.size());
  // Half of the amplitude is at the negative frequency, and the window halves the rest.
  const auto scale = static_cast<float>(4.0 / size);
  for (const kiss_fft_cpx& bin : bins) amplitudes.push_back(std::hypot(bin.r, bin.i) * scale);
  return amplitudes;
}

void save_wav(const std::string& path, const Waveform& waveform) {
  SF_INFO info = {};
  info.samplerate = kSampleRateHz;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  std::vector<short> samples;
  std::transform(waveform.samples.begin(), waveform.samples.end(), std::back_inserter(samples),
                 [](float sample) { return static_cast<short>(sample); });
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) cannot_write(path, sf_strerror(nullptr));
  const auto count = static_cast<sf_count_t>(samples.size());
  const bool whole = sf_write_short(file, samples.data(), count) == count;
  if (sf_close(file) != 0 || !whole) cannot_write(path, "it could not be written whole");
}

void require_plotter(const std::string& path) {
  if (ends_with(path, kScriptEnd) || std::system("command -v gnuplot >/dev/null 2>&1") == 0) return;
  cannot_write(
      path,
      "gnuplot is not installed (Debian's gnuplot-nox); a name in .gp keeps the script for "
      "a machine that has it");
}

void plot(const std::string& path, const Waveform& waveform) {
  if (!ends_with(path, kScriptEnd)) {
    run_gnuplot(path, script_of(path, waveform));
    return;
  }
  const std::string name = path.substr(path.rfind('/') + 1);
  const std::string stem = name.substr(0, name.size() - kScriptEnd.size());
  write_file(path, script_of(stem + ".png", waveform));
}

}  // namespace spectralsensorctl
