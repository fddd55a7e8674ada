#include "flicker_sensor.h"

#include <chrono>
#include <cstring>
#include <thread>

#include "driver/fixed_point.h"
#include "driver/register_map.h"
#include "driver/single_channel.h"
#include "flicker/tunnel_format.h"
#include "platform/log.h"
#include "spectral_sensor_device.h"
#include "spectral_status.h"

using spectral::Register;

namespace {

constexpr char kTag[] = "flicker-sensor";
constexpr std::uint32_t kSupportedChannels = 0x3E;
constexpr int kBytesPerMs =
    static_cast<int>(spectral::kFlickerPayloadSize) / spectral::kMsPerPayload;
constexpr unsigned int kMaxPedestal = 7;
constexpr auto kPollPause = std::chrono::milliseconds(10);
constexpr auto kPollLimit = std::chrono::microseconds(2001000);

std::chrono::microseconds since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

}  // namespace

FlickerSensor::FlickerSensor() : m_device(SpectralSensorDevice::Create()) {}

FlickerSensor::~FlickerSensor() = default;

int FlickerSensor::Enable(bool enable) {
  return enable ? EnableFlickerSensor() : DisableFlickerSensor();
}

int FlickerSensor::EnableFlickerSensor() {
  constexpr char kName[] = "EnableFlickerSensor";
  constexpr VD6281_FlickerOutputType_t kType = VD6281_FLICKER_OUTPUT_1;
  if (int status = m_device->VD6281_SetFlickerOutputType(kType)) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Failed to set flicker output type %d, error code %d", kName,
                       static_cast<int>(kType), status);
    return status;
  }
  const int status =
      m_device->VD6281_Start(VD6281_MODE_FLICKER, static_cast<unsigned char>(m_channelMask));
  if (status != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Failed to start flicker, channel mask 0x%x, error code %d", kName,
                       m_channelMask, status);
  }
  return status;
}

int FlickerSensor::DisableFlickerSensor() { return m_device->VD6281_Stop(VD6281_MODE_FLICKER); }

int FlickerSensor::GetFlickerData(int size, unsigned char* data) {
  constexpr char kName[] = "GetFlickerData";
  if (size < 1) return SPECTRAL_ARGUMENT_REFUSED;
  if (int status = m_device->VD6281_QuilInit()) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Failed to Init Quillon Sensor, error code %d", kName, status);
    return status;
  }
  if (int status = m_device->VD6281_QuilTunnelSetup()) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Failed to setup Quillon Sensor, error code %d", kName, status);
    return status;
  }
  if (int status = m_device->VD6281_QuilResetRdBuf()) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Failed to reset buffer to get flicker raw data", kName);
    m_device->VD6281_QuilTunnelTerminate();
    return status;
  }
  const unsigned char* payloads =
      m_device->VD6281_GetFlickerDataBuffer(static_cast<unsigned int>(size / kBytesPerMs));
  if (payloads == nullptr) {
    SPECTRAL_LOG_ERROR(kTag, "%s: flicker raw data is null", kName);
    m_device->VD6281_QuilTunnelTerminate();
    return SPECTRAL_ARGUMENT_REFUSED;
  }
  std::memcpy(data, payloads, static_cast<std::size_t>(size));
  const int status = m_device->VD6281_QuilTunnelTerminate();
  if (status != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Failed to terminate Quillon Sensor, error code %d", kName,
                       status);
  }
  return status;
}

int FlickerSensor::GetFlickerFrequency(Spectral_FlickerInfo_t* info) {
  if (info == nullptr) return SPECTRAL_ARGUMENT_REFUSED;
  VD6281_FlickerInfo_t answer = {};
  answer.channel = info->channel;
  info->confidence = 0;
  info->valid = 0;
  const auto start = std::chrono::steady_clock::now();
  int status = SPECTRAL_OK;
  for (;;) {
    status = m_device->VD6281_GetFlickerFrequency(&answer);
    if (status != SPECTRAL_OK) break;
    std::this_thread::sleep_for(kPollPause);
    if (since(start) >= kPollLimit) {
      status = SPECTRAL_TIMED_OUT;
      break;
    }
    if (answer.confidence != 0) break;
  }
  SPECTRAL_LOG(spectral::kLogDebug, kTag, "%s: Polling took %lld ms, rc=%d", "GetFlickerFrequency",
               static_cast<long long>(since(start).count() / 1000), status);
  info->gain = answer.gain;
  info->frequency = answer.frequency;
  info->confidence = answer.confidence;
  info->valid = answer.valid;
  return status;
}

int FlickerSensor::GetSaturationValue(unsigned short* value) {
  if (value == nullptr) return SPECTRAL_ARGUMENT_REFUSED;
  constexpr unsigned char kCounterHigh = address_of(Register::kFlickerDetector);
  constexpr unsigned char kCounterLow = address_of(Register::kFlickerDetector + 1);
  unsigned char high = 0;
  unsigned char low = 0;
  if (int status = m_device->VD6281_RdByte(kCounterHigh, &high)) return status;
  if (int status = m_device->VD6281_RdByte(kCounterLow, &low)) return status;
  *value = static_cast<unsigned short>(high << 8 | low);
  return SPECTRAL_OK;
}

int FlickerSensor::SetFlickerChannelMask(unsigned int mask) {
  if (IsValidSingleChannel(mask, kSupportedChannels) == 0) return SPECTRAL_ARGUMENT_REFUSED;
  m_channelMask = mask;
  return SPECTRAL_OK;
}

int FlickerSensor::IsValidSingleChannel(unsigned int mask, unsigned int supported) {
  return spectral::is_single_channel_of(mask, supported, kTag) ? 1 : 0;
}

int FlickerSensor::SetGain(unsigned int mask, float gain, float* applied) {
  if (applied == nullptr) return SPECTRAL_ARGUMENT_REFUSED;
  if (IsValidSingleChannel(mask, m_channelMask) == 0) return SPECTRAL_ARGUMENT_REFUSED;
  unsigned short actual = 0;
  if (int status = m_device->VD6281_SetGain(static_cast<VD6281_Channel_Id_t>(mask),
                                            spectral::to_gain_q8(gain), &actual)) {
    return status;
  }
  *applied = spectral::gain_factor(actual);
  return SPECTRAL_OK;
}

int FlickerSensor::SetPedestal(unsigned char value) {
  constexpr char kName[] = "SetPedestal";
  if (value > kMaxPedestal) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Pedestal value is too big. Expect <= %u.", kName, kMaxPedestal);
    return SPECTRAL_ARGUMENT_REFUSED;
  }
  if (int status = m_device->VD6281_SetControl(VD6281_CONTROL_PEDESTAL_VALUE, value)) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Pedestal value setup failure error code=%d", kName, status);
  }
  const int status = m_device->VD6281_SetControl(VD6281_CONTROL_PEDESTAL_ENABLE, 1);
  if (status != SPECTRAL_OK) {
    SPECTRAL_LOG_ERROR(kTag, "%s: Pedestal value enable failure error code=%d", kName, status);
  }
  return status;
}
