#include "tests/support/sensor_test.h"

namespace {

class Controls : public SensorTest {
 protected:
  int set(std::uint32_t id, unsigned int setting) {
    return sensor->VD6281_SetControl(static_cast<VD6281_Control_Id_t>(id), setting);
  }
  int get(std::uint32_t id, unsigned int* setting) {
    return sensor->VD6281_GetControl(static_cast<VD6281_Control_Id_t>(id), setting);
  }
  unsigned int value = 99;
};

TEST_F(Controls, ChecksDevicePointerAndIdInOrder) {
  EXPECT_EQ(set(2, 0), -4);
  EXPECT_EQ(get(2, nullptr), -4);
  bring_up();
  EXPECT_THAT(events_of([&] {
                for (const std::uint32_t id : {2u, 5u, 127u, 130u, 0xFFFFFFFFu}) {
                  EXPECT_EQ(set(id, 0), -1);
                  EXPECT_EQ(get(id, &value), -1);
                }
                EXPECT_EQ(get(0, nullptr), -1);
              }),
              IsEmpty());
  EXPECT_EQ(value, 99u);
}

TEST_F(Controls, AreRefusedWhileAMeasurementRuns) {
  bring_up();
  for (const std::uint32_t state : {2u, 3u, 4u}) {
    dev().state = state;
    for (const std::uint32_t id : {0u, 1u}) EXPECT_EQ(set(id, 1), state == 2 ? 0 : -7);
    phone.clear_trace();
    for (const std::uint32_t id : {3u, 4u, 128u, 129u}) EXPECT_EQ(set(id, 4), -7);
    EXPECT_EQ(set(2, 4), -1);
    EXPECT_THAT(phone.events(), IsEmpty());
    EXPECT_EQ(get(4, &value), 0);
  }
}

TEST_F(Controls, SwitchAndSizeThePedestal) {
  bring_up();
  phone.chip().write(0x31, 0x8A);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(0, 0), 0); }),
              ElementsAre("read 31=8a", "write 31=ca"));
  EXPECT_EQ(get(0, &value), 0);
  EXPECT_EQ(value, 0u);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(0, 5), 0); }),
              ElementsAre("read 31=ca", "write 31=8a"));
  EXPECT_EQ(get(0, &value), 0);
  EXPECT_EQ(value, 1u);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(1, 9), 0); }), ElementsAre("write 32=01"));
  phone.chip().pin(0x32, 0xFD);
  EXPECT_EQ(get(1, &value), 0);
  EXPECT_EQ(value, 5u);
}

TEST_F(Controls, NegateAFailedPedestalValue) {
  EXPECT_EQ(sensor->set_pedestal_value(&dev(), 3), 4) << "no device";
  bring_up();
  phone.fail(Fault::register_write().every().returning(-6)).clear_trace();
  EXPECT_EQ(set(1, 3), 6);
  EXPECT_THAT(phone.log(),
              ElementsAre(error_line("VD6281_WrByte failed, addr = 0x32, data = 3\n")));
  EXPECT_EQ(set(0, 3), -6) << "the other controls return the failure unchanged";
}

TEST_F(Controls, SwitchTheDarkOutput) {
  EXPECT_EQ(sensor->set_output_dark_enable(&dev(), 1), -4);
  bring_up();
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(3, 42), 0); }), ElementsAre("write 6c=18"));
  EXPECT_EQ(get(3, &value), 0);
  EXPECT_EQ(value, 42u) << "the caller's value";
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(3, 0), 0); }), ElementsAre("write 6c=07"));
  phone.fail(Fault::register_write().returning(-9));
  EXPECT_EQ(set(3, 1), -9);
  EXPECT_EQ(dev().output_dark_enable, 0u);
}

TEST_F(Controls, SetTheDriveStrengthInSteps) {
  bring_up();
  EXPECT_THAT(events_of([&] {
                for (const unsigned int bad : {0u, 6u, 24u, 0x80000004u}) {
                  EXPECT_EQ(set(4, bad), 1);
                }
              }),
              IsEmpty());
  phone.chip().write(0x3C, 0xF9);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(4, 20), 0); }),
              ElementsAre("read 3c=f9", "write 3c=fc"));
  EXPECT_EQ(get(4, &value), 0);
  EXPECT_EQ(value, 20u);
  phone.chip().pin(0x3C, 0xFF);
  EXPECT_EQ(get(4, &value), 0);
  EXPECT_EQ(value, 32u);
  phone.fail(Fault::register_write().returning(-2));
  EXPECT_EQ(set(4, 4), -2);
}

TEST_F(Controls, GiveAFallbackWhenAReadFails) {
  bring_up();
  phone.fail(Fault::register_read().every().returning(-3));
  for (const auto& [id, fallback] : {std::pair(0u, 1u), std::pair(1u, 0u), std::pair(4u, 4u)}) {
    value = 99;
    EXPECT_EQ(get(id, &value), -3);
    EXPECT_EQ(value, fallback);
  }
  sensor->VD6281_Term();
  EXPECT_EQ(sensor->get_pedestal_enable(&dev(), &value), -4);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(sensor->get_pedestal_value(&dev(), &value), -4);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(sensor->get_sda_drive_value(&dev(), &value), -4);
  EXPECT_EQ(value, 4u);
}

TEST_F(Controls, ChooseTheTrimValues) {
  phone.chip().otp(spectralsim::Otp().osc_trim(0x1AB));
  bring_up();
  dev().otp_osc2_trim = 0xF3;  // the register has four bits
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(128, 0), 0); }),
              ElementsAre("write 3d=01", "write 3e=00", "write 3f=e3", "write 40=07"));
  EXPECT_THAT(events_of([&] { EXPECT_EQ(set(128, 7), 0); }),
              ElementsAre("write 3d=01", "write 3e=01", "write 3f=ab", "write 40=03"));
  EXPECT_EQ(get(128, &value), 0);
  EXPECT_EQ(value, 7u);
  phone.fail(Fault::register_write().returning(-5));
  EXPECT_EQ(set(128, 0), -5);
  EXPECT_EQ(dev().otp_usage_enable, 0u) << "the control is stored before the registers are written";
}

TEST_F(Controls, ReachTheWorkAroundsByIdentifier) {
  bring_up(Cut::k2_2);
  constexpr std::uint32_t kIds[] = {460857, 462997, 461428, 464174, 478654, 498243};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(set(129, kIds[i] | 0x80000000), 0);
    EXPECT_EQ(dev().wa[i], 1);
    value = kIds[i];
    EXPECT_EQ(get(129, &value), 0);
    EXPECT_EQ(value, kIds[i] | 0x80000000);
    EXPECT_EQ(set(129, kIds[i]), 0);
    EXPECT_EQ(dev().wa[i], 0);
    value = kIds[i];
    EXPECT_EQ(get(129, &value), 0);
    EXPECT_EQ(value, kIds[i]);
    value = kIds[i] | 0x80000000;
    EXPECT_EQ(get(129, &value), 0);
    EXPECT_EQ(value, kIds[i] | 0x80000000) << "the flag that the caller passes in is not cleared";
  }
  EXPECT_EQ(dev().wa[6], 1);
  EXPECT_EQ(set(129, 12345), 1);
  value = 12345;
  EXPECT_EQ(get(129, &value), 1);
  EXPECT_EQ(value, 12345u);
}

}  // namespace
