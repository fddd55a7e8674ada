#include "driver/measurement_rule.h"
#include "tests/support/sensor_test.h"

namespace {

constexpr VD6281_Mode_t kSingle = VD6281_MODE_ALS_SINGLE_SHOT;
constexpr VD6281_Mode_t kSynchronous = VD6281_MODE_ALS_SYNCHRONOUS;
constexpr VD6281_Mode_t kFlicker = VD6281_MODE_FLICKER;

class Measurement : public SensorTest {
 protected:
  Lines start(VD6281_Mode_t mode, unsigned char channels, int status = 0) {
    return events_of([&] { EXPECT_EQ(sensor->VD6281_Start(mode, channels), status); });
  }
  Lines stop(VD6281_Mode_t mode, int status = 0) {
    return events_of([&] { EXPECT_EQ(sensor->VD6281_Stop(mode), status); });
  }
  void expect_use(std::uint32_t state, int als, int flicker, int dc, int ac) {
    EXPECT_EQ(dev().state, state);
    EXPECT_EQ(dev().als_channels, als);
    EXPECT_EQ(dev().flicker_channels, flicker);
    EXPECT_EQ(dev().dc_chan_en, dc);
    EXPECT_EQ(dev().ac_chan_en, ac);
    EXPECT_EQ(phone.chip().peek(0x2E), dc);
    EXPECT_EQ(phone.chip().peek(0x2D), ac);
  }
};

TEST_F(Measurement, ChecksArgumentsInOrder) {
  EXPECT_EQ(sensor->VD6281_Start(kSingle, 0), -4);
  EXPECT_EQ(sensor->VD6281_Stop(static_cast<VD6281_Mode_t>(9)), -4);
  bring_up();
  EXPECT_THAT(start(kSingle, 0, -1), IsEmpty());
  EXPECT_THAT(start(kSingle, 64, -1), IsEmpty());
  EXPECT_THAT(start(static_cast<VD6281_Mode_t>(3), 1, -1), IsEmpty());
  EXPECT_THAT(start(kFlicker, 0x03, -1), IsEmpty());
  EXPECT_THAT(stop(static_cast<VD6281_Mode_t>(0xFFFFFFFF), -1), IsEmpty());
  for (const auto mode : {kSingle, kSynchronous, kFlicker}) EXPECT_THAT(stop(mode, -8), IsEmpty());
}

TEST_F(Measurement, StartsAndStopsAlsOnCut22) {
  bring_up();
  EXPECT_THAT(start(kSingle, 0x1B), ElementsAre("write 2e=1b", "write 03=01"));
  expect_use(2, 0x1B, 0, 0x1B, 0);
  EXPECT_THAT(start(kSynchronous, 0x04, -7), IsEmpty());
  EXPECT_THAT(stop(kSynchronous, -8), IsEmpty());
  EXPECT_THAT(stop(kSingle), ElementsAre("write 03=00", "write 2e=00"));
  expect_use(1, 0, 0, 0, 0);
  EXPECT_THAT(start(kSynchronous, 0x20), ElementsAre("write 2d=01", "write 03=07"));
  expect_use(2, 0x20, 0, 0, 1);
  EXPECT_THAT(stop(kSynchronous), ElementsAre("write 03=00", "write 2d=00"));
  expect_use(1, 0, 0, 0, 0);
}

TEST_F(Measurement, StartsAndStopsFlickerByOutputTypeAndChannel) {
  bring_up();
  sensor->VD6281_SetFlickerOutputType(VD6281_FLICKER_OUTPUT_1);
  phone.chip().write(0x31, 0x40);
  EXPECT_THAT(start(kFlicker, 0x20),
              ElementsAre("write 2d=01", "read 31=40", "write 31=60", "write 41=01", "write 47=0f",
                          "write 71=01", "read 31=60", "write 31=63"));
  expect_use(3, 0, 0x20, 0, 1);
  EXPECT_THAT(start(kFlicker, 0x01, -7), IsEmpty());
  EXPECT_THAT(stop(kFlicker),
              ElementsAre("read 31=63", "write 31=62", "write 71=01", "read 31=62", "write 31=42",
                          "write 41=00", "write 47=00", "write 2d=00"));
  expect_use(1, 0, 0, 0, 0);
  struct Row {
    std::uint32_t type;
    const char* control;
    const char* setting;
    const char* setting2;
    const char* cut22;
  };
  for (const Row& row : {Row{0, "write 31=42", "write 41=02", "write 47=0f", "write 71=01"},
                         Row{2, "write 31=52", "write 41=00", "write 47=00", "write 71=00"},
                         Row{3, "write 31=42", "write 41=01", "write 47=00", "write 71=05"},
                         Row{4, "write 31=42", "write 41=00", "write 47=00", "write 71=02"},
                         Row{9, "write 31=42", "write 41=00", "write 47=00", "write 71=01"}}) {
    phone.chip().write(0x31, 0x42);
    dev().flicker_output_type = row.type;
    const Lines events = start(kFlicker, 0x10);
    EXPECT_EQ(Lines(events.begin() + 2, events.begin() + 6),
              (Lines{row.control, row.setting, row.setting2, row.cut22}));
    EXPECT_EQ(phone.chip().peek(0x31) & 0x0F, 13) << "channel 5";
    stop(kFlicker);
  }
  start(kFlicker, 0x01);
  EXPECT_EQ(phone.chip().peek(0x31) & 0x0F, 5) << "channel 1";
  stop(kFlicker);
}

TEST_F(Measurement, RunsBothEnginesOnDisjointChannels) {
  bring_up();
  start(kSingle, 0x1F);
  EXPECT_THAT(start(kFlicker, 0x01, -1), IsEmpty());
  start(kFlicker, 0x20);
  expect_use(4, 0x1F, 0x20, 0x1F, 1);
  stop(kSingle);
  expect_use(3, 0, 0x20, 0, 1);
  // Cut 2.2 pauses the running flicker measurement while ALS starts.
  EXPECT_THAT(start(kSingle, 0x03), ElementsAre("write 2e=03", "read 31=03", "write 31=02",
                                                "write 03=01", "write 31=03"));
  expect_use(4, 0x03, 0x20, 0x03, 1);
  stop(kFlicker);
  expect_use(2, 0x03, 0, 0x03, 0);
  EXPECT_THAT(stop(kFlicker, -8), IsEmpty());
  stop(kSingle);
  expect_use(1, 0, 0, 0, 0);
}

TEST_F(Measurement, Cut21SwitchesChannel4OnWithChannel6Alone) {
  bring_up(Cut::k2_1);
  EXPECT_THAT(start(kSingle, 0x20), ElementsAre("write 2e=08", "write 2d=01", "write 03=01"));
  EXPECT_THAT(stop(kSingle), ElementsAre("write 03=00", "write 2e=00", "write 2d=00"));
}

TEST_F(Measurement, Cut21PausesFlickerAndAnnouncesAnAlsStartBesideIt) {
  bring_up(Cut::k2_1);
  start(kFlicker, 0x08);
  EXPECT_THAT(start(kSingle, 0x20), ElementsAre("write 2d=01", "read 31=0b", "write 31=0a",
                                                "write 03=03", "write 03=01", "write 31=0b"));
  expect_use(4, 0x20, 0x08, 0x08, 1);
  EXPECT_THAT(stop(kSingle), ElementsAre("write 03=00", "write 2d=00"))
      << "channel 4 stays on for flicker";
}

TEST_F(Measurement, Cut21RefusesSynchronousAlsOnChannel6AndBesideFlicker) {
  bring_up(Cut::k2_1);
  EXPECT_THAT(start(kSynchronous, 0x20, -1), IsEmpty());
  start(kFlicker, 0x08);
  EXPECT_THAT(start(kSynchronous, 0x01, -1), IsEmpty());
  stop(kFlicker);
  start(kSynchronous, 0x01);
  EXPECT_THAT(start(kFlicker, 0x20, -1), IsEmpty());
}

TEST_F(Measurement, Cut21RefusesFlickerBesideAlsWithAPeriod) {
  bring_up(Cut::k2_1);
  phone.chip().write(0x04, 2);
  start(kSingle, 0x01);
  EXPECT_THAT(start(kFlicker, 0x20, -1), ElementsAre("read 04=02"));
  phone.fail(Fault::register_read().at(0x04).returning(-3));
  EXPECT_EQ(sensor->VD6281_Start(kFlicker, 0x20), -3);
  phone.chip().write(0x04, 0);
  EXPECT_EQ(sensor->VD6281_Start(kFlicker, 0x20), 0);
  expect_use(4, 0x01, 0x20, 0x01, 1);
}

TEST_F(Measurement, Cut20NeedsTheAcEnableForEveryMeasurement) {
  bring_up(Cut::k2_0);
  EXPECT_THAT(start(kSingle, 0x01), ElementsAre("write 2e=01", "write 2d=01", "write 03=01"));
  start(kFlicker, 0x02);
  expect_use(4, 0x01, 0x02, 0x03, 1);
  stop(kSingle);
  expect_use(3, 0, 0x02, 0x02, 1);
  stop(kFlicker);
  expect_use(1, 0, 0, 0, 0);
}

// The second of two pauses reads the flicker control with the run bit clear already, and that is
// the value which is restored.
TEST_F(Measurement, RestoresTheValueThatTheSecondOfTwoPausesRead) {
  bring_up(Cut::k2_2);
  start(kFlicker, 0x01);
  dev().wa[4] = 1;
  EXPECT_THAT(start(kSingle, 0x20),
              ElementsAre("write 2d=01", "read 31=05", "write 31=04", "read 31=04", "write 31=04",
                          "write 03=01", "write 31=04", "write 31=04"));
}

TEST(ChannelEnable, KeepsChannel4OnForTheEngineThatNeedsIt) {
  using spectral::dc_enable_for_start;
  using spectral::dc_enable_for_stop;
  EXPECT_EQ(dc_enable_for_start(0x01, false, 0x20, true), 0x09);
  EXPECT_EQ(dc_enable_for_start(0x01, false, 0x20, false), 0x01);
  EXPECT_EQ(dc_enable_for_start(0x01, true, 0x20, true), 0x01);
  EXPECT_EQ(dc_enable_for_start(0x01, false, 0x30, true), 0x11);
  EXPECT_EQ(dc_enable_for_stop(0x08, true, 0x20, 0x08, true), 0x08);
  EXPECT_EQ(dc_enable_for_stop(0x08, true, 0x20, 0x08, false), 0x00);
  EXPECT_EQ(dc_enable_for_stop(0x08, true, 0x21, 0x08, true), 0x00);
  EXPECT_EQ(dc_enable_for_stop(0x08, false, 0x20, 0x08, true), 0x08);
  EXPECT_EQ(dc_enable_for_stop(0x09, false, 0x20, 0x01, true), 0x01);
  EXPECT_EQ(dc_enable_for_stop(0x09, false, 0x20, 0x01, false), 0x09);
}

TEST_F(Measurement, UndoesAFailedStart) {
  bring_up(Cut::k2_2);
  phone.fail(Fault::register_write().at(0x2D).returning(-5));
  EXPECT_THAT(
      start(kSingle, 0x21, -5),
      ElementsAre("write 2e=01", "write 2d=01 gave -5",
                  error_line("VD6281_WrByte failed, addr = 0x2d, data = 1\n"), "write 2e=00"));
  expect_use(1, 0, 0, 0, 0);
  phone.heal().fail(Fault::register_write().at(0x03).returning(-4));
  const Lines als = start(kSingle, 0x21, -4);
  EXPECT_EQ(Lines(als.end() - 2, als.end()), (Lines{"write 2e=00", "write 2d=00"}));
  expect_use(1, 0, 0, 0, 0);
  // A flicker start fails among the output settings, and another one at the run bit.
  phone.heal().fail(Fault::register_write().at(0x47).returning(-3));
  const Lines settings = start(kFlicker, 0x02, -3);
  EXPECT_EQ(settings.back(), "write 2e=00");
  EXPECT_EQ(settings.size(), 7u);
  phone.heal().fail(Fault::register_write().at(0x31).nth(2).returning(-2));
  const Lines run = start(kFlicker, 0x02, -2);
  EXPECT_EQ(Lines(run.end() - 6, run.end()), (Lines{"write 71=01", "read 31=00", "write 31=00",
                                                    "write 41=00", "write 47=00", "write 2e=00"}));
  expect_use(1, 0, 0, 0, 0);
}

TEST_F(Measurement, AFailedCleanUpFailsAnAlsStopButNotAFlickerStop) {
  bring_up(Cut::k2_2);
  start(kSingle, 0x21);
  phone.fail(Fault::register_write().at(0x2D).returning(-5));
  EXPECT_THAT(stop(kSingle, -5), ElementsAre("write 03=00", "write 2e=00", "write 2d=00 gave -5",
                                             error_line("VD6281_WrByte failed, addr = 0x2d, data = "
                                                        "0\n"),
                                             "write 2e=01"));
  expect_use(2, 0x21, 0, 0x01, 1);
  EXPECT_EQ(sensor->VD6281_Stop(kSingle), 0);
  start(kFlicker, 0x20);
  phone.heal().fail(Fault::register_write().at(0x71)).fail(Fault::register_write().at(0x2D));
  const Lines events = stop(kFlicker);
  EXPECT_EQ(dev().state, 1u);
  EXPECT_EQ(dev().flicker_channels, 0x20) << "the failed clean-up leaves the channel in use";
  EXPECT_EQ(events.back(), "write 2e=00") << "restored, although it was not changed";
}

TEST_F(Measurement, FlickerKeepsRunningAfterAFailedStop) {
  bring_up(Cut::k2_2);
  start(kFlicker, 0x20);
  phone.fail(Fault::register_read().at(0x31).returning(-3));
  EXPECT_EQ(stop(kFlicker, -3).size(), 2u);
  phone.heal().fail(Fault::register_write().at(0x31).returning(-6));
  EXPECT_EQ(stop(kFlicker, -6).size(), 3u);
  expect_use(3, 0, 0x20, 0, 1);
}

TEST_F(Measurement, AcceptsTheFlickerOutputTypesOfItsCut) {
  const auto accepts = [&](std::uint32_t type) {
    return sensor->VD6281_SetFlickerOutputType(static_cast<VD6281_FlickerOutputType_t>(type));
  };
  EXPECT_EQ(accepts(0), -4);
  for (const auto& [cut, type2, type3] :
       {std::tuple(Cut::k2_0, 1, 1), std::tuple(Cut::k2_1, 0, 1), std::tuple(Cut::k2_2, 0, 0)}) {
    bring_up(cut);
    EXPECT_EQ(accepts(0), 0);
    EXPECT_EQ(accepts(1), 0);
    EXPECT_EQ(accepts(2), type2);
    EXPECT_EQ(accepts(3), type3);
    EXPECT_EQ(accepts(4), type3);
    const std::uint32_t last = dev().flicker_output_type;
    EXPECT_EQ(accepts(5), 1);
    EXPECT_EQ(accepts(0xFFFFFFFF), 1);
    EXPECT_EQ(dev().flicker_output_type, last);
    EXPECT_THAT(phone.events(), IsEmpty());
    start(kFlicker, 0x20);
    EXPECT_EQ(accepts(1), -7);
    EXPECT_EQ(sensor->VD6281_Term(), 0);
  }
}

}  // namespace
