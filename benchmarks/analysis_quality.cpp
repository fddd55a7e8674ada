// Prints a table of how well the flicker analysis finds tones. The exit status is 1 if a row misses
// the share of good trials that is wanted.
//   analysis_quality [trials]

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "analysis/flicker_analysis.h"

namespace {

constexpr int kSamples = 2000;
constexpr std::uint64_t kSeed = 20250101;
const double kPi = std::acos(-1.0);

struct Found {
  int count = 0;
  float hz[3] = {-1, -1, -1};
  float amplitude[3] = {};
};

class Bench {
 public:
  explicit Bench(int trials) : m_trials(trials), m_analysis(FlickerCreate(nullptr, 0)) {}
  ~Bench() { FlickerDestroy(m_analysis); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(m_random);
  }
  int whole(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }

  void clear() { m_samples.assign(kSamples, 0.0f); }
  void add(const std::function<double(double)>& light) {
    for (int n = 0; n < kSamples; ++n) {
      m_samples[static_cast<std::size_t>(n)] += static_cast<float>(light(n / double{kSamples}));
    }
  }
  void add_tone(double hz, double amplitude) {
    const double phase = uniform(0, 2 * kPi);
    add([&](double t) { return amplitude * std::sin(2 * kPi * hz * t + phase); });
  }
  void add_noise(double sigma) {
    std::normal_distribution<double> noise(0.0, sigma);
    add([&](double) { return noise(m_random); });
  }
  std::vector<float>& samples() { return m_samples; }

  Found analyse() {
    Found found;
    float power[3] = {-1, -1, -1};
    FlickerProcess(m_analysis, m_samples.data(), found.hz, power);
    for (int i = 0; i < 3; ++i) {
      if (found.hz[i] < 0) break;
      found.amplitude[i] = std::sqrt(2 * power[i]) / 2000;
      ++found.count;
    }
    return found;
  }

  // Runs the trials, and prints the share of good ones next to the share that is wanted.
  void row(const char* what, double wanted, const std::function<bool()>& trial) {
    int good = 0;
    for (int i = 0; i < m_trials; ++i) good += trial() ? 1 : 0;
    const double share = static_cast<double>(good) / m_trials;
    const bool met = share >= wanted;
    m_met = m_met && met;
    std::printf("%-66s %8.4f %8.4f  %s\n", what, wanted, share, met ? "" : "MISSED");
    std::fflush(stdout);
  }

  bool met() const { return m_met; }

 private:
  int m_trials;
  void* m_analysis;
  std::mt19937_64 m_random{kSeed};
  std::vector<float> m_samples = std::vector<float>(kSamples);
  bool m_met = true;
};

void tones(Bench* bench) {
  bench->row("one tone, off by up to 0.4 Hz, 0 dB: the whole hertz, first", 0.999, [&] {
    const int hz = bench->whole(50, 999);
    bench->clear();
    bench->add_tone(hz + bench->uniform(-0.4, 0.4), std::sqrt(2.0));
    bench->add_noise(1.0);
    return bench->analyse().hz[0] == static_cast<float>(hz);
  });
  bench->row("one tone at 20 dB: amplitude within 3 %", 0.999, [&] {
    bench->clear();
    bench->add_tone(bench->whole(50, 990) + bench->uniform(-0.4, 0.4), 1000.0);
    bench->add_noise(1000.0 / std::sqrt(2.0) / 10.0);
    return std::fabs(bench->analyse().amplitude[0] - 1000.0f) < 30.0f;
  });
  bench->row("three tones 10 Hz apart, 0, -20 and -40 dB in any order: all, by strength", 0.999,
             [&] {
               const int hz = bench->whole(50, 960);
               int order[3] = {0, 1, 2};
               for (int i = 2; i > 0; --i) std::swap(order[i], order[bench->whole(0, i)]);
               bench->clear();
               for (int i = 0; i < 3; ++i) {
                 bench->add_tone(hz + 10 * order[i] + bench->uniform(-0.4, 0.4),
                                 1000.0 * std::pow(10.0, -i));
               }
               const Found found = bench->analyse();
               bool all = found.count == 3;
               for (int i = 0; i < 3; ++i)
                 all = all && found.hz[i] == static_cast<float>(hz + 10 * order[i]);
               return all;
             });
  bench->row("a rectified 100 Hz lamp: 100 first, then its harmonics", 1.0, [&] {
    const double shift = bench->uniform(0, 1);
    bench->clear();
    bench->add([&](double t) { return 9000 * std::fabs(std::sin(kPi * (99.97 * t + shift))); });
    const Found found = bench->analyse();
    return found.hz[0] == 100 && found.hz[1] == 200 && found.hz[2] == 300;
  });
}

void nothing(Bench* bench) {
  const auto silent = [&] { return bench->analyse().count == 0; };
  bench->row("white noise alone: nothing", 0.999, [&] {
    bench->clear();
    bench->add_noise(100.0);
    return silent();
  });
  bench->row("constant light: nothing", 1.0, [&] {
    const double level = bench->uniform(-32768, 32767);
    bench->clear();
    bench->add([&](double) { return level; });
    return silent();
  });
  bench->row("drift: nothing", 1.0, [&] {
    const double slope = bench->uniform(-30000, 30000);
    const double bend = bench->uniform(-30000, 30000);
    bench->clear();
    bench->add([&](double t) { return slope * t + bend * t * t; });
    return silent();
  });
  bench->row("one to three steps: nothing", 1.0, [&] {
    bench->clear();
    for (int i = bench->whole(1, 3); i > 0; --i) {
      const double when = bench->uniform(0, 1);
      const double height = bench->uniform(-20000, 20000);
      bench->add([&](double t) { return t < when ? 0.0 : height; });
    }
    return silent();
  });
  bench->row("one or two tones below 45 Hz: nothing", 1.0, [&] {
    bench->clear();
    for (int i = bench->whole(1, 2); i > 0; --i) {
      bench->add_tone(bench->uniform(0.1, 44.9), bench->uniform(1, 10000));
    }
    return silent();
  });
}

void broken_samples(Bench* bench) {
  bench->row("samples that are not numbers beside a tone: the tone", 1.0, [&] {
    const int hz = bench->whole(50, 990);
    bench->clear();
    bench->add_tone(hz, 1000.0);
    const float bad[] = {NAN, INFINITY, -INFINITY, 3e38f};
    for (const float value : bad) {
      bench->samples()[static_cast<std::size_t>(bench->whole(0, kSamples - 1))] = value;
    }
    return bench->analyse().hz[0] == static_cast<float>(hz);
  });
}

}  // namespace

int main(int argc, char** argv) {
  const int trials = argc > 1 ? std::atoi(argv[1]) : 10000;
  if (trials < 1) {
    std::fprintf(stderr, "usage: analysis_quality [trials]\n");
    return 2;
  }
  std::printf("%d trials a row, seed %llu\n%-66s %8s %8s\n", trials,
              static_cast<unsigned long long>(kSeed), "", "wanted", "found");
  Bench bench(trials);
  tones(&bench);
  nothing(&bench);
  broken_samples(&bench);
  return bench.met() ? 0 : 1;
}
