// Fuzzes sequences of calls to all public classes, with any arguments that the headers allow, in
// any order and state, on a phone whose accesses fail.
//
// An input is the cut, the detector's seven registers, a byte of flags that describe the phone
// (furnish), a block of faults (FaultScript in support.h), and the calls. Each call is a byte that
// selects a table of operations (kKinds), a byte that selects an operation of that table, and the
// operation's arguments. Operations that must be called in a fixed order, such as those of a
// capture through the tunnel, are one operation here. The lower-case operations of the driver make
// no checks, so only those that are safe in every state are called.

#include <array>
#include <tuple>
#include <vector>

#include "driver/register_map.h"
#include "fuzz/support.h"

using fuzz::Bench;
using fuzz::Input;
using fuzz::require;

namespace reg = spectral::reg;
using spectral::address_of;
using spectral::Register;

namespace {

constexpr int kMostCalls = 48;

// The caller that an input describes. It draws the arguments of the calls, and owns the records
// that they read and fill.
class Caller {
 public:
  Caller(Bench* on, Input* input) : bench(on), in(input) {}

  template <typename Class>
  Class* object() {
    if constexpr (std::is_same_v<Class, SpectralSensorDevice>) return bench->device;
    if constexpr (std::is_same_v<Class, SpectralSensor>) return bench->layered;
    if constexpr (std::is_same_v<Class, AmbientLightSensor>) return &als;
    if constexpr (std::is_same_v<Class, FlickerSensor>) return &flicker;
  }

  // Returns the eight records of this type, which all calls share.
  template <typename Value>
  Value* record() {
    return std::get<std::array<Value, 8>>(m_records).data();
  }

  // Draws an argument: any value of its type, small ones more often; for a reference or a pointer,
  // the shared record or, where kNullToo allows it, null.
  template <typename Argument, bool kNullToo>
  Argument draw() {
    if constexpr (std::is_reference_v<Argument>) {
      return *record<std::decay_t<Argument>>();
    } else if constexpr (std::is_pointer_v<Argument>) {
      const bool null = kNullToo && in->below(16) == 0;
      return null ? nullptr : record<std::remove_cv_t<std::remove_pointer_t<Argument>>>();
    } else if constexpr (std::is_same_v<Argument, bool>) {
      return in->flag();
    } else if constexpr (std::is_floating_point_v<Argument> || sizeof(Argument) < sizeof(int)) {
      return in->take<Argument>();
    } else {
      const std::uint8_t range = in->byte();
      if (range % 4 == 0) return static_cast<Argument>(in->take<std::uint32_t>());
      return static_cast<Argument>(range % 4 == 1 ? in->byte() : range / 4 % 3);
    }
  }
  int mode() { return draw<int, false>(); }

  Bench* const bench;
  Input* const in;
  AmbientLightSensor als;
  FlickerSensor flicker;

 private:
  template <typename... Values>
  using Records = std::tuple<std::array<Values, 8>...>;

  Records<unsigned char, unsigned short, unsigned int, float, bool, char*, ALSConfig, ALSResult,
          FlickerResult, SpectralSensorOutput, VD6281_Als_t, VD6281_Color_Id_t,
          VD6281_FlickerInfo_t, Spectral_FlickerInfo_t>
      m_records = {};
};

template <bool kNullToo, typename Class, typename Result, typename... Arguments>
void invoke(Caller* c, Result (Class::*method)(Arguments...)) {
  Class* object = c->object<Class>();
  // The braces make every compiler draw the arguments from left to right.
  const std::tuple<Arguments...> arguments{c->draw<Arguments, kNullToo>()...};
  std::apply([&](Arguments... each) { static_cast<void>((object->*method)(each...)); }, arguments);
}

// Calls an operation with arguments drawn by their types. With kNullToo its pointers may be null.
template <auto kMethod, bool kNullToo = true>
void call(Caller* c) {
  invoke<kNullToo>(c, kMethod);
}

template <typename Service>
void process(Caller* c) {
  auto* output = c->draw<SpectralSensorOutput*, true>();
  const int mode = c->mode();
  const int status = c->object<Service>()->Process(mode, output);
  require(status == 0 || status == -22, "Process returns 0 or -22");
  if (output == nullptr) return;
  require(status == 0 || mode != SPECTRAL_MODE_FLICKER, "Process returns 0 for flicker");
  // An ALS result is not checked after a failed capture, which returns the previous result:
  // CorrectALSRAW may have set that to anything. Nor is it checked on a calibrated unit, whose
  // factors may have been computed from any readings of a caller.
  const bool measured = status == 0 && c->object<Service>()->m_calibrationValid == 0;
  if (mode == SPECTRAL_MODE_ALS && measured) fuzz::check(output->als);
  // The frequencies of a flicker result are not checked either, because the tracking may carry some
  // that a caller has passed in.
  if (mode == SPECTRAL_MODE_FLICKER) fuzz::check(output->flicker);
}

// Fills the records that operations read.
void fill_records(Caller* c) {
  auto* config = c->record<ALSConfig>();
  config->exposureTime = c->draw<unsigned int, false>();
  for (float& gain : config->channelGain) gain = c->in->take<float>();
  for (std::uint16_t& code : config->gainCode) code = c->in->take<std::uint16_t>();
  auto* result = c->record<ALSResult>();
  result->channelMask = c->in->byte();
  for (float& value : result->value) value = c->in->take<float>();
  result->exposureMs = c->in->take<float>();
  result->gain = c->in->take<float>();
  auto* counts = c->record<VD6281_Als_t>();
  counts->channels = c->in->byte();
  for (std::uint32_t& count : counts->raw_count) count = c->draw<unsigned int, false>();
  for (int n = 0; n < 6; ++n) c->record<unsigned short>()[n] = c->in->take<std::uint16_t>();
  for (int n = 0; n < 8; ++n) c->record<float>()[n] = c->in->take<float>();
}

// Sets the public fields that a caller may write directly.
template <typename Service>
void set_fields(Caller* c) {
  auto* service = c->object<Service>();
  service->m_alsChannelMask = c->in->byte();
  service->m_flkChannelMask = c->draw<unsigned int, false>();
  service->m_alsAeEnable = c->in->byte();
  service->m_deviceType = c->in->byte();
  service->m_alsConfig = *c->record<ALSConfig>();
  c->als.m_channelMask = c->draw<unsigned int, false>();
  c->flicker.m_channelMask = c->draw<unsigned int, false>();
}

template <typename Service>
void capture(Caller* c) {
  std::vector<unsigned char> out(16000);
  c->object<Service>()->ReadFLKData(c->in->take<std::int16_t>(), out.data());
}

void get_flicker_data(Caller* c) {
  const int size = c->in->take<std::int16_t>();
  std::vector<unsigned char> data(size > 0 && size <= 16015 ? static_cast<std::size_t>(size) : 1);
  c->flicker.GetFlickerData(size, data.data());
}

void capture_by_hand(Caller* c) {
  SpectralSensorDevice* device = c->bench->device;
  const unsigned int len_ms = c->in->take<std::uint16_t>();
  device->VD6281_QuilInit();
  device->VD6281_QuilTunnelSetup();
  if (c->in->flag()) device->VD6281_QuilResetRdBuf();
  if (c->in->flag()) device->VD6281_GetFlickerDataBuffer(len_ms);
  if (c->in->flag()) device->VD6281_QuilDumpFlickerDataToFile(len_ms);
  device->VD6281_QuilTunnelTerminate();
}

void read_registers(Caller* c) {
  const unsigned char address = c->in->byte();
  const int count = static_cast<int>(c->in->take<std::uint8_t>()) - 128;
  std::vector<unsigned char> data(count > 0 ? static_cast<std::size_t>(count) : 1);
  c->bench->device->VD6281_RdMultipleBytes(address, data.data(), count);
}

void read_otp(Caller* c) {
  const int bank = c->in->below(2);
  const int low = c->in->below(64);
  const int high = c->in->below(64);
  auto* value = c->record<unsigned int>();
  c->bench->device->otp_read_bank(&Bench::record(), bank, low, high, value);
  c->bench->device->otp_read(&Bench::record(), low, high, value, bank);
}

void detect(Caller* c) {
  auto* info = c->draw<VD6281_FlickerInfo_t*, true>();
  c->bench->device->VD6281_GetFlickerFrequency_Ref(info, c->in->take<std::int16_t>());
}

void start_over(Caller* c) {
  c->bench->destroy();
  c->bench->create();
  c->als.m_device = c->flicker.m_device = c->bench->device;
}

// Sets an enable flag some milliseconds later, in the middle of a wait, as another thread would.
template <typename Service>
void set_flag_later(Caller* c) {
  const int which = c->mode();
  const bool on = c->in->flag();
  c->bench->phone.clock().after_ms(c->in->byte(), [which, on] {
    if (Service::m_pInstance != nullptr) Service::m_pInstance->SetEnableFlag(which, on);
  });
}

using Operation = void (*)(Caller* c);

using Device = SpectralSensorDevice;
using Layered = SpectralSensor;
using Als = AmbientLightSensor;
using Flicker = FlickerSensor;

constexpr Operation kWithArgumentsOfTheirOwn[] = {process<Device>,
                                                  process<Layered>,
                                                  set_fields<Device>,
                                                  set_fields<Layered>,
                                                  capture<Device>,
                                                  capture<Layered>,
                                                  set_flag_later<Device>,
                                                  set_flag_later<Layered>,
                                                  fill_records,
                                                  get_flicker_data,
                                                  capture_by_hand,
                                                  read_registers,
                                                  read_otp,
                                                  detect,
                                                  start_over};

// Calls the operation that the next byte selects.
template <std::size_t kCount>
void one_of(const Operation (&operations)[kCount], Caller* c) {
  operations[c->in->byte() % kCount](c);
}

template <bool kNullToo, auto... kMethods>
void call_one_of(Caller* c) {
  constexpr Operation kCalls[] = {call<kMethods, kNullToo>...};
  one_of(kCalls, c);
}

template <typename Service>
constexpr Operation kServiceCalls =
    call_one_of<true, &Service::Init, &Service::Uninit, &Service::ResetDevice,
                &Service::SetEnableFlag, &Service::StartExpALS, &Service::StopExpALS,
                &Service::ConfigALS, &Service::ReadALS, &Service::CaptureALSDefault,
                &Service::CaptureALSAE, &Service::ALSAE, &Service::LookUpGain,
                &Service::StartExpFLK_AutoGain, &Service::StartExpFLK, &Service::StopExpFLK,
                &Service::ComputeHarmonicContribution, &Service::ReadFLK,
                &Service::LoadFlickerLibrary, &Service::UnloadFlickerLibrary,
                &Service::check_dl_error, &Service::PrepareCalibrationData, &Service::GetDeviceType,
                &Service::GetFATPData, &Service::ComputeCalData, &Service::CorrectALSRAW>;

constexpr Operation kDriverCalls =
    call_one_of<true, &Device::VD6281_Enable, &Device::VD6281_Init, &Device::VD6281_Term,
                &Device::VD6281_GetVersion, &Device::VD6281_GetProductVersion,
                &Device::VD6281_GetUid, &Device::VD6281_WrByte, &Device::VD6281_SetExposureTime,
                &Device::VD6281_GetExposureTime, &Device::VD6281_SetGain, &Device::VD6281_GetGain,
                &Device::VD6281_SetInterMeasurementTime, &Device::VD6281_GetInterMeasurementTime,
                &Device::VD6281_GetChannelColor, &Device::VD6281_Start, &Device::VD6281_Stop,
                &Device::VD6281_SetFlickerOutputType, &Device::VD6281_GetAlsValues,
                &Device::VD6281_GetAlsValues_Ref, &Device::VD6281_GetFlickerFrequency,
                &Device::VD6281_QuilResetRdBuf, &Device::VD6281_QuilTunnelTerminate,
                &Device::VD6281_GetFlickerDataBuffer, &Device::VD6281_SetControl,
                &Device::VD6281_GetControl, &Device::channelId_2_index, &Device::byte_bit_reversal,
                &Device::cook_values_slope_channel, &Device::ac_mode_update>;

constexpr Operation kWrapperCalls =
    call_one_of<true, &Als::Enable, &Als::GetAlsValues, &Als::SetExposureTime, &Als::SetGain,
                &Als::IsValidSingleChannel, &Als::SetSamplingPeriod, &Flicker::Enable,
                &Flicker::GetFlickerFrequency, &Flicker::GetSaturationValue,
                &Flicker::SetFlickerChannelMask, &Flicker::IsValidSingleChannel, &Flicker::SetGain,
                &Flicker::SetPedestal>;

constexpr Operation kCallsWithoutNull =
    call_one_of<false, &Device::VD6281_CheckEnableStatus, &Device::VD6281_RdByte,
                &Device::FlickerCoreWrapper, &Layered::FlickerCoreWrapper,
                &Device::FlickerResultProcessing, &Layered::FlickerResultProcessing,
                &Als::ConvertRawAlsValueToAlsResult>;

void operate(Caller* c) { one_of(kWithArgumentsOfTheirOwn, c); }

constexpr Operation kKinds[] = {operate,      kServiceCalls<Device>, kServiceCalls<Layered>,
                                kDriverCalls, kWrapperCalls,         kCallsWithoutNull};

void furnish(Bench* bench, Input* in) {
  bench->phone.chip().cut(static_cast<spectralsim::Cut>(in->below(3)));
  std::string detector = in->bytes(reg::kFlickerDetectorRegisters);
  detector.resize(reg::kFlickerDetectorRegisters, '\xFF');
  bench->phone.answer_registers([detector](std::uint8_t address) -> std::optional<std::uint32_t> {
    const int offset = address - address_of(Register::kFlickerDetector);
    if (offset < 0 || offset >= reg::kFlickerDetectorRegisters) return std::nullopt;
    return static_cast<std::uint8_t>(detector[static_cast<std::size_t>(offset)]);
  });
  const std::uint8_t lacks = in->byte();
  if ((lacks & 1) != 0) bench->phone.remove_analysis_library();
  if ((lacks & 2) != 0) bench->phone.remove(spectralsim::Node::kTunnel);
  if ((lacks & 4) == 0) bench->phone.model("ostrel");
  if ((lacks & 8) != 0) bench->phone.scene("sunlight");
  bench->fail_as(in->block());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Input input(bytes, size);
  Bench bench;
  furnish(&bench, &input);
  Caller caller(&bench, &input);
  for (int i = 0; i < kMostCalls && !input.is_at_end(); ++i) {
    one_of(kKinds, &caller);
    Bench::check_record();
  }
  return 0;
}
