// Fuzzes the chip's answers: any byte from any register, with garbage in the bits above it, and any
// access failing or coming short, through bring-up, ambient light, flicker, the chip's detector and
// the public reads.
//
// An input is a byte of choices, a block of faults (FaultScript in support.h), a block whose first
// 16 bytes are the OTP's registers, and the answers to all other reads in their order. When these
// have run out, the simulated chip answers the reads itself, except for those of the detector.

#include "driver/register_map.h"
#include "fuzz/support.h"

using fuzz::Bench;
using fuzz::Input;
using fuzz::require;

namespace reg = spectral::reg;
using spectral::address_of;
using spectral::Register;

namespace {

enum Choice : std::uint8_t {
  kCut = 0x03,  // 0..2; 3 takes identity and OTP status from the input too
  kLayered = 0x04,
  kFlickerFirst = 0x10,
};

constexpr std::uint32_t kGarbage = 0xA5A5A500;  // in the bits above the register's byte

class Answers {
 public:
  Answers(std::string otp, Input* rest, bool whole)
      : m_otp(std::move(otp)), m_rest(rest), m_whole(whole) {
    m_otp.resize(2 * reg::kOtpBankRegisters);
  }

  std::optional<std::uint32_t> next(std::uint8_t address) {
    if (address >= address_of(Register::kOtpBank0) &&
        address < address_of(Register::kOtpBank0) + m_otp.size()) {
      return garble(m_otp[static_cast<std::size_t>(address - address_of(Register::kOtpBank0))]);
    }
    const bool decides_all =
        address <= address_of(Register::kRevisionId) || address == address_of(Register::kOtpStatus);
    if (m_rest->is_at_end()) return detector(address);
    if (decides_all && !m_whole) return std::nullopt;
    return garble(static_cast<char>(m_rest->byte()));
  }

 private:
  static std::uint32_t garble(char byte) { return kGarbage | static_cast<std::uint8_t>(byte); }

  // Lets the detector report a complete measurement at once. The simulated chip would leave it
  // incomplete for thousands of polls.
  static std::optional<std::uint32_t> detector(std::uint8_t address) {
    const int offset = address - address_of(Register::kFlickerDetector);
    if (offset < 0 || offset >= reg::kFlickerDetectorRegisters) return std::nullopt;
    return offset == 4 ? 0xFF : 0;
  }

  std::string m_otp;
  Input* m_rest;
  bool m_whole;
};

template <typename Service>
void measure_light(Service* service) {
  SpectralSensorOutput output = {};
  service->Init(SPECTRAL_MODE_ALS);
  for (int i = 0; i < 4; ++i) {
    service->m_alsAeEnable = i == 2 ? 0 : 1;
    const int status = service->Process(SPECTRAL_MODE_ALS, &output);
    require(status == 0 || status == -22, "an ambient-light measurement returns 0 or -22");
    fuzz::check(output.als);
    Bench::check_record();
  }
}

template <typename Service>
void measure_flicker(Service* service) {
  FlickerResult result = {};
  service->Init(SPECTRAL_MODE_FLICKER);
  service->StartExpFLK_AutoGain();
  require(service->m_flkChannelMask == 0x20 || service->m_flkChannelMask == 0x04,
          "the gain search ends on one of its channels");
  service->ReadFLK(&result);
  service->StopExpFLK();
  Bench::check_record();
  SpectralSensorOutput output = {};
  require(service->Process(SPECTRAL_MODE_FLICKER, &output) == 0, "a flicker measurement returns 0");
  fuzz::check(output.flicker);
  fuzz::check_frequencies(output.flicker);
}

void read_everything(SpectralSensorDevice* device) {
  unsigned int value = 0;
  for (const unsigned int id : {0u, 1u, 3u, 4u, 128u, 129u}) {
    value = 460857;  // a work-around's identifier
    const auto control = static_cast<VD6281_Control_Id_t>(id);
    if (device->VD6281_GetControl(control, &value) == 0) device->VD6281_SetControl(control, value);
  }
  if (device->VD6281_GetInterMeasurementTime(&value) == 0) {
    require(value % 20500 == 0 && value <= 5227500, "the period is one of the chip's");
  }
  for (unsigned int channel = 1; channel <= 0x20; channel <<= 1) {
    VD6281_Color_Id_t color = VD6281_COLOR_UNKNOWN;
    device->VD6281_GetChannelColor(static_cast<VD6281_Channel_Id_t>(channel), &color);
    require(color >= VD6281_COLOR_CLEAR && color <= VD6281_COLOR_UNKNOWN,
            "a color is one of VD6281_Color_Id_t");
  }
  unsigned char bytes[40];
  device->VD6281_RdMultipleBytes(0xF0, bytes, sizeof bytes);
  bool enabled = false;
  device->VD6281_CheckEnableStatus(&enabled);

  VD6281_FlickerInfo_t info = {};
  if (device->VD6281_GetFlickerFrequency_Ref(&info, 0) == 0) {
    require(info.frequency <= 255 * 16000, "a frequency is one that the counters can give");
    require(info.confidence <= 1 || info.confidence == 100, "a confidence is 0, 1 or 100");
    require(info.valid == (info.confidence != 0), "valid and confidence agree");
  }
  VD6281_Als_t values = {};
  unsigned char ready = 0;
  device->VD6281_Start(VD6281_MODE_ALS_SYNCHRONOUS, 0x3F);
  if (device->VD6281_GetAlsValues_Ref(0x3F, &values, &ready) == 0 && ready != 0) {
    for (const std::uint32_t count : values.count) require(count <= 0xFFFFFF, "24-bit count");
  }
  device->VD6281_Stop(VD6281_MODE_ALS_SYNCHRONOUS);
}

template <typename Service>
void run(Service* service, bool flicker_first) {
  if (flicker_first) measure_flicker(service);
  measure_light(service);
  if (!flicker_first) measure_flicker(service);
  service->Uninit(SPECTRAL_MODE_FLICKER);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Input input(bytes, size);
  Bench bench;
  const std::uint8_t choices = input.byte();
  const std::string faults = input.block();
  bench.phone.chip().cut(static_cast<spectralsim::Cut>(std::min(choices & kCut, 2)));
  Answers answers(input.block(), &input, (choices & kCut) == kCut);
  bench.phone.answer_registers([&answers](std::uint8_t address) { return answers.next(address); });

  bench.fail_as(faults);
  if ((choices & kLayered) != 0) {
    run(bench.layered, (choices & kFlickerFirst) != 0);
  } else {
    run(bench.device, (choices & kFlickerFirst) != 0);
  }
  read_everything(bench.device);
  Bench::check_record();
  bench.phone.answer_registers(nullptr);
  return 0;
}
