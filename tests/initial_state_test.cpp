// The state that the library begins from: at its load, right after construction, and after what
// clears a part of the record.

#include <unistd.h>

#include <algorithm>

#include "spectral_sensor.h"
#include "tests/support/sensor_test.h"

namespace {

// Taken before any test, and so as the process finds the record when the library has been loaded.
const VD6281_device g_record_at_load = SpectralSensorDevice::m_VD6281Device[0];

bool is_zero(const void* from, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(from);
  return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

bool is_zero(const VD6281_device& dev, std::size_t from, std::size_t to) {
  return is_zero(reinterpret_cast<const unsigned char*>(&dev) + from, to - from);
}

constexpr std::size_t kDescriptors = offsetof(VD6281_device, fd_read_byte);
constexpr std::size_t kBehindDescriptors = offsetof(VD6281_device, als_xfer);
constexpr std::size_t kTunnelBlock = offsetof(VD6281_device, tun_dev);

void expect_no_descriptor(const VD6281_device& dev) {
  EXPECT_EQ(dev.fd_read_byte, -1);
  EXPECT_EQ(dev.fd_write_byte, -1);
  EXPECT_EQ(dev.fd_dev, -1);
}

class InitialState : public SensorTest {
 protected:
  static void dirty_record() { std::memset(&dev(), 0xA5, sizeof(VD6281_device)); }
  ~InitialState() override {
    std::memset(&dev(), 0, sizeof(VD6281_device));
    dev().fd_read_byte = dev().fd_write_byte = dev().fd_dev = -1;
  }
};

TEST_F(InitialState, TheRecordIsFreeWhenTheLibraryIsLoaded) {
  expect_no_descriptor(g_record_at_load);
  EXPECT_TRUE(is_zero(g_record_at_load, 0, kDescriptors));
  EXPECT_TRUE(is_zero(g_record_at_load, kBehindDescriptors, sizeof(VD6281_device)));
}

TEST_F(InitialState, SetUpClearsEveryField) {
  dirty_record();
  sensor->setup_device(&dev());
  expect_no_descriptor(dev());
  EXPECT_EQ(std::exchange(dev().state, 0u), 1u);
  EXPECT_EQ(std::exchange(dev().otp_usage_enable, 0u), 1u);
  EXPECT_EQ(std::exchange(dev().exposure, 0u), 80000u);
  EXPECT_TRUE(is_zero(dev(), 0, kDescriptors));
  EXPECT_TRUE(is_zero(dev(), kBehindDescriptors, sizeof(VD6281_device)));
}

TEST_F(InitialState, NoFailedBringUpLeavesADescriptor) {
  for (const Node node : {Node::kReadByte, Node::kWriteByte, Node::kDevice}) {
    dirty_record();
    dev().state = 0;
    phone.heal().fail(Fault::open(node));
    sensor->VD6281_Enable(true);
    EXPECT_EQ(sensor->VD6281_Init(), -2);
    expect_no_descriptor(dev());
    for (const auto& event : phone.trace()) {
      EXPECT_FALSE(event.is_register_write()) << "no write reaches a node: " << describe(event);
    }
    phone.clear_trace();
  }
  sensor->VD6281_Enable(false);
}

TEST_F(InitialState, DescriptorZeroIsADescriptor) {
  bring_up();
  sensor->VD6281_Term();
  const int saved = dup(0);
  close(0);
  bring_up();
  ASSERT_EQ(dev().fd_read_byte, 0) << "the lowest free number";
  EXPECT_EQ(sensor->VD6281_Term(), 0);
  EXPECT_EQ(phone.open_descriptors(), 0);
  expect_no_descriptor(dev());
  sensor->VD6281_Enable(false);
  dup2(saved, 0);
  close(saved);
}

TEST_F(InitialState, QuilInitClearsTheTunnelBlockAlone) {
  dirty_record();
  EXPECT_EQ(sensor->VD6281_QuilInit(), 0);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(dev().magic), 4), "EMOR");
  EXPECT_EQ(std::exchange(dev().id_valid, std::uint8_t{0}), 1);
  EXPECT_EQ(std::exchange(dev().hdr_size, 0u), 28u);
  std::memset(dev().magic, 0, sizeof dev().magic);
  EXPECT_TRUE(is_zero(dev(), kTunnelBlock, sizeof(VD6281_device)));
  EXPECT_EQ(dev().single_xfer.data[31], 0xA5A5A5A5u);
}

TEST_F(InitialState, QuilResetClearsBuffersAndTablesAlone) {
  dirty_record();
  EXPECT_EQ(sensor->VD6281_QuilResetRdBuf(), 0);
  EXPECT_EQ(dev().rd_len, 0);
  EXPECT_EQ(dev().carry_len, 0);
  EXPECT_EQ(dev().parsed_bytes, 0);
  EXPECT_TRUE(is_zero(dev().rd_buf, sizeof dev().rd_buf));
  EXPECT_TRUE(is_zero(dev().flicker_buf, sizeof dev().flicker_buf));
  EXPECT_TRUE(is_zero(dev().last_seq, sizeof dev().last_seq));
  EXPECT_TRUE(is_zero(dev().seq_seen, sizeof dev().seq_seen));
  EXPECT_TRUE(is_zero(dev().seq_lost, sizeof dev().seq_lost));
  EXPECT_TRUE(is_zero(dev().pkt_ts, sizeof dev().pkt_ts));
  EXPECT_EQ(dev().pkt_start, nullptr);
  EXPECT_EQ(dev().buf_itr, nullptr);
  EXPECT_EQ(dev().magic[0], 0xA5);
  EXPECT_EQ(dev().hdr_size, 0xA5A5A5A5u);
  EXPECT_EQ(dev().cur_id, 0xA5A5);
}

// Every default of a facade; both have them.
template <typename Facade>
void expect_defaults(const Facade& facade) {
  EXPECT_EQ(facade.m_alsConfig.exposureTime, 320000u);
  EXPECT_THAT(facade.m_alsConfig.channelGain, ::testing::Each(1.0f));
  EXPECT_THAT(facade.m_alsConfig.gainCode, ::testing::Each(0));
  EXPECT_EQ(facade.m_alsChannelMask, 0x1Bu);
  EXPECT_EQ(facade.m_flkChannelMask, 0x20u);
  EXPECT_TRUE(is_zero(&facade.m_alsResult, sizeof facade.m_alsResult));
  FlickerResult result = facade.m_flkResult;
  EXPECT_EQ(std::exchange(result.gain, 0.0f), 1.0f);
  EXPECT_TRUE(is_zero(&result, sizeof result));
  EXPECT_EQ(facade.m_flickerLibHandle, nullptr);
  EXPECT_EQ(facade.m_pfnFlickerCreate, nullptr);
  EXPECT_EQ(facade.m_pfnFlickerProcess, nullptr);
  EXPECT_EQ(facade.m_pfnFlickerDestroy, nullptr);
  EXPECT_EQ(facade.m_flickerCore, nullptr);
  EXPECT_TRUE(is_zero(facade.m_flkRawData, sizeof facade.m_flkRawData));
  EXPECT_TRUE(is_zero(facade.m_flkSamples, sizeof facade.m_flkSamples));
  constexpr std::uint32_t kNone = 0xFFFFFFFF;
  std::uint32_t words[17];
  std::memcpy(words, &facade.m_flkTrack, sizeof words);
  EXPECT_THAT(words, ElementsAre(0, kNone, 0, kNone, 0, 0, 0, 0, 0, 100, 120, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(facade.m_deviceType, 0u);
  EXPECT_EQ(facade.m_calibrationValid, 0);
  EXPECT_THAT(facade.m_calibrationFactor, ::testing::Each(1.0f));
  EXPECT_EQ(facade.m_flkRefCount, 0);
  EXPECT_EQ(facade.m_alsRefCount, 0);
  EXPECT_EQ(facade.m_alsAeEnable, 1);
  EXPECT_EQ(facade.m_alsEnableFlag, 1);
  EXPECT_EQ(facade.m_flkEnableFlag, 1);
  EXPECT_EQ(facade.m_powered, 0);
}

TEST_F(InitialState, ObjectsHaveTheirDefaultsRightAfterConstruction) {
  const SpectralSensorDevice device;
  expect_defaults(device);
  EXPECT_EQ(device.m_flkGain, 1);
  EXPECT_EQ(device.m_flkCaptureTimeNs, 0u);
  const SpectralSensor layered;
  expect_defaults(layered);
  EXPECT_EQ(layered.m_flkGain, 0.00390625f);
  EXPECT_EQ(layered.m_device, nullptr);
  EXPECT_EQ(layered.m_als, nullptr);
  EXPECT_EQ(layered.m_flicker, nullptr);
  EXPECT_EQ(AmbientLightSensor().m_channelMask, 0x1Bu);
  EXPECT_EQ(FlickerSensor().m_channelMask, 0u);
}

}  // namespace
