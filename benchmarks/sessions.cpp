#include "benchmarks/sessions.h"

namespace bench {

namespace {

constexpr int kWarmCaptures = 10;
constexpr unsigned int kExposureUs = 16000;

// The writes of an ALS capture: exposure (two registers), four gains, channels on, start;
// acknowledge (two), stop, channels off.
constexpr int kAlsWrites = 2 + 4 + 1 + 1 + 2 + 1 + 1;
// The register reads of a polled ALS capture: the status in every millisecond of the exposure, the
// status when the result is ready, and all counts in one read.
constexpr int kAlsPolledReads = kExposureUs / 1000 + 1 + 1;
// The writes of a bring-up: power; reset (two), OTP load, trims and configuration; pedestal on,
// pedestal value.
constexpr int kBringUpWrites = 1 + 2 + 1 + 21 + 1 + 1;
// The writes of a tear-down: reset (two), OTP load, the control of cut 2.2; power.
constexpr int kTearDownWrites = 2 + 1 + 1 + 1;
constexpr int kIdentityReads = 2;
constexpr int kReadyReads = 2;  // of the OTP status, until the OTP is loaded
constexpr int kOtpReads = 16;
constexpr int kPedestalReads = 1;
// The writes of one trial of the gain search: the gain; six to start (AC enable, AC mode, two
// settings, the control of cut 2.2, run) and six to stop. The AC mode and the run bit are read
// before each change.
constexpr int kTrialWrites = 1 + 6 + 6;
constexpr int kTrialReads = 2 + 2;
constexpr int kPollReads = 2;  // of the saturation counter
constexpr int kFullPolls = 13;

}  // namespace

WarmSensor::WarmSensor(bool clients)
    : m_sensor(SpectralSensorDevice::Create()), m_clients(clients) {
  if (!m_clients) return;
  m_sensor->Init(SPECTRAL_MODE_ALS);
  m_sensor->Init(SPECTRAL_MODE_FLICKER);
}

WarmSensor::~WarmSensor() {
  if (m_clients) {
    m_sensor->Uninit(SPECTRAL_MODE_FLICKER);
    m_sensor->Uninit(SPECTRAL_MODE_ALS);
  }
  SpectralSensorDevice::Destroy();
}

const std::vector<Session>& sessions() {
  static const std::vector<Session> all = {
      {"Process(1), default",
       true,
       Waits::kPolling,
       {kAlsWrites, kAlsPolledReads, 0},
       [](WarmSensor* sensor) {
         (*sensor)->m_alsAeEnable = 0;
         (*sensor)->m_alsConfig.exposureTime = kExposureUs;
       },
       [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_ALS); }},
      {"Process(1), auto-exposure",
       true,
       Waits::kOnce,
       {kAlsWrites, 1 + 1, 0},
       [](WarmSensor* sensor) {
         for (int i = 0; i < kWarmCaptures; ++i) sensor->process(SPECTRAL_MODE_ALS);
       },
       [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_ALS); }},
      {"Process(2)",
       true,
       Waits::kNone,
       // Five trials, two of which saturate at the first poll; then the start and stop of the
       // capture.
       {6 * kTrialWrites, 6 * kTrialReads + (3 * kFullPolls + 2) * kPollReads, 1 + 1 + 6},
       [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_FLICKER); },
       [](WarmSensor* sensor) { sensor->process(SPECTRAL_MODE_FLICKER); }},
      {"Init to Uninit",
       false,
       Waits::kNone,
       {kBringUpWrites + kTearDownWrites,
        kIdentityReads + 2 * kReadyReads + kOtpReads + kPedestalReads, 2 * (2 + 3)},
       [](WarmSensor*) {},
       [](WarmSensor* sensor) {
         (*sensor)->Init(SPECTRAL_MODE_ALS);
         (*sensor)->Uninit(SPECTRAL_MODE_ALS);
       }},
  };
  return all;
}

}  // namespace bench
