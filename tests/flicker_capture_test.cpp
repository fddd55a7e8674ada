#include <cmath>
#include <cstring>

#include "tests/support/sensor_test.h"

namespace {

using spectralsim::Hub;
using ::testing::HasSubstr;

class FlickerCapture : public SensorTest {
 protected:
  FlickerCapture() {
    EXPECT_EQ(sensor->Init(2), 0);
    phone.clear_trace();
  }
  // Destroy does not unload the analysis library.
  ~FlickerCapture() override { sensor->Uninit(2); }

  const FlickerResult& measure() {
    EXPECT_EQ(sensor->Process(2, &output), 0);
    EXPECT_EQ(dev().state, 1u) << "nothing is left running";
    EXPECT_EQ(phone.open_descriptors(), 3) << "the tunnel is closed";
    return output.flicker;
  }

  SpectralSensorOutput output = {};
};

TEST_F(FlickerCapture, ReportsTheFrequenciesOfEachLamp) {
  struct Case {
    const char* scene;
    bool at_100;
    bool at_120;
    std::uint32_t dominant;
  };
  for (const Case& c : {Case{"mains-50hz", true, false, 200}, Case{"mains-60hz", false, true, 240},
                        Case{"pwm-300hz", false, false, 300}, Case{"mixed", true, false, 270}}) {
    sensor->m_flkTrack = FlickerTrack{};
    phone.scene(c.scene);
    EXPECT_EQ(measure().dominant_freq, 0u) << "not yet confirmed";
    measure();
    EXPECT_EQ(output.flicker.strength_a > 100, c.at_100) << c.scene;
    EXPECT_EQ(output.flicker.strength_b > 100, c.at_120) << c.scene;
    EXPECT_EQ(output.flicker.dominant_freq, c.dominant) << c.scene;
    EXPECT_GT(output.flicker.dominant_strength, 100u);
  }
  EXPECT_THAT(phone.log(), IsEmpty());
}

TEST_F(FlickerCapture, FillsTheFieldsOfItsResult) {
  phone.scene("mains-50hz");
  const std::uint64_t started_ns = boot_time_ns();
  const std::int64_t started_ms = now_ms();
  output.als.valid = 7;
  measure();
  EXPECT_NEAR(static_cast<double>(now_ms() - started_ms), 1150.0, 150.0)
      << "a second of samples, up to the end of the last read";
  EXPECT_EQ(output.flicker.channel, 0x20);
  EXPECT_EQ(output.flicker.gain, static_cast<float>(sensor->m_flkGain));
  EXPECT_EQ(output.flicker.valid, 1);
  EXPECT_EQ(output.flicker.freq_a, 100u);
  EXPECT_EQ(output.flicker.timestamp_ns, started_ns);
  EXPECT_EQ(output.als.valid, 7);
  EXPECT_EQ(std::memcmp(&output.flicker, &sensor->m_flkResult, sizeof(FlickerResult)), 0);
}

TEST_F(FlickerCapture, ReadsTheFirstWordOfEachRecordAsASignedSample) {
  std::string bytes;
  for (std::uint32_t i = 0; i < 100; ++i) {
    std::string payload(160, '\x55');
    for (std::size_t k = 0; k < 20; ++k) {
      const auto sample = static_cast<std::uint16_t>(i * 20 + k - 1000);
      payload[8 * k] = static_cast<char>(sample & 0xFF);
      payload[8 * k + 1] = static_cast<char>(sample >> 8);
    }
    bytes += Hub::packet(0, i, 0, payload);
  }
  phone.hub().send(bytes);
  measure();
  for (int k = 0; k < 2000; ++k) ASSERT_EQ(sensor->m_flkSamples[k], static_cast<float>(k - 1000));
}

TEST_F(FlickerCapture, GoesOnWithZerosWhenTheStreamFails) {
  const std::string read_failed = "VD6281_GetFlickerDataBuffer:Failed to read data from the tunnel";
  phone.scene("mains-50hz");
  phone.hub().end_after(0);
  measure();
  EXPECT_EQ(output.flicker.strength_a, 0u);
  EXPECT_THAT(phone.log(), ElementsAre(HasSubstr(read_failed)));
  for (const float sample : sensor->m_flkSamples) ASSERT_EQ(sample, 0.0f);
  phone.hub().send("garbage without end, or nearly so, and no packet in it");
  phone.clear_trace();
  measure();
  EXPECT_EQ(phone.log().back(), error_line("ReadFLKData, flicker raw data is null"));
  phone.remove(Node::kTunnel).clear_trace();
  measure();
  EXPECT_EQ(phone.log()[0], error_line("Failed to open the tunnel device node"));
}

TEST_F(FlickerCapture, SurvivesLostPacketsStallsAndUnknownIds) {
  phone.scene("mains-50hz");
  phone.hub().lose_every(10).insert(77, 3000).stall_after(40, 700);
  measure();
  EXPECT_GT(output.flicker.strength_a, 100u);
  EXPECT_EQ(dev().seq_lost[0], 11u);
}

TEST_F(FlickerCapture, ReportsWhichStepOfTheCaptureFailed) {
  unsigned char out[16000];
  const std::string name = "ReadFLKData: Failed to ";
  phone.fail(Fault::tunnel_ioctl(0x19).every().returning(-9));
  EXPECT_EQ(sensor->ReadFLKData(1000, out), -22);
  EXPECT_EQ(phone.log().back(), error_line(name + "terminate Quillon Sensor, error code -22"));
  phone.fail(Fault::tunnel_ioctl(0x24));
  EXPECT_EQ(sensor->ReadFLKData(1000, out), -22);
  EXPECT_EQ(phone.log().back(), error_line(name + "setup Quillon Sensor, error code -22"));
  phone.heal();
  EXPECT_EQ(sensor->ReadFLKData(2000, out), 0) << "a capture without data succeeds";
  EXPECT_EQ(phone.log().back(), error_line("ReadFLKData, flicker raw data is null"));
  sensor->VD6281_Term();
  EXPECT_EQ(sensor->ReadFLKData(1000, out), -22);
  EXPECT_EQ(phone.log().back(), error_line(name + "Init Quillon Sensor, error code -22"));
}

TEST_F(FlickerCapture, IsAbandonedWhenTheFlagIsCleared) {
  phone.scene("mains-50hz");
  measure();
  const FlickerTrack before = sensor->m_flkTrack;
  phone.clock().after_ms(300, [&] { sensor->SetEnableFlag(2, false); });
  const std::int64_t started_ms = now_ms();
  measure();
  EXPECT_LT(now_ms() - started_ms, 800) << "it ends with the read in progress";
  EXPECT_EQ(output.flicker.strength_a, 0u);
  EXPECT_EQ(output.flicker.freq_b, 120u);
  EXPECT_EQ(output.flicker.valid, 1);
  EXPECT_EQ(std::memcmp(&before, &sensor->m_flkTrack, sizeof before), 0);
  phone.clear_trace();
  measure();
  for (const auto& event : phone.trace())
    EXPECT_NE(event.node, Node::kTunnel) << "the tunnel is not opened";
}

TEST_F(FlickerCapture, WorksWithoutTheAnalysisLibrary) {
  sensor->UnloadFlickerLibrary();
  phone.scene("mains-50hz");
  for (int i = 0; i < 2; ++i) measure();
  EXPECT_EQ(output.flicker.strength_a, 0u);
  EXPECT_EQ(output.flicker.dominant_freq, 0xFFFFFFFFu) << "-1, which stands for no tone";
  EXPECT_EQ(output.flicker.dominant_strength, 0u);
}

TEST_F(FlickerCapture, LogsAFailedStopWithoutFailing) {
  phone.scene("mains-50hz");
  phone.clock().after_ms(300, [&] { phone.fail(Fault::register_read().at(0x31).returning(-7)); });
  EXPECT_EQ(sensor->Process(2, &output), 0);
  EXPECT_EQ(phone.log().back(), error_line("StopExpFLK: Cannot stop FLK exposure  -7"));
  EXPECT_GT(output.flicker.strength_a, 100u);
  EXPECT_EQ(dev().state, 3u);
}

}  // namespace
