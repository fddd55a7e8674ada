#include "tests/support/sensor_test.h"

namespace {

class Power : public SensorTest {};

TEST_F(Power, IsSwitchedByADigitAndANul) {
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_Enable(true), 0); }),
      ElementsAre("open iridel_enable", "write iridel_enable \"1\\0\"", "close iridel_enable"));
  EXPECT_EQ(sensor->m_powered, 1);
  EXPECT_TRUE(phone.chip().powered());
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_Enable(false), 0); }),
      ElementsAre("open iridel_enable", "write iridel_enable \"0\\0\"", "close iridel_enable"));
  EXPECT_EQ(sensor->m_powered, 0);
  EXPECT_FALSE(phone.chip().powered());
}

TEST_F(Power, KeepsTheRecordedStateWhenSwitchingFails) {
  phone.remove(Node::kEnable);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_Enable(true), -1); }),
              ElementsAre("open iridel_enable failed (ENOENT)",
                          error_line("VD6281_Enable file open failed\n")));
  phone.restore(Node::kEnable).fail(Fault::write(Node::kEnable).returning(-22));
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_Enable(true), -22); }),
      ElementsAre(
          "open iridel_enable", "write iridel_enable \"1\\0\" gave -22", "close iridel_enable",
          warning_line("VD6281_Enable failed, isEnable: 1 (expected at camera process start "
                       "up)\n")));
  EXPECT_EQ(sensor->m_powered, 0);
}

TEST_F(Power, IsReadBackByItsFirstCharacter) {
  bool enabled = false;
  sensor->VD6281_Enable(true);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_CheckEnableStatus(&enabled), 0); }),
              ElementsAre("open iridel_enable", "read iridel_enable", "close iridel_enable"));
  EXPECT_TRUE(enabled);
  sensor->VD6281_Enable(false);
  EXPECT_EQ(sensor->VD6281_CheckEnableStatus(&enabled), 0);
  EXPECT_FALSE(enabled);
  enabled = true;
  phone.fail(Fault::read(Node::kEnable).returning(0));
  EXPECT_EQ(sensor->VD6281_CheckEnableStatus(&enabled), 0);
  EXPECT_FALSE(enabled) << "an empty attribute means that the power is off";
}

TEST_F(Power, AFailedReadBackReturnsTheResultOfTheCall) {
  bool enabled = true;
  phone.fail(Fault::open(Node::kEnable));
  phone.clear_trace();
  EXPECT_EQ(sensor->VD6281_CheckEnableStatus(&enabled), -1);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("VD6281_CheckEnableStatus file open failed\n")));
  phone.fail(Fault::read(Node::kEnable).returning(-5)).clear_trace();
  EXPECT_EQ(sensor->VD6281_CheckEnableStatus(&enabled), -5);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("VD6281_CheckEnableStatus failed, rc: -5\n")));
  EXPECT_TRUE(enabled);
}

}  // namespace
