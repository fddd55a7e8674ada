#include "fuzz/support.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "driver/channel.h"
#include "driver/exposure_gain_rule.h"

using spectralsim::Call;
using spectralsim::Fault;
using spectralsim::Node;

namespace fuzz {

namespace {

#ifdef FUZZ_ON_KERNEL_NODES
constexpr unsigned int kWatchSeconds = 120;
#else
constexpr unsigned int kWatchSeconds = 10;
#endif

constexpr std::uint32_t kNoTone = 0xFFFFFFFF;
constexpr std::uint32_t kLowestHz = 50;
constexpr std::uint32_t kHighestHz = 1000;
constexpr std::uint32_t kHighestStrength = 200000;  // above three clipped full-scale tones

bool is_frequency(std::uint32_t hz) {
  return hz == 0 || hz == kNoTone || (hz >= kLowestHz && hz <= kHighestHz);
}

bool is_chip_gain(std::uint16_t gain) {
  return std::find(std::begin(spectral::kGainQ8), std::end(spectral::kGainQ8), gain) !=
         std::end(spectral::kGainQ8);
}

// On the kernel's own nodes the phone hears of a close a moment later.
bool all_closed(const spectralsim::Phone& phone) {
  for (int i = 0; i < 1000 && phone.open_descriptors() != 0; ++i) usleep(1000);
  return phone.open_descriptors() == 0;
}

}  // namespace

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

std::optional<Fault> FaultScript::next(Call call, Node node) {
  if (m_at + 1 >= m_pairs.size()) return std::nullopt;
  if (m_gone_well++ < static_cast<std::uint8_t>(m_pairs[m_at])) return std::nullopt;
  const auto result = static_cast<std::int8_t>(m_pairs[m_at + 1]);
  m_at += 2;
  m_gone_well = 0;
  Fault fault(call, node);
  return result < 0 ? fault.with_errno(-result) : fault.returning(result);
}

Watch::Watch() {
  std::signal(SIGALRM, [](int) { std::abort(); });
  alarm(kWatchSeconds);
}

Watch::~Watch() { alarm(0); }

Bench::Bench() {
  dlerror();
  phone.keep_trace(false).chip().noise(0, 1);
  std::memset(&record(), 0, sizeof(VD6281_device));
  record().fd_read_byte = record().fd_write_byte = record().fd_dev = -1;
  create();
}

Bench::~Bench() {
  phone.heal();
  create();  // without an instance nothing can switch the power off
  destroy();
  require(all_closed(phone), "every descriptor is closed at the end");
  require(!phone.chip().powered(), "the power is off at the end");
}

void Bench::fail_as(std::string pairs) {
  phone.fail_as([script = FaultScript(std::move(pairs))](Call call, Node node, int) mutable {
    return script.next(call, node);
  });
}

void Bench::create() {
  layered = SpectralSensor::Create();
  device = SpectralSensorDevice::Create();
}

// Unloads the analysis library first, because Destroy does not.
void Bench::destroy() {
  if (device->m_flickerLibHandle != nullptr) device->UnloadFlickerLibrary();
  if (layered->m_flickerLibHandle != nullptr) layered->UnloadFlickerLibrary();
  SpectralSensor::Destroy();
  device = nullptr;
  layered = nullptr;
}

void Bench::check_record() {
  const VD6281_device& dev = record();
  require(dev.state <= VD6281_STATE_ALS_AND_FLICKER, "the state is one of VD6281_State_t");
  if (dev.state == VD6281_STATE_NONE) return;
  const bool als = dev.state == VD6281_STATE_ALS || dev.state == VD6281_STATE_ALS_AND_FLICKER;
  const bool flicker = dev.state >= VD6281_STATE_FLICKER;
  require(!als || dev.als_channels != 0, "a running ALS has channels");
  require(!flicker || dev.flicker_channels != 0, "a running flicker measurement has a channel");
  require(dev.als_channels <= spectral::kAllChannels, "no ALS channel is beyond the six");
  require((dev.als_channels & dev.flicker_channels) == 0, "no channel is used twice");
  require((dev.dc_chan_en & ~spectral::kDcChannels) == 0, "only five channels have a DC enable");
  require(std::all_of(std::begin(dev.channel_gain), std::end(dev.channel_gain), is_chip_gain),
          "every gain in force is one of the chip's");
  require(dev.exposure % spectral::kExposureStepUs == 0 && dev.exposure > 0 &&
              dev.exposure <= spectral::kMaxExposureCount * spectral::kExposureStepUs,
          "the exposure in force is one of the chip's");
  require(std::strspn(dev.uid, "0123456789abcdef") == std::strlen(dev.uid) &&
              std::strlen(dev.uid) >= 14 && std::strlen(dev.uid) <= 15,
          "the id is 14 or 15 hexadecimal digits");
  require(dev.otp_osc_trim < 512 && dev.otp_osc2_trim < 16 && dev.otp_color_map < 8,
          "the OTP's fields fit their widths");
  require(dev.tun_dev == nullptr && dev.unparsed_fp == nullptr, "no file of a capture stays open");
}

void check(const ALSResult& result) {
  require(result.valid <= 1, "valid is a flag");
  if (result.valid == 0) return;
  require((result.channelMask & ~spectral::kAllChannels) == 0,
          "no channel beyond the six is delivered");
  require(std::all_of(std::begin(result.value), std::end(result.value),
                      [](float value) { return std::isfinite(value) && value >= 0.0f; }),
          "every value is finite and not negative");
  require(std::isfinite(result.gain) && result.gain >= 0.0f && result.gain <= 100.0f,
          "the gain is within 0..100");
}

void check(const FlickerResult& result) {
  require(result.valid == 1 && result.freq_a == 100 && result.freq_b == 120,
          "a result is valid and names both mains");
  require(std::max({result.strength_a, result.strength_b, result.dominant_strength,
                    result.secondary_strength}) < kHighestStrength,
          "a strength is one that 16-bit samples can give");
  require(std::isfinite(result.gain) && result.gain >= 0.0f, "the gain is finite and not negative");
}

void check_frequencies(const FlickerResult& result) {
  require(is_frequency(result.dominant_freq) && is_frequency(result.secondary_freq),
          "a frequency is none or within 50..1000 Hz");
}

}  // namespace fuzz

// Runs before libFuzzer reads its arguments. libFuzzer's time limit and memory limit are switched
// off, because they use clocks and sleeps, which are those of the simulated phone here. The class
// Watch and a limit on each allocation replace them. Standard input is reopened so that it cannot
// be written, as in a camera process.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  static char no_watch[] = "-timeout=0";
  static char no_limit_thread[] = "-rss_limit_mb=0";
  static char allocation_limit[] = "-malloc_limit_mb=1024";
  setenv("SPECTRALHOST_LOG", "silent", 1);
  if (std::freopen("/dev/null", "r", stdin) == nullptr) return 1;
  static std::vector<char*> all(*arguments, *arguments + *count);
  all.insert(all.end(), {no_watch, no_limit_thread, allocation_limit});
  *count = static_cast<int>(all.size());
  all.push_back(nullptr);
  *arguments = all.data();
  return 0;
}
