#include "tests/support/sensor_test.h"

namespace {

class Configuration : public SensorTest {};

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
  EXPECT_EQ(sensor->dev_configuration(&dev()), 9) << "a failed pedestal is reported negated";
  phone.heal().chip().pin(0x5A, 0);
  EXPECT_EQ(sensor->dev_configuration(&dev()), -3);
}

TEST_F(Configuration, RecordsUnityGainOnlyForTheChannelsWritten) {
  bring_up();
  for (auto& gain : dev().channel_gain) gain = 9;
  phone.fail(Fault::register_write().at(0x27));
  EXPECT_EQ(sensor->dev_configuration(&dev()), -1);
  EXPECT_THAT(dev().channel_gain, ElementsAre(256, 256, 9, 9, 9, 9));
  EXPECT_EQ(phone.trace().back().text, "VD6281_WrByte failed, addr = 0x27, data = 13\n");
}

}  // namespace
