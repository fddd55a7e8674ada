#include "tools/plot.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <utility>

#include "tools/files.h"

namespace spectralsensorctl {

namespace {

const std::string kScriptEnd = ".gp";
const std::string kPictureEnd = "IEND\xAE\x42\x60\x82";  // the last bytes of every PNG file
constexpr double kShownMs = 100.0;
constexpr double kLeastAmplitude = 0.1;  // counts; above 0 because of the logarithmic axis
constexpr std::size_t kLongestScene = 60;

constexpr char kTitleWithoutPeaks[] = "set title 'Spectrum; no frequency is reported'\n";
// The title of the key stands in for that of the plot, which would be drawn below the key.
constexpr char kTitleWithPeaks[] =
    "unset title\nset key outside top center horizontal reverse Left samplen 1 "
    "title 'Spectrum and reported frequencies'.\"\\n\"."
    "'strength: the amplitude at the frequency plus weighted ones of its harmonics (counts)'\n";

using Points = std::vector<std::pair<double, double>>;

// How a peak is drawn and what it is called. A role has the same symbol in every picture.
struct Mark {
  const char* name;
  int symbol;  // gnuplot's point type
  const char* color;
};

Mark mark_of(Peak::Role role) {
  switch (role) {
    case Peak::Role::kMains50Hz:
      return {"mains", 5, "#c0392b"};  // a square
    case Peak::Role::kMains60Hz:
      return {"mains", 9, "#c0392b"};  // a triangle
    case Peak::Role::kDominant:
      return {"dominant", 7, "#1e8449"};  // a circle
    case Peak::Role::kSecondary:
      break;
  }
  return {"secondary", 13, "#7d3c98"};  // a diamond
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Quotes a text for gnuplot, where a quote within the text is doubled and a text has one line.
std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) {
    const bool is_control = static_cast<unsigned char>(c) < ' ' || c == '\x7F';
    result += c == '\'' ? "''" : std::string(1, is_control ? '?' : c);
  }
  return result + "'";
}

// A block of data that the script refers to as $NAME.
std::string data_text(const Points& points, const char* name) {
  std::ostringstream text;
  text << "$" << name << " << END\n";
  for (const auto& [x, y] : points) text << x << " " << y << "\n";
  text << "END\n";
  return text.str();
}

// The first part of the samples, by the time in milliseconds.
Points shown_wave(const std::vector<float>& samples) {
  const auto shown = static_cast<std::size_t>(kShownMs * kSampleRateHz / 1000.0);
  Points wave;
  for (std::size_t i = 0; i < std::min(shown, samples.size()); ++i) {
    wave.emplace_back(static_cast<double>(i) * 1000.0 / kSampleRateHz, samples[i]);
  }
  return wave;
}

Points saturated_points(const Points& wave) {
  Points saturated;
  std::copy_if(wave.begin(), wave.end(), std::back_inserter(saturated), [](const auto& point) {
    return is_saturated_sample(static_cast<float>(point.second));
  });
  return saturated;
}

// The highest amplitude within two steps of a frequency, because the window spreads a tone that
// far.
double amplitude_at(const std::vector<float>& amplitudes, double step_hz, unsigned int hz) {
  const auto bin = static_cast<std::size_t>(std::lround(hz / step_hz));
  double highest = kLeastAmplitude;
  for (std::size_t i = bin - std::min<std::size_t>(bin, 2); i <= bin + 2 && i < amplitudes.size();
       ++i) {
    highest = std::max(highest, static_cast<double>(amplitudes[i]));
  }
  return highest;
}

// The picture's title, as an expression of gnuplot. It says what was measured, how and when.
std::string title_of(const Waveform& waveform) {
  std::ostringstream measurement;
  measurement << "Flicker channel";
  for (int n = 0; n < 8; ++n) {
    if ((waveform.verdict.channel >> n & 1) != 0) measurement << " " << n;
  }
  measurement << ", gain " << std::fixed << std::setprecision(2) << waveform.gain << ", "
              << waveform.time_utc;
  if (waveform.scene.empty()) return quoted(measurement.str());
  std::string scene = waveform.scene.substr(waveform.scene.rfind('/') + 1);
  if (scene.size() > kLongestScene) {
    std::size_t from = scene.size() - kLongestScene;
    while ((scene[from] & 0xC0) == 0x80) ++from;  // not within a character of UTF-8
    scene = "..." + scene.substr(from);
  }
  return quoted("Simulated phone, scene " + scene) + ".\"\\n\"." + quoted(measurement.str());
}

// Sets the range of the axis for a constant wave, for which gnuplot finds none: from 0 to above it.
std::string range_text(const Points& wave) {
  const double level = wave.front().second;
  const bool is_flat = std::all_of(wave.begin(), wave.end(),
                                   [level](const auto& point) { return point.second == level; });
  if (!is_flat) return "";
  std::ostringstream text;
  text << "set yrange [0:" << 1.1 * std::max(level, 1.0) << "]\n";
  return text.str();
}

std::string wave_text(const Waveform& waveform) {
  const Points wave = shown_wave(waveform.samples);
  const Points saturated = saturated_points(wave);
  const std::size_t count = saturated_count(waveform.samples);
  std::ostringstream text;
  text << data_text(wave, "wave") << data_text(saturated, "saturated")
       << "set title 'Light, the first " << kShownMs << " ms";
  if (count > 0) {
    text << ": SATURATED, " << count << " of " << waveform.samples.size()
         << " samples are cut off (crosses)";
  }
  text << "'\nset xlabel 'time (ms)'\nset ylabel 'sample (counts)'\n"
       << "set offsets 0, 0, graph 0.05, graph 0.05\nunset key\n"
       << range_text(wave)
       << "plot $wave using 1:2 with lines linewidth 1.5 linecolor rgb '#2471a3'";
  if (!saturated.empty()) {
    text << ", $saturated using 1:2 with points pointtype 2 pointsize 1 linecolor rgb '#c0392b'";
  }
  text << "\n";
  return text.str();
}

std::string peak_text(const Peak& peak, double amplitude) {
  const Mark mark = mark_of(peak.role);
  std::ostringstream text;
  text << ", '+' every ::::0 using (" << peak.frequency_hz << "):(" << amplitude
       << ") with points pointtype " << mark.symbol << " pointsize 1.8 linecolor rgb '"
       << mark.color << "' title '" << mark.name << " " << peak.frequency_hz << " Hz, strength "
       << peak.strength << "'";
  return text.str();
}

std::string spectrum_text(const Waveform& waveform) {
  const std::vector<float> amplitudes = amplitude_spectrum(waveform.samples);
  const double step_hz =
      static_cast<double>(kSampleRateHz) / static_cast<double>(waveform.samples.size());
  Points spectrum;
  double highest = 1.0;
  for (std::size_t i = 1; i < amplitudes.size(); ++i) {
    const double amplitude = std::max(static_cast<double>(amplitudes[i]), kLeastAmplitude);
    spectrum.emplace_back(static_cast<double>(i) * step_hz, amplitude);
    highest = std::max(highest, amplitude);
  }
  const std::vector<Peak> peaks = peaks_of(waveform.verdict);
  std::ostringstream text;
  text << data_text(spectrum, "spectrum") << (peaks.empty() ? kTitleWithoutPeaks : kTitleWithPeaks)
       << "set xlabel 'frequency (Hz)'\nset ylabel 'amplitude (counts)'\n"
       << "set offsets 0, 0, 0, 0\nset logscale y\nset xrange [0:" << kSampleRateHz / 2 << "]\n"
       << "set yrange [" << kLeastAmplitude << ":" << 3.0 * highest << "]\n";
  text << "plot $spectrum using 1:2 with lines linecolor rgb '#2471a3' notitle";
  for (const Peak& peak : peaks) {
    text << peak_text(peak, amplitude_at(amplitudes, step_hz, peak.frequency_hz));
  }
  text << "\n";
  return text.str();
}

// Returns the gnuplot script that draws the waveform and its spectrum. Without the name of a
// picture, the script writes the picture to the standard output.
std::string script_of(const std::string& picture, const Waveform& waveform) {
  std::ostringstream text;
  text << "set encoding utf8\nset terminal pngcairo noenhanced size 1000,900\n";
  if (!picture.empty()) text << "set output " << quoted(picture) << "\n";
  text << "set multiplot layout 2,1 title " << title_of(waveform) << "\n"
       << "set grid linetype 1 linewidth 0.7 linecolor rgb '#c8c8c8'\nset lmargin 12\n"
       << wave_text(waveform) << spectrum_text(waveform) << "unset multiplot\n";
  return text.str();
}

// A script in memory. gnuplot reads it from there, and its picture comes by the pipe.
class ScriptInMemory {
 public:
  explicit ScriptInMemory(const std::string& script)
      : m_descriptor(memfd_create("script", 0)),
        m_is_whole(m_descriptor >= 0 && write_all(m_descriptor, script)) {}
  ~ScriptInMemory() {
    if (m_descriptor >= 0) close(m_descriptor);
  }
  ScriptInMemory(const ScriptInMemory&) = delete;
  ScriptInMemory& operator=(const ScriptInMemory&) = delete;

  bool is_whole() const { return m_is_whole; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

 private:
  int m_descriptor;
  bool m_is_whole;
};

// Returns the picture that gnuplot draws by this script. gnuplot does not report that a picture
// could not be written, so it never writes the file itself.
std::string run_gnuplot(const std::string& path, const std::string& script) {
  const ScriptInMemory input(script);
  if (!input.is_whole()) cannot_write(path, std::strerror(errno));
  std::FILE* gnuplot = popen(("gnuplot -d <" + input.path()).c_str(), "r");
  if (gnuplot == nullptr) cannot_write(path, std::strerror(errno));
  std::string picture;
  char chunk[4096];
  while (const std::size_t count = std::fread(chunk, 1, sizeof chunk, gnuplot)) {
    picture.append(chunk, count);
  }
  const int status = pclose(gnuplot);
  const bool is_whole = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!is_whole || !ends_with(picture, kPictureEnd)) cannot_write(path, "gnuplot failed");
  return picture;
}

}  // namespace

void require_plotter(const std::string& path) {
  if (ends_with(path, kScriptEnd) || std::system("command -v gnuplot >/dev/null 2>&1") == 0) return;
  cannot_write(
      path,
      "gnuplot is not installed (Debian's gnuplot-nox); a name in .gp keeps the script for "
      "a machine that has it");
}

void plot(const std::string& path, const Waveform& waveform) {
  if (!ends_with(path, kScriptEnd)) {
    write_file(path, run_gnuplot(path, script_of("", waveform)));
    return;
  }
  const std::string name = path.substr(path.rfind('/') + 1);
  const std::string stem = name.substr(0, name.size() - kScriptEnd.size());
  write_file(path, script_of(stem + ".png", waveform));
}

}  // namespace spectralsensorctl
