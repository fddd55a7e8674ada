// Calls on the simulated phone that fail, return short or return late.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "driver/nodes.h"
#include "simulator/hub.h"
#include "tests/support/sensor_test.h"

namespace {

using spectralsim::kNsPerMs;

class Faults : public ::testing::Test {
 protected:
  std::int64_t now_ms() { return phone.clock().now_ns() / kNsPerMs; }
  // Returns the result of a read of the power attribute, or minus the errno.
  ssize_t read_power() {
    const int fd = open(spectral::kEnablePath, O_RDWR);
    char text[8];
    const ssize_t got = read(fd, text, sizeof text);
    const ssize_t result = got < 0 ? -errno : got;
    close(fd);
    return result;
  }

  spectralsim::Phone phone;
};

TEST_F(Faults, MayHitEveryAccessFromOneOn) {
  phone.fail(Fault::parse("read:iridel_enable#3+=EBUSY"));
  EXPECT_EQ(read_power(), 2);
  EXPECT_EQ(read_power(), 2);
  EXPECT_EQ(read_power(), -EBUSY);
  EXPECT_EQ(read_power(), -EBUSY);
}

TEST_F(Faults, AReadMayReturnShort) {
  phone.fail(Fault::parse("read:iridel_enable=1"));
  phone.fail(Fault::read(Node::kEnable).nth(2).returning(0));
  EXPECT_EQ(read_power(), 1);
  EXPECT_EQ(read_power(), 0);
}

TEST_F(Faults, ALateCallIsCarriedOutAndAStalledOneIsNot) {
  phone.fail(Fault::parse("read:iridel_enable=+700ms"));
  phone.fail(Fault::read(Node::kEnable).nth(2).late_by_ms(90).with_errno(ETIMEDOUT));
  bool in_the_middle = false;
  phone.clock().after_ms(300, [&] { in_the_middle = phone.open_descriptors() == 1; });
  EXPECT_EQ(read_power(), 2);
  EXPECT_EQ(now_ms(), 700);
  EXPECT_TRUE(in_the_middle);
  EXPECT_EQ(read_power(), -ETIMEDOUT);
  EXPECT_EQ(now_ms(), 790);
}

TEST_F(Faults, AFailedCloseStillCloses) {
  phone.fail(Fault::parse("close:iridel_enable=EINTR"));
  phone.fail(Fault::parse("close:sensor_tunnel"));
  const int fd = open(spectral::kEnablePath, O_RDWR);
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(errno, EINTR);
  std::FILE* tunnel = std::fopen(spectral::kTunnelPath, "r");
  ASSERT_NE(tunnel, nullptr);
  EXPECT_EQ(std::fclose(tunnel), EOF);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(phone.open_descriptors(), 0);
  EXPECT_EQ(phone.events().back(), "close sensor_tunnel failed (EIO)");
}

TEST_F(Faults, EveryNodeCanBeNamed) {
  for (const char* text : {"open:sensor_tunnel", "open:unparsed_flicker_data", "dlopen:analysis",
                           "open:flicker_data.wav", "open:ials_fac_test", "open:iridel_enable",
                           "open:iridel_read_byte"}) {
    EXPECT_NO_THROW(Fault::parse(text)) << text;
  }
}

TEST_F(Faults, TheHubKeepsTenSecondsForALateReader) {
  phone.chip().power(true);
  phone.hub().route(true);
  phone.hub().set_up(36897, 0, 0);
  std::vector<char> bytes(1 << 20);
  const auto dark = [](std::int64_t, std::int64_t) { return std::int16_t{0}; };
  const std::size_t got = phone.hub().read(bytes.data(), bytes.size(), 3600000 * kNsPerMs, dark);
  EXPECT_EQ(got / 188, 1001u);
  EXPECT_EQ(static_cast<unsigned char>(bytes[20]) | static_cast<unsigned char>(bytes[21]) << 8 |
                static_cast<unsigned char>(bytes[22]) << 16,
            360000 - 1001)
      << "the sequence number counts the lost packets";
}

}  // namespace
