#include "flicker/result_tracking_rule.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "driver/fixed_point.h"

namespace spectral {

namespace {

constexpr int kTones = 3;
constexpr int kNone = -1;

// The weight by the distance from a multiple, in Hz.
constexpr int kWeights = 3;
constexpr float kWeight[kWeights] = {1.0f, 0.631f, 0.159f};
constexpr int kLowestHz = 50;
constexpr int kHighestHz = 1050;

// The measurements that confirm a change; more of them where a frequency disappears.
constexpr std::uint32_t kConfirmations = 2;
constexpr std::uint32_t kMainsGoneConfirmations = 10;
constexpr std::uint32_t kDominantGoneConfirmations = 5;
constexpr std::uint32_t kMostMisses = 10;  // after so many the dominant frequency is given up
constexpr std::int32_t kWeakMains = 20;    // below it a mains frequency needs no confirmation
constexpr std::uint32_t kNotYetMeasured = 0xFFFFFFFF;

struct Tones {
  std::int32_t hz[kTones];
  float strength[kTones];
};

// Indices of tones; kNone where there is none.
struct Ranking {
  int primary;
  int secondary;
  int tertiary;
};

struct Mains {
  int at_50_hz = kNone;
  int at_60_hz = kNone;
  std::uint32_t hz = 0;  // of the stronger one
  std::int32_t strength = 0;

  bool has(int index) const { return index == at_50_hz || index == at_60_hz; }
};

bool is_in_band(int hz) { return hz >= kLowestHz && hz <= kHighestHz; }

Tones weigh(const float* frequencies, const float* amplitudes) {
  Tones tones = {};
  for (int i = 0; i < kTones; ++i) tones.hz[i] = truncate_to<std::int32_t>(frequencies[i]);
  for (int i = 0; i < kTones; ++i) {
    for (int j = 0; j < kTones; ++j) {
      tones.strength[i] += amplitudes[j] * harmonic_weight(tones.hz[i], tones.hz[j]);
    }
  }
  return tones;
}

Ranking rank(const float* strength) {
  int strongest = strength[1] > strength[0] ? 1 : 0;
  int weakest = strength[0] > strength[1] ? 1 : 0;
  if (strength[2] > strength[strongest]) {
    strongest = 2;
  } else if (strength[2] < strength[weakest]) {
    weakest = 2;
  }
  if (strongest == weakest) return {0, 1, 2};  // all are equally strong
  return {strongest, kTones - strongest - weakest, weakest};
}

Mains find_mains(const Tones& tones) {
  Mains mains;
  int found = kNone;
  for (int i = 0; i < kTones; ++i) {
    if (tones.hz[i] == static_cast<std::int32_t>(kMains50Hz)) {
      found = mains.at_50_hz = i;
    } else if (tones.hz[i] == static_cast<std::int32_t>(kMains60Hz)) {
      found = mains.at_60_hz = i;
    }
  }
  if (found == kNone) return mains;
  if (mains.at_50_hz != kNone && mains.at_60_hz != kNone) {
    const bool is_50_hz = tones.strength[mains.at_50_hz] > tones.strength[mains.at_60_hz];
    found = is_50_hz ? mains.at_50_hz : mains.at_60_hz;
  }
  mains.hz = static_cast<std::uint32_t>(tones.hz[found]);
  mains.strength = truncate_to<std::int32_t>(tones.strength[found]);
  return mains;
}

// The ranking of the tones that are not mains.
Ranking without_mains(Ranking ranking, const Mains& mains) {
  const int third = mains.has(ranking.tertiary) ? kNone : ranking.tertiary;
  const bool primary_is_mains = mains.has(ranking.primary);
  const bool secondary_is_mains = mains.has(ranking.secondary);
  if (primary_is_mains && secondary_is_mains) return {ranking.tertiary, kNone, kNone};
  if (primary_is_mains) return {ranking.secondary, third, kNone};
  if (secondary_is_mains) return {ranking.primary, third, kNone};
  return ranking;
}

// Whether the mains frequency that was found is reported now; `track` counts its confirmations.
bool confirm_mains(const Mains& mains, FlickerTrack* track) {
  const bool weak = static_cast<std::int32_t>(track->mains_strength) < kWeakMains;
  if (track->mains_count == kNotYetMeasured || weak || mains.hz == track->mains_freq ||
      track->mains_freq == 0) {
    track->mains_cand = mains.hz;
    track->mains_count = 0;
    return true;
  }
  if (track->mains_count == 0 || track->mains_cand != mains.hz) {
    track->mains_cand = mains.hz;
    track->mains_count = 1;
    return false;
  }
  ++track->mains_count;
  if (track->mains_count < (mains.hz == 0 ? kMainsGoneConfirmations : kConfirmations)) return false;
  track->mains_count = 0;
  return true;
}

enum class Dominant { kKeep, kReport, kGiveUp };

Dominant confirm_dominant(std::uint32_t hz, FlickerTrack* track) {
  if (hz == track->dom_freq) {
    track->dom_cand = hz;
    track->dom_count = 0;
    track->dom_miss = 0;
    return Dominant::kReport;
  }
  if (track->dom_count != 0 && track->dom_cand == hz) {
    ++track->dom_count;
    if (track->dom_count < (hz == 0 ? kDominantGoneConfirmations : kConfirmations)) {
      return Dominant::kKeep;
    }
    track->dom_count = 0;
    track->dom_miss = 0;
    return Dominant::kReport;
  }
  track->dom_cand = hz;
  track->dom_count = 1;
  ++track->dom_miss;
  if (track->dom_miss < kMostMisses) return Dominant::kKeep;
  track->dom_miss = 0;
  return Dominant::kGiveUp;
}

std::uint32_t reported_strength(const Tones& tones, int index) {
  return index == kNone ? 0 : truncate_to<std::uint32_t>(tones.strength[index]);
}

std::uint32_t reported_hz(const Tones& tones, int index) {
  return index == kNone ? 0 : static_cast<std::uint32_t>(tones.hz[index]);
}

void update_mains(const Tones& tones, const Mains& mains, FlickerTrack* track) {
  track->out_strength_a = reported_strength(tones, mains.at_50_hz);
  track->out_strength_b = reported_strength(tones, mains.at_60_hz);
  track->mains_a = kMains50Hz;
  track->mains_b = kMains60Hz;
  track->mains_freq = mains.hz;
  track->mains_strength = static_cast<std::uint32_t>(mains.strength);
}

void update_dominant(const Tones& tones, const Ranking& ranking, FlickerTrack* track) {
  track->out_dominant_freq = reported_hz(tones, ranking.primary);
  track->out_dominant_strength = reported_strength(tones, ranking.primary);
  track->out_secondary_freq = reported_hz(tones, ranking.secondary);
  track->out_secondary_strength = reported_strength(tones, ranking.secondary);
  track->dom_freq = track->out_dominant_freq;
  track->dom_strength = track->out_dominant_strength;
}

void report(const FlickerTrack& track, FlickerResult* result) {
  result->freq_a = kMains50Hz;
  result->freq_b = kMains60Hz;
  result->strength_a = track.out_strength_a;
  result->strength_b = track.out_strength_b;
  result->dominant_freq = track.out_dominant_freq;
  result->dominant_strength = track.out_dominant_strength;
  result->secondary_freq = track.out_secondary_freq;
  result->secondary_strength = track.out_secondary_strength;
}

}  // namespace

float harmonic_weight(int f, int g) {
  if (!is_in_band(f) || !is_in_band(g)) return 0.0f;
  const int distance = std::abs(f - g);
  if (distance < kWeights) return kWeight[distance];
  // f - 1 is tried first, even where g is an exact multiple of f: the order is part of the rule.
  for (const int base : {f - 1, f, f + 1}) {
    const int rest = g % base;
    const int off = std::min(base - rest, rest);
    if (off < kWeights) return kWeight[off] * kWeight[std::abs(base - f)];
  }
  return 0.0f;
}

float tone_amplitude(float power) {
  constexpr float kSamples = 2000.0f;
  return power > 0.0f ? std::sqrt(2.0f * power) / kSamples : 0.0f;
}

float track_result(const float* frequencies, const float* amplitudes, FlickerTrack* track,
                   FlickerResult* result) {
  const Tones tones = weigh(frequencies, amplitudes);
  const Mains mains = find_mains(tones);
  const Ranking ranking = without_mains(rank(tones.strength), mains);
  if (confirm_mains(mains, track)) update_mains(tones, mains, track);

  float answer = tones.strength[ranking.primary];
  switch (confirm_dominant(reported_hz(tones, ranking.primary), track)) {
    case Dominant::kKeep:
      break;
    case Dominant::kReport:
      update_dominant(tones, ranking, track);
      if (ranking.secondary != kNone) answer = tones.strength[ranking.secondary];
      break;
    case Dominant::kGiveUp:
      update_dominant({}, {kNone, kNone, kNone}, track);
      answer = 0.0f;
      break;
  }
  report(*track, result);
  return answer;
}

}  // namespace spectral
