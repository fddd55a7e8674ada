#include "tests/support/sensor_test.h"

namespace {

class Configuration : public SensorTest {};

TEST_F(Configuration, TrimsFromTheOtpOrFromBuiltInValues) {
  phone.chip().otp(spectralsim::Otp().version(5).raw(0x61, 0x1F).raw(0x62, 0x0F).raw(0x6A, 0x03));
  bring_up();
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->trim_oscillators(&dev()), 0); }),
              ElementsAre("write 3d=01", "write 3e=01", "write 3f=ff", "write 40=03"));
  dev().otp_usage_enable = 0;
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->trim_oscillators(&dev()), 0); }),
              ElementsAre("write 3d=01", "write 3e=00", "write 3f=e3", "write 40=07"));
  dev().otp_usage_enable = 2;
  dev().otp_osc2_trim = 0xF4;
  EXPECT_THAT(events_of([&] { sensor->trim_oscillators(&dev()); }),
              ElementsAre("write 3d=01", "write 3e=01", "write 3f=ff", "write 40=04"));
}

TEST_F(Configuration, StopsAtTheFirstFailureAndReturnsIt) {
  bring_up();
  phone.fail(Fault::register_write().at(0x3F).returning(-5)).clear_trace();
  EXPECT_EQ(sensor->trim_oscillators(&dev()), -5);
  EXPECT_THAT(phone.events(),
              ElementsAre("write 3d=01", "write 3e=00", "write 3f=e3 gave -5",
                          error_line("VD6281_WrByte failed, addr = 0x3f, data = 227\n")));
  phone.heal().fail(Fault::register_write().at(0x30));
  EXPECT_EQ(sensor->clamp_enable(&dev()), -1);
  phone.heal().fail(Fault::register_write().at(0x32).returning(-9));
  EXPECT_EQ(sensor->dev_configuration(&dev()), 9) << "the pedestal's failure comes negated";
  phone.heal().chip().pin(0x5A, 0);
  EXPECT_EQ(sensor->dev_configuration(&dev()), -3);
}

TEST_F(Configuration, NotesUnityGainOnlyOfChannelsWritten) {
  bring_up();
  for (auto& gain : dev().channel_gain) gain = 9;
  phone.fail(Fault::register_write().at(0x27));
  EXPECT_EQ(sensor->dev_configuration(&dev()), -1);
  EXPECT_THAT(dev().channel_gain, ElementsAre(256, 256, 9, 9, 9, 9));
  EXPECT_EQ(phone.trace().back().text, "VD6281_WrByte failed, addr = 0x27, data = 13\n");
}

}  // namespace
