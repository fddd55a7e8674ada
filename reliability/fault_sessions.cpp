#include "reliability/fault_sessions.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "ambient_light_sensor.h"
#include "flicker_sensor.h"
#include "platform/android.h"
#include "spectral_sensor.h"
#include "spectral_sensor_device.h"

namespace sweep {

namespace {

constexpr int kAls = SPECTRAL_MODE_ALS;
constexpr int kFlicker = SPECTRAL_MODE_FLICKER;
constexpr std::chrono::milliseconds kHalfSecond(500);
constexpr std::uint32_t kShortExposureUs = 16000;  // keeps the polls of a default capture few

SpectralSensorDevice* driver_of(SpectralSensorDevice* sensor) { return sensor; }
SpectralSensorDevice* driver_of(SpectralSensor* sensor) { return sensor->m_device; }

void tell(const char* operation, long status) {
  __android_log_print(spectral::kLogInfo, kClientTag, "%s = %ld", operation, status);
}

void tell_value(const char* what, long value) {
  __android_log_print(spectral::kLogInfo, kClientTag, "%s: %ld", what, value);
}

// A client of a service. It logs time stamps relative to its own construction.
template <typename Service>
class User {
 public:
  User()
      : m_start_ns(static_cast<std::uint64_t>(android::elapsedRealtimeNano())),
        m_service(Service::Create()) {
    tell("Create", m_service != nullptr ? 0 : -1);
  }
  ~User() {
    Service::Destroy();
    tell("Destroy", 0);
  }
  User(const User&) = delete;
  User& operator=(const User&) = delete;

  Service* service() { return m_service; }
  SpectralSensorDevice* driver() { return driver_of(m_service); }

  void init(int mode) { tell("Init", m_service->Init(mode)); }
  void uninit(int mode) {
    m_service->Uninit(mode);
    tell("Uninit", 0);
  }

  void process(int mode) {
    SpectralSensorOutput output = {};
    output.als.valid = 1;  // a capture that fails must clear it
    const std::uint32_t before = state();
    const int status = m_service->Process(mode, &output);
    const bool stopped = state() == before || state() <= VD6281_STATE_IDLE;
    tell("Stop", stopped ? 0 : -22);  // the library must have logged a failed stop
    mode == kAls ? tell_result(output.als) : tell_result(output.flicker);
    tell(mode == kFlicker                ? "ProcessFlicker"
         : m_service->m_alsAeEnable != 0 ? "ProcessALSAuto"
                                         : "ProcessALS",
         status);
  }

  void tell_result(const ALSResult& als) {
    __android_log_print(spectral::kLogInfo, kClientTag, "als %d %x %a %a %a %a %a %a %a %a %llu",
                        als.valid, als.channelMask, als.value[0], als.value[1], als.value[2],
                        als.value[3], als.value[4], als.value[5], als.exposureMs, als.gain,
                        since_start(als.timestamp));
  }
  void tell_result(const FlickerResult& flicker) {
    __android_log_print(spectral::kLogInfo, kClientTag,
                        "flicker %d %x %u:%u %u:%u %u:%u %u:%u %a %llu", flicker.valid,
                        flicker.channel, flicker.freq_a, flicker.strength_a, flicker.freq_b,
                        flicker.strength_b, flicker.dominant_freq, flicker.dominant_strength,
                        flicker.secondary_freq, flicker.secondary_strength, flicker.gain,
                        since_start(flicker.timestamp_ns));
  }

 private:
  static std::uint32_t state() { return SpectralSensorDevice::m_VD6281Device[0].state; }

  unsigned long long since_start(std::uint64_t time_ns) const {
    return time_ns != 0 ? time_ns - m_start_ns : 0;
  }

  std::uint64_t m_start_ns;
  Service* m_service;
};

template <typename Service>
void bring_up() {
  User<Service> user;
  user.init(kAls);
  user.init(kFlicker);
  user.init(kAls);
  unsigned char id = 0;
  unsigned char revision = 0;
  char* uid = nullptr;
  bool powered = false;
  tell("GetProductVersion", user.driver()->VD6281_GetProductVersion(&id, &revision));
  tell("GetUid", user.driver()->VD6281_GetUid(&uid));
  tell("CheckEnableStatus", user.driver()->VD6281_CheckEnableStatus(&powered));
  user.uninit(kAls);
  user.uninit(kFlicker);
  user.uninit(kAls);
}

template <typename Service>
void als_default() {
  User<Service> user;
  user.service()->m_alsAeEnable = 0;
  user.service()->m_alsConfig.exposureTime = kShortExposureUs;
  user.init(kAls);
  for (int i = 0; i < 3; ++i) user.process(kAls);
  user.uninit(kAls);
}

template <typename Service>
void als_auto_exposure() {
  User<Service> user;
  user.init(kAls);
  for (int i = 0; i < 3; ++i) user.process(kAls);
  user.uninit(kAls);
}

template <typename Service>
void calibrated_als() {
  User<Service> user;
  user.init(kAls);
  tell_value("calibrated", user.service()->m_calibrationValid);
  user.process(kAls);
  user.service()->m_alsAeEnable = 0;
  user.service()->m_alsConfig.exposureTime = kShortExposureUs;
  user.process(kAls);
  user.uninit(kAls);
}

template <typename Service>
void flicker() {
  User<Service> user;
  user.init(kFlicker);
  for (int i = 0; i < 2; ++i) user.process(kFlicker);
  user.uninit(kFlicker);
}

template <typename Service>
void als_beside_flicker() {
  User<Service> user;
  user.init(kAls);
  user.init(kFlicker);
  tell("StartExpFLK", user.service()->StartExpFLK());
  user.process(kAls);
  FlickerResult result = {};
  tell("ReadFLK", user.service()->ReadFLK(&result));
  user.tell_result(result);
  tell("StopExpFLK", user.service()->StopExpFLK());
  user.uninit(kFlicker);
  user.uninit(kAls);
}

template <typename Service>
void reset() {
  User<Service> user;
  user.init(kAls);
  user.process(kAls);
  tell("ResetDevice", user.service()->ResetDevice());
  user.init(kAls);
  user.uninit(kAls);
  user.init(kAls);
  user.process(kAls);
  user.uninit(kAls);
}

// A client that powers the sensor and brings it up by the driver's operations, without a service's
// Init and Uninit.
class BareDriver : public User<SpectralSensorDevice> {
 public:
  BareDriver() {
    tell("Enable", driver()->VD6281_Enable(true));
    tell("VD6281_Init", driver()->VD6281_Init());
  }
  ~BareDriver() {
    tell("Term", driver()->VD6281_Term());
    tell("Enable", driver()->VD6281_Enable(false));
  }
};

void detector() {
  BareDriver user;
  VD6281_FlickerInfo_t info = {};
  tell("GetFlickerFrequency_Ref", user.driver()->VD6281_GetFlickerFrequency_Ref(&info, 1));
  tell_value("frequency", info.frequency);
}

void wrapped_als() {
  BareDriver user;
  AmbientLightSensor als;
  unsigned int applied = 0;
  tell("SetSamplingPeriod", als.SetSamplingPeriod(205000, &applied));
  for (const auto mode : {SPECTRAL_ALS_SYNCHRONOUS, SPECTRAL_ALS_SINGLE_SHOT}) {
    ALSConfig config;
    tell("SetExposureTime", als.SetExposureTime(100000, &config.exposureTime));
    tell("SetGain", als.SetGain(VD6281_CHANNEL_1, 2.5f, &config.channelGain[0]));
    tell("StartAls", als.Enable(true, mode));
    std::this_thread::sleep_for(kHalfSecond);
    ALSResult result = {};
    tell("GetAlsValues", als.GetAlsValues(config, &result));
    user.tell_result(result);
    tell("StopAls", als.Enable(false, mode));
  }
}

void wrapped_flicker() {
  BareDriver user;
  FlickerSensor flicker;
  float gain = 0.0f;
  unsigned short saturation = 0;
  static unsigned char data[1600];
  Spectral_FlickerInfo_t info = {};
  tell("SetPedestal", flicker.SetPedestal(3));
  tell("SetFlickerChannelMask", flicker.SetFlickerChannelMask(VD6281_CHANNEL_6));
  tell("SetGain", flicker.SetGain(VD6281_CHANNEL_6, 2.5f, &gain));
  tell("StartFlicker", flicker.Enable(true));
  tell("GetSaturationValue", flicker.GetSaturationValue(&saturation));
  tell("GetFlickerData", flicker.GetFlickerData(sizeof data, data));
  tell("GetFlickerFrequency", flicker.GetFlickerFrequency(&info));
  tell_value("frequency", info.frequency);
  tell("StopFlicker", flicker.Enable(false));
}

void controls() {
  BareDriver user;
  SpectralSensorDevice* driver = user.driver();
  struct Setting {
    VD6281_Control_Id_t id;
    unsigned int value;
  };
  for (const Setting& setting :
       {Setting{VD6281_CONTROL_PEDESTAL_ENABLE, 1}, Setting{VD6281_CONTROL_PEDESTAL_VALUE, 5},
        Setting{VD6281_CONTROL_OUTPUT_DARK_ENABLE, 1}, Setting{VD6281_CONTROL_SDA_DRIVE_VALUE, 8},
        Setting{VD6281_CONTROL_OTP_USAGE_ENABLE, 0}, Setting{VD6281_CONTROL_WA_STATUS, 460857}}) {
    unsigned int value = setting.value;
    tell("SetControl", driver->VD6281_SetControl(setting.id, setting.value));
    tell("GetControl", driver->VD6281_GetControl(setting.id, &value));
  }
  unsigned int period = 0;
  unsigned char bytes[4] = {};
  tell("SetSamplingPeriod", driver->VD6281_SetInterMeasurementTime(0, &period));
  tell("GetInterMeasurementTime", driver->VD6281_GetInterMeasurementTime(&period));
  tell("RdMultipleBytes", driver->VD6281_RdMultipleBytes(0xFE, bytes, 4));
  tell("StartAls", driver->VD6281_Start(VD6281_MODE_ALS_SINGLE_SHOT, 0x3F));
  std::this_thread::sleep_for(kHalfSecond);
  VD6281_Als_t values = {};
  unsigned char ready = 0;
  tell("GetAlsValues", driver->VD6281_GetAlsValues_Ref(0x3F, &values, &ready));
  tell_value("count", values.count[0]);
  tell("StopAls", driver->VD6281_Stop(VD6281_MODE_ALS_SINGLE_SHOT));
}

void dump() {
  User<SpectralSensorDevice> user;
  user.init(kFlicker);
  tell("StartExpFLK", user.service()->StartExpFLK());
  tell("QuilInit", user.driver()->VD6281_QuilInit());
  tell("QuilTunnelSetup", user.driver()->VD6281_QuilTunnelSetup());
  tell("QuilResetRdBuf", user.driver()->VD6281_QuilResetRdBuf());
  tell("QuilDump", user.driver()->VD6281_QuilDumpFlickerDataToFile(500));
  tell("QuilTunnelTerminate", user.driver()->VD6281_QuilTunnelTerminate());
  tell("StopExpFLK", user.service()->StopExpFLK());
  user.uninit(kFlicker);
}

template <typename Service>
void add_all_of(const std::string& facade, std::vector<Session>* all) {
  all->push_back({facade + " bring-up", Furnished::kPlain, bring_up<Service>});
  all->push_back({facade + " ALS default", Furnished::kPlain, als_default<Service>});
  all->push_back({facade + " ALS auto-exposure", Furnished::kPlain, als_auto_exposure<Service>});
  all->push_back({facade + " calibrated ALS", Furnished::kCalibrated, calibrated_als<Service>});
  all->push_back({facade + " flicker", Furnished::kPlain, flicker<Service>});
  all->push_back(
      {facade + " ALS beside flicker", Furnished::kDetectorAnswers, als_beside_flicker<Service>});
  all->push_back({facade + " reset", Furnished::kPlain, reset<Service>});
}

std::vector<Session> make_sessions() {
  std::vector<Session> all;
  add_all_of<SpectralSensorDevice>("device", &all);
  add_all_of<SpectralSensor>("layered", &all);
  all.push_back({"driver detector", Furnished::kDetectorAnswers, detector});
  all.push_back({"driver controls", Furnished::kPlain, controls});
  all.push_back({"driver dump", Furnished::kPlain, dump});
  all.push_back({"wrapper AmbientLightSensor", Furnished::kPlain, wrapped_als});
  all.push_back({"wrapper FlickerSensor", Furnished::kDetectorAnswers, wrapped_flicker});
  return all;
}

}  // namespace

const std::vector<Session>& sessions() {
  static const std::vector<Session> all = make_sessions();
  return all;
}

}  // namespace sweep
