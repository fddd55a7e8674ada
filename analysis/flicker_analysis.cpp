#include "analysis/flicker_analysis.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <new>

#define ANALYSIS_EXPORT __attribute__((visibility("default")))

// The mean is subtracted from the samples, a Hann window is applied to them, and one real Fourier
// transform gives their spectrum, whose bins are 1 Hz apart.
//
// The candidates for a tone are the eight highest local maxima of the band. A candidate is a tone
// if all of these hold, by the margins that the constants below define:
//
// 1. Its power falls off to both sides as the main lobe of the window does.
//
// 2. Its power exceeds the mean power just outside that lobe, on the quieter side. The ripple that
//    steps in the light cause in the spectrum stays below this margin.
//
// 3. Its power exceeds the power that steps in the light have at this frequency. The spectrum of a
//    step falls with the frequency, and the bins below the band give an estimate of that power.
//
// 4. Its frequency rounds to 50 Hz or more, and its amplitude exceeds the rounding errors of the
//    transform.
//
// 5. It is one of the three strongest candidates that are left, and its power exceeds the noise of
//    the whole band by a factor that white noise hardly ever reaches.
//
// The frequency and the amplitude of a tone follow from the ratio of two bins of its lobe.

namespace {

constexpr int kSamples = 2000;  // in one second
constexpr int kBins = kSamples / 2 + 1;
constexpr int kLowestHz = 50;
constexpr int kHighestHz = 1000;
constexpr int kTones = 3;

constexpr float kLargestSample = 1e9f;

// The thresholds for a tone, as ratios of power unless stated otherwise.
constexpr float kAboveNoise = 16.0f;  // 950 bins of white noise exceed it 950 e^-16 = 0.0001 times
constexpr float kAboveSurroundings = 8.0f;
constexpr float kAboveSteps = 16.0f;  // the peaks of three equidistant steps are 9 times the median
constexpr float kLobeTail = 0.15f;    // sum of both bins two away; at most 0.05 without noise
constexpr int kSurroundingsFrom = 3;  // bins away from the peak
constexpr int kSurroundingsTo = 5;
constexpr int kLobe = 3;           // bins to each side that belong to a tone
constexpr float kWeakest = 1e-4f;  // amplitude relative to the samples' RMS; above rounding errors

constexpr int kFirstBin = 20;  // the power of steps is estimated from here to the band
constexpr int kStepBins = 25;
constexpr int kPadding = kSurroundingsTo + 1;  // bins mirrored beyond the last one

constexpr int kCandidates = 8;
constexpr int kLanes = 8;  // partial sums that the compiler can vectorise

struct Tone {
  int bin;
  float hz;
  float amplitude;
};

class Analysis {
 public:
  Analysis() : m_transform(kiss_fftr_alloc(kSamples, 0, nullptr, nullptr), free_transform) {
    const double step = 2.0 * std::acos(-1.0) / kSamples;
    for (int n = 0; n < kSamples; ++n) {
      m_window[static_cast<std::size_t>(n)] = static_cast<float>(0.5 - 0.5 * std::cos(step * n));
    }
  }

  bool is_whole() const { return m_transform != nullptr; }

  void process(const float* samples, float* frequencies, float* powers) {
    window_samples(samples);
    kiss_fftr(m_transform.get(), m_windowed.data(), m_spectrum.data());
    compute_powers();
    find_candidates();
    report(frequencies, powers);
  }

 private:
  static void free_transform(kiss_fftr_cfg transform) { kiss_fftr_free(transform); }

  float power(int bin) const { return m_power[static_cast<std::size_t>(bin)]; }

  static bool is_good(float sample) { return std::fabs(sample) <= kLargestSample; }

  // The mean of the good samples. The other samples count as this mean.
  static float mean_of(const float* samples, bool* all_good) {
    float sums[kLanes] = {};
    float counts[kLanes] = {};
    for (int n = 0; n < kSamples; n += kLanes) {
      for (int lane = 0; lane < kLanes; ++lane) {
        const bool good = is_good(samples[n + lane]);
        sums[lane] += good ? samples[n + lane] : 0.0f;
        counts[lane] += good ? 1.0f : 0.0f;
      }
    }
    const float count = total(counts);
    *all_good = count == kSamples;
    return count > 0.0f ? total(sums) / count : 0.0f;
  }

  // Stores the samples without their mean, times the window, in m_windowed, and the mean square of
  // the samples without their mean in m_mean_square.
  void window_samples(const float* samples) {
    bool all_good = false;
    const float mean = mean_of(samples, &all_good);
    if (!all_good) {
      std::transform(samples, samples + kSamples, m_windowed.begin(),
                     [mean](float sample) { return is_good(sample) ? sample : mean; });
      samples = m_windowed.data();
    }
    float squares[kLanes] = {};
    for (int n = 0; n < kSamples; n += kLanes) {
      for (int lane = 0; lane < kLanes; ++lane) {
        const auto index = static_cast<std::size_t>(n + lane);
        const float value = samples[n + lane] - mean;
        m_windowed[index] = value * m_window[index];
        squares[lane] += value * value;
      }
    }
    m_mean_square = total(squares) / kSamples;
  }

  static float total(const float (&lanes)[kLanes]) {
    float sum = 0.0f;
    for (const float lane : lanes) sum += lane;
    return sum;
  }

  void compute_powers() {
    for (std::size_t bin = kFirstBin; bin < kBins; ++bin) {
      const kiss_fft_cpx& value = m_spectrum[bin];
      m_power[bin] = value.r * value.r + value.i * value.i;
    }
    for (std::size_t i = 1; i <= kPadding; ++i) m_power[kBins - 1 + i] = m_power[kBins - 1 - i];
    float sums[kLanes] = {};
    constexpr int kBand = (kHighestHz - kLowestHz) / kLanes * kLanes;
    for (int bin = kLowestHz; bin < kLowestHz + kBand; bin += kLanes) {
      for (int lane = 0; lane < kLanes; ++lane) sums[lane] += power(bin + lane);
    }
    m_band_power = total(sums);
  }

  // Collects the highest local maxima of the band in m_candidate, in descending order.
  void find_candidates() {
    m_candidates = 0;
    float least = 0.0f;
    for (int bin = kLowestHz - 1; bin <= kHighestHz; ++bin) {
      const float here = power(bin);
      if (here <= least || here <= power(bin - 1) || here < power(bin + 1)) continue;
      if (m_candidates < kCandidates) ++m_candidates;
      int place = m_candidates - 1;
      for (; place > 0 && power(m_candidate[place - 1]) < here; --place) {
        m_candidate[place] = m_candidate[place - 1];
      }
      m_candidate[place] = bin;
      if (m_candidates == kCandidates) least = power(m_candidate[kCandidates - 1]);
    }
  }

  // The bins beyond the last one mirror those before it. They are not compared here, because a tone
  // at the end of the band would be compared with its own mirror image.
  bool has_lobe_of_a_tone(int bin) const {
    const float behind = bin + 2 < kBins ? power(bin + 2) : 0.0f;
    return power(bin - 2) + behind < kLobeTail * power(bin);
  }

  bool stands_out(int bin) const {
    float below = 0.0f;
    float above = 0.0f;
    for (int away = kSurroundingsFrom; away <= kSurroundingsTo; ++away) {
      below += power(bin - away);
      above += power(bin + away);
    }
    constexpr float kCount = kSurroundingsTo - kSurroundingsFrom + 1;
    return power(bin) * kCount > kAboveSurroundings * std::min(below, above);
  }

  // Estimates the power that steps in the light have at 1 Hz. At n Hz their power is smaller by the
  // factor n squared.
  float steps_at_1_hz() const {
    float scaled[kStepBins];
    for (int i = 0; i < kStepBins; ++i) {
      const auto hz = static_cast<float>(kFirstBin + i);
      scaled[i] = power(kFirstBin + i) * hz * hz;
    }
    std::nth_element(scaled, scaled + kStepBins / 2, scaled + kStepBins);
    return scaled[kStepBins / 2];
  }

  // Locates a tone that lies between two bins. With a Hann window, if a is the ratio of a
  // neighbour's amplitude to that of the highest bin, the tone lies (2a - 1) / (a + 1) of a bin
  // towards that neighbour. The larger neighbour gives the better estimate. At the end of the band
  // the bin before is always used, because the bin after contains the mirror image of the tone.
  Tone measure(int bin) const {
    const float before = power(bin - 1);
    const float after = power(bin + 1);
    const bool towards_lower = before >= after || bin >= kHighestHz - 1;
    const float ratio = std::sqrt((towards_lower ? before : after) / power(bin));
    const float towards = std::clamp((2.0f * ratio - 1.0f) / (ratio + 1.0f), -0.5f, 0.5f);
    const float offset = std::fabs(towards);
    const float angle = std::acos(-1.0f) * offset;
    const float lobe = offset < 1e-3f ? 1.0f : std::sin(angle) / angle / (1.0f - offset * offset);
    const float hz = static_cast<float>(bin) + (towards_lower ? -towards : towards);
    return {bin, hz, 4.0f / kSamples * std::sqrt(power(bin)) / lobe};
  }

  // The mean power per bin of the band without these tones.
  float noise_beside(const Tone* tones, int count) const {
    float rest = m_band_power;
    for (int i = 0; i < count; ++i) {
      for (int bin = tones[i].bin - kLobe; bin <= tones[i].bin + kLobe; ++bin) rest -= power(bin);
    }
    return std::max(rest, 0.0f) / (kHighestHz - kLowestHz);
  }

  void report(float* frequencies, float* powers) const {
    Tone tones[kCandidates];
    int count = 0;
    const float weakest = kWeakest * std::sqrt(m_mean_square);
    const float steps = kAboveSteps * steps_at_1_hz();
    for (int i = 0; i < m_candidates; ++i) {
      const int bin = m_candidate[i];
      const auto hz = static_cast<float>(bin);
      if (!has_lobe_of_a_tone(bin) || !stands_out(bin) || power(bin) * hz * hz < steps) continue;
      const Tone tone = measure(bin);
      if (tone.amplitude > weakest && std::lround(tone.hz) >= kLowestHz) tones[count++] = tone;
    }
    const int strongest = std::min(count, kTones);
    std::partial_sort(tones, tones + strongest, tones + count,
                      [](const Tone& a, const Tone& b) { return a.amplitude > b.amplitude; });
    count = strongest;
    const float noise = noise_beside(tones, count);
    int place = 0;
    for (int i = 0; i < count; ++i) {
      if (!(power(tones[i].bin) > kAboveNoise * noise)) continue;
      const float spectral_amplitude = tones[i].amplitude * kSamples;
      frequencies[place] = std::round(tones[i].hz);
      powers[place] = spectral_amplitude * spectral_amplitude / 2.0f;
      ++place;
    }
  }

  std::unique_ptr<kiss_fftr_state, void (*)(kiss_fftr_cfg)> m_transform;
  std::array<float, kSamples> m_window = {};
  std::array<float, kSamples> m_windowed = {};
  std::array<kiss_fft_cpx, kBins> m_spectrum = {};
  std::array<float, kBins + kPadding> m_power = {};
  float m_mean_square = 0.0f;
  float m_band_power = 0.0f;
  int m_candidate[kCandidates] = {};
  int m_candidates = 0;
};

}  // namespace

extern "C" {

ANALYSIS_EXPORT void* FlickerCreate(void*, std::int32_t) {
  auto* analysis = new (std::nothrow) Analysis();
  if (analysis != nullptr && !analysis->is_whole()) {
    delete analysis;
    return nullptr;
  }
  return analysis;
}

ANALYSIS_EXPORT void FlickerProcess(void* instance, const float* samples, float* frequencies,
                                    float* powers) {
  if (instance == nullptr || samples == nullptr || frequencies == nullptr || powers == nullptr) {
    return;
  }
  static_cast<Analysis*>(instance)->process(samples, frequencies, powers);
}

ANALYSIS_EXPORT void FlickerDestroy(void* instance) { delete static_cast<Analysis*>(instance); }
}
