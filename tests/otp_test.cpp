#include <string>

#include "simulator/otp.h"
#include "tests/support/sensor_test.h"

namespace {

using spectralsim::Otp;

class OtpReadout : public SensorTest {
 protected:
  std::string uid_of(const Otp& otp) {
    read(otp);
    char* uid = nullptr;
    EXPECT_EQ(sensor->VD6281_GetUid(&uid), 0);
    return uid != nullptr ? uid : "";
  }

  void read(const Otp& otp) {
    sensor->VD6281_Term();
    phone.chip().otp(otp);
    bring_up();
  }
};

TEST_F(OtpReadout, KeepsTheDefaultsForAnUnknownLayout) {
  for (const unsigned int version : {0u, 1u, 4u}) {
    const Otp otp = Otp().version(version).slope(0, 0x9A).osc_trim(0x1FF).color_map(5).osc2_trim(1);
    EXPECT_EQ(uid_of(otp), "fffffffffffffff");
    EXPECT_EQ(dev().otp_osc_trim, 0xE3);
    EXPECT_EQ(dev().otp_osc2_trim, 7);
    EXPECT_EQ(dev().otp_color_map, 0);
    EXPECT_THAT(dev().otp_slope, ::testing::Each(0x80));
  }
}

TEST_F(OtpReadout, DecodesTheKnownLayouts) {
  for (const unsigned int version : {5u, 6u, 7u}) {
    read(
        Otp().version(version).slope(0, 0x9A).slope(5, 0x01).osc_trim(0x155).color_map(6).osc2_trim(
            0xB));
    EXPECT_THAT(dev().otp_slope, ElementsAre(0x9A, 0x80, 0x80, 0x80, 0x80, 0x01));
    EXPECT_EQ(dev().otp_osc_trim, 0x155);
    EXPECT_EQ(dev().otp_color_map, 6);
    EXPECT_EQ(dev().otp_osc2_trim, 0xB);
  }
  read(Otp().version(6).raw(0x61, 0xFF).raw(0x62, 0x0F));
  EXPECT_EQ(dev().otp_osc_trim, 0x1FF);
  EXPECT_EQ(dev().otp_color_map, 7);
}

TEST_F(OtpReadout, ReplacesAnUnprogrammedSlopeButKeepsZeroTrims) {
  EXPECT_EQ(uid_of(Otp(Otp::Registers{}).raw(0x69, 0x05)), "aaaaaaaaaaaaaa");
  EXPECT_THAT(dev().otp_slope, ::testing::Each(0x80));
  EXPECT_EQ(dev().otp_osc_trim, 0);
  EXPECT_EQ(dev().otp_color_map, 0);
  EXPECT_EQ(dev().otp_osc2_trim, 0);
}

// A bit of the id changes the character of its nibble and all characters behind it.
TEST_F(OtpReadout, ChainsTheUidNibbleByNibble) {
  const Otp blank = Otp(Otp::Registers{}).raw(0x69, 0x05);
  EXPECT_EQ(uid_of(Otp(blank).raw(0x63, 0x80)), "bbbbbbbbbbbbbb");  // the first character's bit
  EXPECT_EQ(uid_of(Otp(blank).raw(0x63, 0x40)), "a2222222222222");
  EXPECT_EQ(uid_of(Otp(blank).raw(0x63, 0x08)), "abbbbbbbbbbbbb");
  EXPECT_EQ(uid_of(Otp(blank).raw(0x63, 0x04)), "aa222222222222");
  EXPECT_EQ(uid_of(Otp(blank).raw(0x64, 0x08)), "aaabbbbbbbbbbb");
  EXPECT_EQ(uid_of(Otp(blank).raw(0x69, 0x0D)), "aaaaaaaaaaaaab");  // the stream's last bit
  EXPECT_EQ(uid_of(Otp(blank).raw(0x69, 0x07)), "eeeeeeeeeeeeee");  // version 7
  EXPECT_EQ(uid_of(Otp(blank).raw(0x6A, 0xFF).raw(0x62, 0xF0)), "aaaaaaaaaaaaaa");
}

TEST_F(OtpReadout, PacksEachRegisterReversedAndDropsTwoHighNibbles) {
  Otp::Registers registers = {};
  for (std::size_t i = 0; i < registers.size(); ++i) {
    registers[i] = static_cast<std::uint8_t>(0x10 * i + 1);
  }
  read(Otp(registers));
  // Registers 0x71 and 0xF1 give their low nibbles only. Register 0x81 is split between the words.
  EXPECT_EQ(dev().otp_bank0, 0x18868A828C848880u);
  EXPECT_EQ(dev().otp_bank1, 0x008878B838D85898u);
}

TEST_F(OtpReadout, KeepsWhatWasPackedBeforeAFailedRead) {
  read(Otp(Otp::Registers{}).raw(0x5B, 0xFF).raw(0x63, 0xF0).raw(0x69, 0x05));
  const std::uint64_t bank1 = dev().otp_bank1;
  ASSERT_EQ(dev().otp_bank0, 0xF0000000000000FFu);
  phone.fail(Fault::register_read().at(0x63).returning(-3));
  EXPECT_EQ(sensor->opt_read_init(&dev()), -3);
  EXPECT_EQ(dev().otp_bank0, 0xFFu);
  EXPECT_EQ(dev().otp_bank1, bank1);
  phone.heal().fail(Fault::register_read().at(0x62));
  EXPECT_EQ(sensor->opt_read_init(&dev()), -1);
  EXPECT_EQ(dev().otp_bank0, 0u);
}

TEST_F(OtpReadout, ReadsFieldsOfTheWords) {
  VD6281_device record = {};
  record.otp_bank0 = 0xA000000000000035;
  record.otp_bank1 = 0x00E000000000000C;
  unsigned int value = 0;
  EXPECT_EQ(sensor->otp_read(&record, 60, 8, &value, 0), 0);
  EXPECT_EQ(value, 0xCAu) << "a field across both words";
  sensor->otp_read(&record, 60, 8, &value, 1);
  EXPECT_EQ(value, 0x53u);
  sensor->otp_read(&record, 64, 4, &value, 0);
  EXPECT_EQ(value, 0xCu);
  sensor->otp_read(&record, 0, 31, &value, 0);
  EXPECT_EQ(value, 0x35u);
  sensor->otp_read(&record, 0, 32, &value, 0);
  EXPECT_EQ(value, 0u) << "a width of 32 counts as 0";
  EXPECT_EQ(sensor->otp_read_bank(&record, 0, 2, 5, &value), 0);
  EXPECT_EQ(value, 0xDu);
  sensor->otp_read_bank(&record, 1, 53, 55, &value);
  EXPECT_EQ(value, 7u);
  sensor->otp_read_bank(&record, 0, 0, 31, &value);
  EXPECT_EQ(value, 0u);
}

TEST_F(OtpReadout, ConvertsBitsAndNibbles) {
  EXPECT_EQ(sensor->byte_bit_reversal(0x01), 0x80);
  EXPECT_EQ(sensor->byte_bit_reversal(0xD2), 0x4B);
  EXPECT_EQ(sensor->nible_to_ascii(9), '9');
  EXPECT_EQ(sensor->nible_to_ascii(10), 'a');
  unsigned char chain = 0x5;
  EXPECT_EQ(sensor->encode_nible(0xF, &chain), 'a');
  EXPECT_EQ(chain, 0xA);
}

TEST_F(OtpReadout, ReturnsTheUidOfAnOpenDeviceOnly) {
  char* uid = nullptr;
  EXPECT_EQ(sensor->VD6281_GetUid(nullptr), -4);
  bring_up();
  EXPECT_EQ(sensor->VD6281_GetUid(nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetUid(&uid), 0);
  EXPECT_EQ(uid, dev().uid);
  sensor->VD6281_Term();
  EXPECT_EQ(sensor->VD6281_GetUid(&uid), -4);
}

}  // namespace
