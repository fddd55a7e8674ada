#include "flicker_sensor.h"

#include "tests/support/sensor_test.h"

namespace {

std::string error(const std::string& text) { return log_line('E', "flicker-sensor", text); }
std::string debug(const std::string& text) { return log_line('D', "flicker-sensor", text); }

class FlickerSensorWrapper : public SensorTest {
 protected:
  FlickerSensorWrapper() { bring_up(); }
  FlickerSensor flicker;
};

TEST_F(FlickerSensorWrapper, UsesTheOneInstanceOfTheDriver) {
  EXPECT_EQ(flicker.m_device, sensor);
  EXPECT_EQ(flicker.m_channelMask, 0u);
}

TEST_F(FlickerSensorWrapper, AcceptsASingleSupportedChannel) {
  EXPECT_EQ(flicker.SetFlickerChannelMask(0x01), 1);
  EXPECT_EQ(flicker.SetFlickerChannelMask(0x06), 1);
  EXPECT_EQ(flicker.SetFlickerChannelMask(0), 1);
  const std::string name = "IsValidSingleChannel: ";
  EXPECT_THAT(phone.log(),
              ElementsAre(debug(name + "Supported channels mask 0x3e, got channel mask 0x1"),
                          debug(name + "Expect single channel, got channel mask 0x6"),
                          debug(name + "Expect single channel, got channel mask 0x0")));
  EXPECT_EQ(flicker.m_channelMask, 0u);
  EXPECT_EQ(flicker.SetFlickerChannelMask(0x20), 0);
  EXPECT_EQ(flicker.m_channelMask, 0x20u);
  EXPECT_EQ(flicker.IsValidSingleChannel(0x40, 0x40), 1);
}

TEST_F(FlickerSensorWrapper, StartsAndStopsTheMeasurement) {
  EXPECT_EQ(flicker.Enable(true), -1);
  EXPECT_THAT(phone.log(), ElementsAre(error("EnableFlickerSensor: Failed to start flicker, "
                                             "channel mask 0x0, error code -1")));
  flicker.SetFlickerChannelMask(0x20);
  EXPECT_EQ(flicker.Enable(true), 0);
  EXPECT_EQ(dev().state, 3u);
  EXPECT_EQ(dev().flicker_output_type, 1u);
  phone.clear_trace();
  EXPECT_EQ(flicker.EnableFlickerSensor(), -7);
  EXPECT_THAT(phone.log(), ElementsAre(error("EnableFlickerSensor: Failed to set flicker "
                                             "output type 1, error code -7")));
  EXPECT_EQ(flicker.Enable(false), 0);
  EXPECT_EQ(flicker.DisableFlickerSensor(), -8);
}

TEST_F(FlickerSensorWrapper, SetsGainFactorsOfItsChannel) {
  float applied = 9.0f;
  EXPECT_EQ(flicker.SetGain(0x20, 1.0f, nullptr), 1);
  flicker.SetFlickerChannelMask(0x04);
  phone.clear_trace();
  EXPECT_EQ(flicker.SetGain(0x20, 2.0f, &applied), 1);
  EXPECT_THAT(phone.log(), ElementsAre(debug("IsValidSingleChannel: Supported channels mask "
                                             "0x4, got channel mask 0x20")));
  EXPECT_EQ(applied, 9.0f);
  EXPECT_EQ(flicker.SetGain(0x04, 2.6f, &applied), 0);
  EXPECT_EQ(applied, 2.5f);
  dev().flicker_channels = 0x04;
  EXPECT_EQ(flicker.SetGain(0x04, 1.0f, &applied), 1) << "a running measurement uses the channel";
}

TEST_F(FlickerSensorWrapper, SetsThePedestalAndSwitchesItOn) {
  phone.clear_trace();
  EXPECT_EQ(flicker.SetPedestal(8), 1);
  EXPECT_THAT(phone.events(),
              ElementsAre(error("SetPedestal: Pedestal value is too big. Expect <= 7.")));
  EXPECT_THAT(events_of([&] { EXPECT_EQ(flicker.SetPedestal(7), 0); }),
              ElementsAre("write 32=07", "read 31=00", "write 31=00"));
  phone.fail(Fault::register_write().at(0x32).every().returning(-6)).clear_trace();
  EXPECT_EQ(flicker.SetPedestal(5), 0) << "the status of switching the pedestal on";
  EXPECT_EQ(phone.log().back(), error("SetPedestal: Pedestal value setup failure error code=6"));
  phone.fail(Fault::register_read().returning(-4));
  EXPECT_EQ(flicker.SetPedestal(5), -4);
  EXPECT_EQ(phone.log().back(), error("SetPedestal: Pedestal value enable failure error code=-4"));
}

TEST_F(FlickerSensorWrapper, ReadsTheSaturationValue) {
  unsigned short value = 9;
  EXPECT_EQ(flicker.GetSaturationValue(nullptr), 1);
  phone.chip().pin(0x33, 0x12).pin(0x34, 0x34);
  EXPECT_EQ(flicker.GetSaturationValue(&value), 0);
  EXPECT_EQ(value, 0x1234);
  phone.fail(Fault::register_read().at(0x34).returning(-3));
  EXPECT_EQ(flicker.GetSaturationValue(&value), -3);
  EXPECT_EQ(value, 0x1234);
}

TEST_F(FlickerSensorWrapper, CapturesRawData) {
  std::vector<unsigned char> data(20000, 0xEE);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(flicker.GetFlickerData(0, data.data()), 1); }), IsEmpty());
  EXPECT_EQ(flicker.GetFlickerData(1, data.data()), 0);
  EXPECT_EQ(data[0], 0);
  EXPECT_EQ(data[1], 0xEE) << "one byte was asked for";
  phone.scene("mains-50hz");
  flicker.SetFlickerChannelMask(0x20);
  flicker.Enable(true);
  EXPECT_EQ(flicker.GetFlickerData(16000, data.data()), 0);
  EXPECT_NE(data[15992] | data[15993], 0);
  EXPECT_EQ(data[16000], 0xEE);
  EXPECT_EQ(phone.open_descriptors(), 3);
}

TEST_F(FlickerSensorWrapper, ReportsWhichStepOfACaptureFailed) {
  std::vector<unsigned char> data(160);
  EXPECT_EQ(flicker.GetFlickerData(16016, data.data()), 1);
  EXPECT_EQ(phone.log()[1], error("GetFlickerData: flicker raw data is null"));
  phone.fail(Fault::tunnel_ioctl(0x19).every().returning(-9));
  EXPECT_EQ(flicker.GetFlickerData(160, data.data()), -9);
  EXPECT_EQ(phone.log().back(),
            error("GetFlickerData: Failed to terminate Quillon Sensor, error code -9"));
  phone.fail(Fault::tunnel_ioctl(0x24));
  EXPECT_EQ(flicker.GetFlickerData(160, data.data()), -9);
  EXPECT_EQ(phone.log().back(),
            error("GetFlickerData: Failed to setup Quillon Sensor, error code -9"));
  sensor->VD6281_Term();
  EXPECT_EQ(flicker.GetFlickerData(160, data.data()), -4);
  EXPECT_EQ(phone.log().back(),
            error("GetFlickerData: Failed to Init Quillon Sensor, error code -4"));
}

TEST_F(FlickerSensorWrapper, PollsTheDetectorForTwoSeconds) {
  Spectral_FlickerInfo_t info = {0x20, 9, 9, 9, 9};
  EXPECT_EQ(flicker.GetFlickerFrequency(nullptr), 1);
  flicker.SetFlickerChannelMask(0x20);
  flicker.Enable(true);
  phone.scene("dark").clear_trace();
  EXPECT_EQ(flicker.GetFlickerFrequency(&info), 3);
  EXPECT_THAT(phone.log(), ElementsAre(debug("GetFlickerFrequency: Polling took 2010 ms, rc=3")));
  EXPECT_EQ(info.channel, 0x20);
  EXPECT_EQ(info.confidence, 0);
  EXPECT_EQ(info.gain, 0);
  phone.scene("pwm-300hz").clear_trace();
  EXPECT_EQ(flicker.GetFlickerFrequency(&info), 0);
  EXPECT_EQ(info.frequency, 300u);
  EXPECT_EQ(info.confidence, 100);
  EXPECT_EQ(info.valid, 1);
  EXPECT_THAT(phone.log(), ElementsAre(debug("GetFlickerFrequency: Polling took 10 ms, rc=0")));
  flicker.Enable(false);
  EXPECT_EQ(flicker.GetFlickerFrequency(&info), -8);
}

}  // namespace
