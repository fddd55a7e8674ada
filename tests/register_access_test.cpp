#include <string>

#include "tests/support/sensor_test.h"

namespace {

class RegisterAccess : public SensorTest {};

TEST_F(RegisterAccess, WritesTheShortestHexTextAndANul) {
  bring_up();
  for (const auto& [address, data, text] :
       {std::tuple(0x3F, 0xE3, "0x3fe3"), std::tuple(0x03, 0x00, "0x300"),
        std::tuple(0x00, 0x05, "0x5"), std::tuple(0x00, 0x00, "0x0"),
        std::tuple(0xFE, 0x0A, "0xfe0a")}) {
    phone.clear_trace();
    EXPECT_EQ(sensor->VD6281_WrByte(static_cast<unsigned char>(address),
                                    static_cast<unsigned char>(data)),
              0);
    ASSERT_EQ(phone.trace().size(), 1u);
    EXPECT_EQ(phone.trace()[0].text, std::string(text) + '\0');
    EXPECT_EQ(phone.trace()[0].fd, dev().fd_write_byte);
  }
}

TEST_F(RegisterAccess, ReadsOneRegisterThroughTheScratchBlock) {
  bring_up();
  phone.chip().pin(0x3C, 0xA7);
  unsigned char data = 0;
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_RdByte(0x3C, &data), 0); }),
              ElementsAre("read 3c=a7"));
  EXPECT_EQ(data, 0xA7);
  EXPECT_EQ(dev().single_xfer.mode, 1u);
  EXPECT_EQ(dev().single_xfer.count, 1u);
  EXPECT_EQ(dev().single_xfer.reg[0], 0x3Cu);
}

TEST_F(RegisterAccess, ReadsConsecutiveRegistersOneByOneAndWraps) {
  bring_up();
  phone.chip().pin(0xFE, 1).pin(0xFF, 2).pin(0x00, 3);
  unsigned char data[3] = {};
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_RdMultipleBytes(0xFE, data, 3), 0); }),
              ElementsAre("read fe=01", "read ff=02", "read 00=03"));
  EXPECT_THAT(data, ElementsAre(1, 2, 3));
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->VD6281_RdMultipleBytes(0, data, 0), 0);
                EXPECT_EQ(sensor->VD6281_RdMultipleBytes(0, data, -1), 0);
              }),
              IsEmpty());
}

TEST_F(RegisterAccess, MakesNoSystemCallWhileNoDeviceIsOpen) {
  const VD6281_device before = dev();
  unsigned char data = 0x55;
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->VD6281_RdByte(0x00, &data), -4);
                EXPECT_EQ(sensor->VD6281_WrByte(0x03, 1), -4);
                EXPECT_EQ(sensor->VD6281_RdMultipleBytes(0x00, &data, 1), -4);
              }),
              IsEmpty());
  EXPECT_EQ(data, 0x55);
  EXPECT_EQ(std::memcmp(&before, &dev(), sizeof before), 0);
}

TEST_F(RegisterAccess, ReturnsAFailedReadUnchanged) {
  bring_up();
  unsigned char data[3] = {7, 7, 7};
  for (const long result : {-1L, -19L, 5L}) {
    phone.heal().fail(Fault::register_read().every().returning(result));
    phone.clear_trace();
    EXPECT_EQ(sensor->VD6281_RdByte(0x3C, data), result);
    EXPECT_THAT(phone.log(), ElementsAre(error_line("VD6281_RdByte ioctl failed")));
  }
  phone.heal().fail(Fault::register_read().at(0x5C));
  EXPECT_EQ(sensor->VD6281_RdMultipleBytes(0x5B, data, 3), -1);
  EXPECT_THAT(data, ElementsAre(0x80, 7, 7)) << "the bytes from the failure on are left alone";
}

TEST_F(RegisterAccess, ReturnsAFailedWriteUnchangedAndAcceptsAShortOne) {
  bring_up();
  for (const long result : {-1L, -5L}) {
    phone.heal().fail(Fault::register_write().returning(result));
    phone.clear_trace();
    EXPECT_EQ(sensor->VD6281_WrByte(0x3F, 0xE3), result);
    EXPECT_THAT(phone.log(),
                ElementsAre(error_line("VD6281_WrByte failed, addr = 0x3f, data = 227\n")));
  }
  phone.clear_trace();
  for (const long result : {0L, 1L, 6L}) {
    phone.heal().fail(Fault::register_write().returning(result));
    EXPECT_EQ(sensor->VD6281_WrByte(0x3F, 0xE3), 0);
  }
  EXPECT_THAT(phone.log(), IsEmpty());
}

TEST_F(RegisterAccess, ConvertsOneHotIdentifiersToChannelIndices) {
  const auto index = [&](std::uint32_t id) {
    return sensor->channelId_2_index(static_cast<VD6281_Channel_Id_t>(id));
  };
  EXPECT_EQ(index(0x01), 0);
  EXPECT_EQ(index(0x20), 5);
  EXPECT_EQ(index(0x40), 6);
  EXPECT_EQ(index(0x80000000), 31);
  EXPECT_EQ(index(0x03), 6);
  EXPECT_EQ(index(0), 6);
  EXPECT_EQ(index(0xFFFFFFFF), 6);
}

}  // namespace
