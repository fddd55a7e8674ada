#include "driver/als_readout_rule.h"
#include "tests/support/sensor_test.h"

namespace {

class AlsReadout : public SensorTest {
 protected:
  // Starts a measurement whose result on each channel i is raw_of(i).
  void measure(unsigned char channels) {
    bring_up();
    ASSERT_EQ(sensor->VD6281_Start(VD6281_MODE_ALS_SINGLE_SHOT, channels), 0);
    phone.chip().pin(0x02, 0);
    for (int i = 0; i < 6; ++i) {
      for (int byte = 0; byte < 3; ++byte) {
        phone.chip().pin(static_cast<std::uint8_t>(0x06 + 4 * i + byte),
                         static_cast<std::uint8_t>(16 * (i + 1) + byte));
      }
    }
    phone.clear_trace();
  }

  VD6281_Als_t values = {0xEE, {77, 77, 77, 77, 77, 77}, {88, 88, 88, 88, 88, 88}};
  unsigned char ready = 9;
};

constexpr std::uint32_t raw_of(std::uint32_t i) {
  return (16 * (i + 1)) << 16 | (16 * (i + 1) + 1) << 8 | (16 * (i + 1) + 2);
}

TEST_F(AlsReadout, ChecksInOrderAndChangesNothingWhenItRefuses) {
  EXPECT_EQ(sensor->VD6281_GetAlsValues(64, nullptr, nullptr), -4);
  bring_up();
  EXPECT_THAT(events_of([&] {
                for (const auto read : {&SpectralSensorDevice::VD6281_GetAlsValues,
                                        &SpectralSensorDevice::VD6281_GetAlsValues_Ref}) {
                  EXPECT_EQ((sensor->*read)(64, &values, &ready), -1);
                  EXPECT_EQ((sensor->*read)(1, nullptr, &ready), -1);
                  EXPECT_EQ((sensor->*read)(1, &values, nullptr), -1);
                  EXPECT_EQ((sensor->*read)(1, &values, &ready), 8);
                }
                dev().state = 3;
                EXPECT_EQ(sensor->VD6281_GetAlsValues(1, &values, &ready), 8);
              }),
              IsEmpty());
  EXPECT_EQ(ready, 9);
  EXPECT_EQ(values.channels, 0xEE);
}

TEST_F(AlsReadout, ReadsAllChannelsInOneBurst) {
  measure(0x1B);
  dev().otp_slope[1] = 0x40;
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_GetAlsValues(0x03, &values, &ready), 0); }),
              ElementsAre("read 02=00", "read 06..1c", "write 02=01", "write 02=00"));
  EXPECT_EQ(ready, 1);
  EXPECT_EQ(values.channels, 0x03);
  EXPECT_THAT(values.raw_count,
              ElementsAre(raw_of(0), raw_of(1), raw_of(2), raw_of(3), raw_of(4), raw_of(5)));
  EXPECT_THAT(values.count, ElementsAre(raw_of(0), raw_of(1) / 2, 77, raw_of(3), raw_of(4), 77))
      << "the slopes correct every measured channel, whether it was asked for or not";
}

TEST_F(AlsReadout, ReadsTheRequestedChannelsByteByByte) {
  measure(0x1B);
  EXPECT_THAT(
      events_of([&] { EXPECT_EQ(sensor->VD6281_GetAlsValues_Ref(0x06, &values, &ready), 0); }),
      ElementsAre("read 02=00", "read 0a=20", "read 0b=21", "read 0c=22", "write 02=01",
                  "write 02=00"));
  EXPECT_EQ(values.channels, 0x02);
  EXPECT_THAT(values.raw_count, ElementsAre(88, raw_of(1), 88, 88, 88, 88));
  EXPECT_THAT(values.count, ElementsAre(88, raw_of(1), 77, 88, 88, 77));
}

TEST_F(AlsReadout, ReadsTheStatusAloneWhileNoResultWaits) {
  measure(0x1B);
  phone.chip().pin(0x02, 0xFF);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_GetAlsValues(0x1B, &values, &ready), 0); }),
              ElementsAre("read 02=ff"));
  EXPECT_EQ(ready, 0);
  EXPECT_EQ(values.channels, 0xEE);
}

TEST_F(AlsReadout, ReportsReadyWhenTheStatusCannotBeRead) {
  measure(0x1B);
  phone.fail(Fault::register_read().at(0x02).returning(-3));
  EXPECT_EQ(sensor->VD6281_GetAlsValues(0x1B, &values, &ready), -3);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("VD6281_RdByte ioctl failed")));
  EXPECT_EQ(ready, 1);
}

TEST_F(AlsReadout, KeepsTheValuesWhenTheBurstFails) {
  measure(0x1B);
  phone.fail(Fault::register_read().at(0x06).returning(-4));
  EXPECT_EQ(sensor->VD6281_GetAlsValues(0x1B, &values, &ready), -4);
  EXPECT_THAT(phone.events(), ElementsAre("read 02=00", "read 06..1c gave -4",
                                          error_line("VD6281_GetAlsValues ioctl failed")));
  EXPECT_EQ(values.channels, 0xEE);
  EXPECT_THAT(values.raw_count, ::testing::Each(88));
}

TEST_F(AlsReadout, KeepsTheValuesFromTheFailedChannelOn) {
  measure(0x1B);
  phone.fail(Fault::register_read().at(0x0B).returning(-6));
  EXPECT_EQ(sensor->VD6281_GetAlsValues_Ref(0x1B, &values, &ready), -6);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("VD6281_RdByte ioctl failed")));
  EXPECT_EQ(values.channels, 0xEE);
  EXPECT_THAT(values.raw_count, ElementsAre(raw_of(0), 88, 88, 88, 88, 88));
}

TEST_F(AlsReadout, DeliversTheValuesEvenIfTheAcknowledgeFails) {
  measure(0x1B);
  phone.fail(Fault::register_write().at(0x02).returning(-5));
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_GetAlsValues(0, &values, &ready), -5); }),
              ElementsAre("read 02=00", "read 06..1c", "write 02=01 gave -5",
                          error_line("VD6281_WrByte failed, addr = 0x2, data = 1\n")));
  EXPECT_EQ(values.channels, 0);
  EXPECT_EQ(values.count[0], raw_of(0));
}

TEST_F(AlsReadout, FailsInEachStepWithoutADevice) {
  EXPECT_EQ(sensor->is_data_ready(&dev(), &ready), -4);
  EXPECT_EQ(ready, 1);
  unsigned int count = 5;
  EXPECT_EQ(sensor->read_channel(&dev(), 0, &count), -4);
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(sensor->acknowledge_irq(&dev()), -4);
}

TEST_F(AlsReadout, CorrectsByTheSlopesOfTheOtpOnly) {
  VD6281_device record = {};
  record.als_channels = 0x21;
  record.otp_usage_enable = 1;
  record.otp_slope[0] = 0x81;
  values.raw_count[0] = 1000;
  sensor->cook_values(&record, &values);
  EXPECT_EQ(values.count[0], 1007u);
  EXPECT_EQ(values.count[5], 0u);
  EXPECT_EQ(values.count[1], 77u);
  record.otp_usage_enable = 0;
  sensor->cook_values_slope(&record, &values);
  EXPECT_EQ(values.count[0], 1000u);
}

TEST_F(AlsReadout, LimitsACorrectedCountTo24Bits) {
  EXPECT_EQ(sensor->cook_values_slope_channel(0xFF, 0xFFFFFF), 0xFFFFFFu);
  EXPECT_EQ(sensor->cook_values_slope_channel(0x80, 0xFFFFFF), 0xFFFFFFu);
  EXPECT_EQ(sensor->cook_values_slope_channel(0x40, 1001), 500u);
}

}  // namespace
