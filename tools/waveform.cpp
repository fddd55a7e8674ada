#include "tools/waveform.h"

#include <kiss_fftr.h>

#if __has_include(<sndfile.h>)
#include <sndfile.h>
#define SPECTRAL_HAS_SNDFILE
#endif

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <numeric>

#include "tools/files.h"
#include "tools/report.h"

namespace spectralsensorctl {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr float kLargestSample = 32767.0f;

}  // namespace

bool is_saturated_sample(float sample) { return sample >= kLargestSample; }

std::vector<Peak> peaks_of(const FlickerResult& verdict) {
  std::vector<Peak> peaks;
  const auto add = [&peaks](Peak::Role role, std::uint32_t hz, std::uint32_t strength) {
    if (is_frequency(hz) && strength != 0) peaks.push_back({role, hz, strength});
  };
  add(Peak::Role::kMains50Hz, verdict.freq_a, verdict.strength_a);
  add(Peak::Role::kMains60Hz, verdict.freq_b, verdict.strength_b);
  add(Peak::Role::kDominant, verdict.dominant_freq, verdict.dominant_strength);
  add(Peak::Role::kSecondary, verdict.secondary_freq, verdict.secondary_strength);
  return peaks;
}

std::size_t saturated_count(const std::vector<float>& samples) {
  return static_cast<std::size_t>(
      std::count_if(samples.begin(), samples.end(), is_saturated_sample));
}

bool is_saturated(const std::vector<float>& samples) { return saturated_count(samples) > 0; }

std::vector<float> amplitude_spectrum(const std::vector<float>& samples) {
  const std::size_t count = samples.size();
  const auto size = static_cast<double>(count);
  const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) / size;
  std::vector<float> windowed(count);
  for (std::size_t i = 0; i < count; ++i) {
    const double hann = 0.5 - 0.5 * std::cos(2.0 * kPi * static_cast<double>(i) / size);
    windowed[i] = static_cast<float>((samples[i] - mean) * hann);
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

#ifdef SPECTRAL_HAS_SNDFILE

bool can_save_wav() { return true; }

void save_wav(const std::string& path, const Waveform& waveform) {
  SF_INFO info = {};
  info.samplerate = kSampleRateHz;
  info.channels = 1;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  std::vector<short> samples;
  std::transform(waveform.samples.begin(), waveform.samples.end(), std::back_inserter(samples),
                 [](float sample) { return static_cast<short>(sample); });
  NewFile file(path);
  errno = 0;
  SNDFILE* sound = sf_open_fd(file.descriptor(), SFM_WRITE, &info, SF_FALSE);
  const auto count = static_cast<sf_count_t>(samples.size());
  bool is_whole = sound != nullptr && sf_write_short(sound, samples.data(), count) == count;
  const int error = errno;
  if (sound != nullptr && sf_close(sound) != 0) is_whole = false;
  if (!is_whole) cannot_write(path, error != 0 ? std::strerror(error) : "libsndfile failed");
  file.commit();
}

#else

bool can_save_wav() { return false; }

void save_wav(const std::string& path, const Waveform&) {
  cannot_write(path, "this build has no libsndfile");
}

#endif

}  // namespace spectralsensorctl
