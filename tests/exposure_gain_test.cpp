#include "driver/exposure_gain_rule.h"
#include "tests/support/sensor_test.h"

namespace {

constexpr auto channel(unsigned int id) { return static_cast<VD6281_Channel_Id_t>(id); }

class ExposureGain : public SensorTest {};

TEST_F(ExposureGain, RoundsTheExposureToTheChipsSteps) {
  bring_up();
  for (const auto& [wanted, taken] :
       {std::pair(0u, 1600u), std::pair(2399u, 1600u), std::pair(2400u, 3200u),
        std::pair(80000u, 80000u), std::pair(409600u, 409600u), std::pair(1637599u, 1636800u),
        std::pair(4294966495u, 1636800u), std::pair(4294967295u, 1636800u)}) {
    unsigned int applied = 0;
    EXPECT_EQ(sensor->VD6281_SetExposureTime(wanted, &applied), 0);
    EXPECT_EQ(applied, taken) << wanted;
    EXPECT_EQ(dev().exposure, taken);
    const int count = phone.chip().peek(0x1D) << 8 | phone.chip().peek(0x1E);
    EXPECT_EQ(static_cast<unsigned int>(count) * 1600u, taken);
  }
}

TEST_F(ExposureGain, WritesAnExposureWithoutStoringIt) {
  bring_up();
  EXPECT_THAT(events_of([&] { sensor->set_exposure(&dev(), 409600, 0); }),
              ElementsAre("write 1e=00", "write 1d=01"));
  unsigned int exposure = 0;
  EXPECT_EQ(sensor->get_exposure(&dev(), &exposure), 0);
  EXPECT_EQ(exposure, 80000u) << "the exposure of the bring-up";
}

TEST_F(ExposureGain, ChecksExposureArgumentsInOrder) {
  EXPECT_EQ(sensor->VD6281_SetExposureTime(1600, nullptr), -4);
  EXPECT_EQ(sensor->VD6281_GetExposureTime(nullptr), -4);
  bring_up();
  EXPECT_EQ(sensor->VD6281_SetExposureTime(1600, nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetExposureTime(nullptr), -1);
  unsigned int exposure = 0;
  EXPECT_EQ(sensor->VD6281_GetExposureTime(&exposure), 0);
  EXPECT_EQ(exposure, 80000u);
}

TEST_F(ExposureGain, KeepsTheExposureOfAFailedChange) {
  unsigned int applied = 7;
  bring_up();
  phone.fail(Fault::register_write().at(0x1D).returning(-8)).clear_trace();
  EXPECT_EQ(sensor->VD6281_SetExposureTime(480000, &applied), -8);
  EXPECT_THAT(phone.events(),
              ElementsAre("write 1e=2c", "write 1d=01 gave -8",
                          error_line("VD6281_WrByte failed, addr = 0x1d, data = 1\n")));
  phone.heal().fail(Fault::register_write().at(0x1E));
  phone.clear_trace();
  EXPECT_EQ(sensor->VD6281_SetExposureTime(480000, &applied), -1);
  EXPECT_EQ(phone.trace().size(), 2u) << "the high byte is not written";
  EXPECT_EQ(applied, 7u);
  EXPECT_EQ(dev().exposure, 80000u);
}

TEST_F(ExposureGain, RefusesAnExposureWhileAlsRuns) {
  unsigned int applied = 7;
  bring_up();
  for (const auto& [state, status] : {std::pair(2u, 7), std::pair(4u, 7), std::pair(3u, 0)}) {
    dev().state = state;
    EXPECT_EQ(sensor->VD6281_SetExposureTime(80000, &applied), status);
  }
  EXPECT_EQ(applied, 80000u);
}

TEST_F(ExposureGain, TakesTheNearestOfFifteenGains) {
  // The highest request for which each gain but the largest is taken. A request that is exactly
  // half-way between two gains takes the smaller one.
  constexpr int kUpper[] = {196,  234,  288,  373,  533,  746,   1066,
                            1553, 2193, 3413, 5333, 7466, 10666, 14933};
  bring_up();
  unsigned short applied = 0;
  for (int i = 0; i < 14; ++i) {
    const int index = 14 - i;
    EXPECT_EQ(spectral::gain_index(static_cast<std::uint16_t>(kUpper[i])), index);
    EXPECT_EQ(spectral::gain_index(static_cast<std::uint16_t>(kUpper[i] + 1)), index - 1);
  }
  for (const auto& [gain, taken, code] :
       {std::tuple(0, 181, 0x0F), std::tuple(234, 212, 0x0E), std::tuple(235, 256, 0x0D),
        std::tuple(4267, 4267, 0x05), std::tuple(65535, 17067, 0x01)}) {
    EXPECT_EQ(sensor->VD6281_SetGain(channel(0x08), static_cast<unsigned short>(gain), &applied),
              0);
    EXPECT_EQ(applied, taken);
    EXPECT_EQ(dev().channel_gain[3], taken);
    EXPECT_EQ(phone.chip().peek(0x28), code);
  }
  EXPECT_EQ(sensor->VD6281_GetGain(channel(0x08), &applied), 0);
  EXPECT_EQ(applied, 17067);
}

TEST_F(ExposureGain, ChecksGainArgumentsInOrder) {
  unsigned short applied = 7;
  EXPECT_EQ(sensor->VD6281_SetGain(channel(0x03), 256, nullptr), -4);
  EXPECT_EQ(sensor->VD6281_GetGain(channel(0x03), nullptr), -4);
  bring_up();
  dev().als_channels = 0x01;
  dev().flicker_channels = 0x20;
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->VD6281_SetGain(channel(0x01), 256, nullptr), -1);
                for (const unsigned int bad : {0x00u, 0x03u, 0x21u, 0x40u, 0x80000000u}) {
                  EXPECT_EQ(sensor->VD6281_SetGain(channel(bad), 256, &applied), -1);
                  EXPECT_EQ(sensor->VD6281_GetGain(channel(bad), &applied), -1);
                }
                EXPECT_EQ(sensor->VD6281_SetGain(channel(0x01), 256, &applied), 1);
                EXPECT_EQ(sensor->VD6281_SetGain(channel(0x20), 256, &applied), 1);
                EXPECT_EQ(sensor->VD6281_GetGain(channel(0x20), nullptr), -1);
              }),
              IsEmpty());
  EXPECT_EQ(applied, 7);
  EXPECT_EQ(sensor->set_channel_gain(&dev(), 5, 512), 0)
      << "the internal step does not check for a running measurement";
  EXPECT_EQ(dev().channel_gain[5], 427);
}

TEST_F(ExposureGain, KeepsTheGainOfAFailedChange) {
  unsigned short applied = 7;
  bring_up();
  phone.fail(Fault::register_write().returning(-6));
  EXPECT_EQ(sensor->VD6281_SetGain(channel(0x02), 512, &applied), -6);
  EXPECT_EQ(applied, 7);
  EXPECT_EQ(dev().channel_gain[1], 256);
}

TEST_F(ExposureGain, SetsThePeriodAndReadsItBack) {
  unsigned int applied = 7;
  EXPECT_EQ(sensor->VD6281_SetInterMeasurementTime(0, nullptr), -4);
  EXPECT_EQ(sensor->VD6281_GetInterMeasurementTime(nullptr), -4);
  bring_up();
  for (const auto& [wanted, taken] :
       {std::pair(10249u, 0u), std::pair(10250u, 20500u), std::pair(5227500u, 5227500u),
        std::pair(100000000u, 5227500u), std::pair(4294967295u, 5227500u)}) {
    EXPECT_EQ(sensor->VD6281_SetInterMeasurementTime(wanted, &applied), 0);
    EXPECT_EQ(applied, taken);
    EXPECT_EQ(sensor->VD6281_GetInterMeasurementTime(&applied), 0);
    EXPECT_EQ(applied, taken);
  }
  phone.chip().pin(0x04, 3);
  EXPECT_THAT(events_of([&] { sensor->VD6281_SetInterMeasurementTime(20500, &applied); }),
              ElementsAre("write 04=01", "read 04=03"));
  EXPECT_EQ(applied, 61500u);
  phone.fail(Fault::register_read().every().returning(-7));
  EXPECT_EQ(sensor->VD6281_SetInterMeasurementTime(0, &applied), -7);
  EXPECT_EQ(sensor->VD6281_GetInterMeasurementTime(&applied), -7);
  EXPECT_EQ(applied, 61500u);
}

TEST_F(ExposureGain, RefusesAPeriodByRunningMeasurementAndCut) {
  unsigned int applied = 0;
  bring_up();
  for (const auto& [work_around, state, status] :
       {std::tuple(0, 1u, 0), std::tuple(0, 2u, 7), std::tuple(0, 3u, 0), std::tuple(0, 4u, 7),
        std::tuple(1, 1u, 0), std::tuple(1, 2u, -7), std::tuple(1, 3u, -7),
        std::tuple(1, 4u, -7)}) {
    dev().wa[1] = static_cast<std::uint8_t>(work_around);
    dev().state = state;
    EXPECT_EQ(sensor->VD6281_SetInterMeasurementTime(20500, &applied), status) << state;
    EXPECT_EQ(sensor->VD6281_SetInterMeasurementTime(20500, nullptr), -1);
  }
}

TEST_F(ExposureGain, ReportsTheColourOfEachChannel) {
  VD6281_Color_Id_t color = VD6281_COLOR_RED;
  EXPECT_EQ(sensor->VD6281_GetChannelColor(channel(0x01), nullptr), -4);
  bring_up();
  EXPECT_EQ(sensor->VD6281_GetChannelColor(channel(0x01), nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetChannelColor(channel(0x03), &color), -1);
  const auto colors = [&] {
    std::vector<int> result;
    for (unsigned int bit = 1; bit <= 0x20; bit <<= 1) {
      EXPECT_EQ(sensor->VD6281_GetChannelColor(channel(bit), &color), 0);
      result.push_back(static_cast<int>(color));
    }
    return result;
  };
  for (std::uint8_t map = 0; map < 8; ++map) {
    dev().otp_color_map = map;
    if (map == 2 || map == 5) {
      EXPECT_THAT(colors(), ElementsAre(2, 3, 4, 5, 1, 6));
    } else {
      EXPECT_THAT(colors(), ::testing::Each(6));
    }
  }
  dev().otp_color_map = 2;
  dev().otp_usage_enable = 0;
  EXPECT_THAT(colors(), ::testing::Each(6));
}

}  // namespace
