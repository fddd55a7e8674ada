#include <algorithm>

#include "tests/support/sensor_test.h"

namespace {

class BringUp : public SensorTest {
 protected:
  BringUp() { sensor->VD6281_Enable(true); }

  Lines init_events(int expected_status) {
    return events_of([&] { EXPECT_EQ(sensor->VD6281_Init(), expected_status); });
  }
};

const Lines kOpens = {"open iridel_read_byte", "open iridel_write_byte", "open vd6281"};
const Lines kCloses = {"close vd6281", "close iridel_write_byte", "close iridel_read_byte"};

TEST_F(BringUp, ConfiguresACut22ChipInAFixedOrder) {
  phone.chip().otp_ready_on_read(1);
  const Lines steps = {"read 00=70",  "read 01=bc",  "write fe=01", "write fe=00", "write 58=00",
                       "read 5a=0a",  "read 5b=80",  "read 5c=80",  "read 5d=80",  "read 5e=80",
                       "read 5f=80",  "read 60=80",  "read 61=0e",  "read 62=03",  "read 63=00",
                       "read 64=00",  "read 65=00",  "read 66=00",  "read 67=00",  "read 68=00",
                       "read 69=05",  "read 6a=07",  "write 3d=01", "write 3e=00", "write 3f=e3",
                       "write 40=07", "write 2f=01", "write 30=1f", "write 72=3f", "write 6b=07",
                       "write 6c=07", "write 6d=07", "write 6e=1f", "write 6f=0f", "write 70=1f",
                       "write 25=0d", "write 26=0d", "write 27=0d", "write 28=0d", "write 29=0d",
                       "write 2a=0d", "write 32=03", "write 71=01"};
  EXPECT_EQ(init_events(0), joined(kOpens, steps));
}

TEST_F(BringUp, PreparesTheDeviceRecord) {
  bring_up();
  EXPECT_EQ(dev().state, 1u);
  EXPECT_EQ(dev().exposure, 80000u);
  EXPECT_EQ(dev().otp_usage_enable, 1u);
  EXPECT_THAT(dev().channel_gain, ::testing::Each(256));
  EXPECT_THAT(dev().wa, ElementsAre(0, 0, 0, 0, 0, 1, 1));
  EXPECT_EQ(dev().als_xfer.mode, 0u);
  EXPECT_EQ(dev().als_xfer.count, 23u);
  EXPECT_EQ(dev().als_xfer.reg[22], 0x1Cu);
  EXPECT_EQ(dev().flicker_xfer.count, 7u);
  EXPECT_EQ(dev().flicker_xfer.reg[0], 0x33u);
  EXPECT_EQ(dev().flicker_xfer.reg[6], 0x39u);
}

TEST_F(BringUp, LeavesRegister71AloneOnOlderCutsAndSetsTheirWorkArounds) {
  for (const auto& [cut, work_arounds] :
       {std::pair(Cut::k2_0, std::vector<int>{1, 1, 1, 1, 1, 0, 0}),
        std::pair(Cut::k2_1, std::vector<int>{1, 1, 1, 0, 1, 0, 0})}) {
    phone.chip().cut(cut);
    const Lines events = init_events(0);
    EXPECT_EQ(std::count(events.begin(), events.end(), "write 71=01"), 0);
    EXPECT_THAT(dev().wa, ::testing::ElementsAreArray(work_arounds));
    EXPECT_EQ(sensor->VD6281_Term(), 0);
  }
}

TEST_F(BringUp, IdentifiesTheCutsAndGivesAnUnknownChipNoWorkAround) {
  VD6281_device chip = {};
  const auto cuts_of = [&](std::uint8_t id, std::uint8_t revision) {
    chip.device_id = id;
    chip.revision_id = revision;
    sensor->select_device_wa(&chip);
    return std::vector<int>{sensor->is_cut_2_0(&chip), sensor->is_cut_2_1(&chip),
                            sensor->is_cut_2_2(&chip), chip.wa[0] + chip.wa[5]};
  };
  EXPECT_THAT(cuts_of(0x70, 0xBA), ElementsAre(1, 0, 0, 1));
  EXPECT_THAT(cuts_of(0x70, 0xBB), ElementsAre(0, 1, 0, 1));
  EXPECT_THAT(cuts_of(0x70, 0xBC), ElementsAre(0, 0, 1, 1));
  EXPECT_THAT(cuts_of(0x70, 0xBD), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(cuts_of(0x71, 0xBA), ElementsAre(0, 0, 0, 0));
}

TEST_F(BringUp, RefusesAnUnknownChipAndClosesTheNodes) {
  for (const auto& [id, revision] : {std::pair(0x70, 0xBD), std::pair(0x71, 0xBC)}) {
    phone.chip().identify(static_cast<std::uint8_t>(id), static_cast<std::uint8_t>(revision));
    const Lines events = init_events(-2);
    EXPECT_EQ(Lines(events.end() - 3, events.end()), kCloses);
    EXPECT_THAT(phone.log(), IsEmpty());
    EXPECT_EQ(dev().state, 0u);
    EXPECT_EQ(dev().device_id, id);
    EXPECT_EQ(dev().fd_dev, -1);
  }
}

TEST_F(BringUp, ReportsWhetherTheChipIsSupported) {
  bring_up();
  EXPECT_EQ(sensor->check_supported_device(&dev()), 0);
  phone.chip().identify(0x70, 0xB9);
  EXPECT_EQ(sensor->check_supported_device(&dev()), 2);
  EXPECT_EQ(dev().revision_id, 0xB9) << "the record keeps the identity of any chip";
  phone.fail(Fault::register_read().at(0x01).returning(-9));
  EXPECT_EQ(sensor->check_supported_device(&dev()), -9);
  sensor->VD6281_Term();
  EXPECT_EQ(sensor->check_supported_device(&dev()), -4);
}

TEST_F(BringUp, GivesUpAfterAHundredReadsOfAnOtpThatIsNotReady) {
  phone.chip().pin(0x5A, 0x08);
  const Lines events = init_events(-2);
  EXPECT_EQ(std::count(events.begin(), events.end(), "read 5a=08"), 200)
      << "a hundred reads of the configuration and a hundred of the release";
  EXPECT_EQ(dev().state, 0u);
  EXPECT_EQ(phone.open_descriptors(), 0);
  phone.chip().unpin(0x5A);
  EXPECT_EQ(sensor->VD6281_Init(), 0);
}

TEST_F(BringUp, PollsTheOtpUntilBothReadyBitsAreSet) {
  bring_up();
  phone.chip().pin(0x5A, 0x0A);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->opt_reset(&dev()), 0); }),
              ElementsAre("write 58=00", "read 5a=0a"));
  phone.chip().pin(0x5A, 0xFF);
  EXPECT_EQ(sensor->opt_reset(&dev()), 0);
  phone.chip().pin(0x5A, 0xF5);
  EXPECT_EQ(sensor->opt_reset(&dev()), -3);
  EXPECT_THAT(phone.log(), IsEmpty());
  phone.fail(Fault::register_read().at(0x5A).nth(7).returning(-6));
  EXPECT_EQ(sensor->opt_reset(&dev()), -6);
}

// The driver writes the release sequence of the chip even if a node does not open. Every descriptor
// is closed then, so that these writes fail, which is only logged.
TEST_F(BringUp, LogsAFailedReleaseWhenANodeDoesNotOpen) {
  const std::string open_failed = error_line("VD6281_Init open device failed\n");
  const Lines release = {error_line("VD6281_WrByte failed, addr = 0xfe, data = 1\n"),
                         error_line("VD6281_WrByte failed, addr = 0x58, data = 0\n")};
  const std::pair<Node, Lines> cases[] = {
      {Node::kReadByte, {"open iridel_read_byte failed (ENOENT)", open_failed}},
      {Node::kWriteByte,
       {"open iridel_read_byte", "open iridel_write_byte failed (ENOENT)", open_failed,
        "close iridel_read_byte"}},
      {Node::kDevice,
       {"open iridel_read_byte", "open iridel_write_byte", "open vd6281 failed (ENOENT)",
        "close iridel_write_byte", "close iridel_read_byte", open_failed}}};
  for (const auto& [node, opens] : cases) {
    phone.remove(node);
    EXPECT_EQ(init_events(-2), joined(opens, release));
    EXPECT_EQ(dev().fd_read_byte, -1);
    EXPECT_EQ(dev().fd_write_byte, -1);
    EXPECT_EQ(dev().fd_dev, -1);
    EXPECT_EQ(dev().state, 0u);
    phone.restore(node);
  }
  EXPECT_EQ(sensor->VD6281_Init(), 0);
}

TEST_F(BringUp, FailsCleanlyAtEveryRegisterAccessAndThenSucceeds) {
  for (const Cut cut : {Cut::k2_0, Cut::k2_2}) {
    phone.chip().cut(cut);
    bring_up();
    EXPECT_EQ(sensor->VD6281_Term(), 0);
    init_events(0);
    int reads = 0;
    int writes = 0;
    for (const auto& event : phone.trace()) {
      reads += event.is_register_read() ? 1 : 0;
      writes += event.is_register_write() ? 1 : 0;
    }
    EXPECT_EQ(sensor->VD6281_Term(), 0);
    const auto fails_cleanly = [&](Fault fault) {
      phone.heal().fail(fault);
      EXPECT_EQ(sensor->VD6281_Init(), -2);
      EXPECT_EQ(dev().state, 0u);
      EXPECT_EQ(dev().fd_read_byte, -1);
      EXPECT_EQ(phone.open_descriptors(), 0);
      phone.heal();
      EXPECT_EQ(sensor->VD6281_Init(), 0);
      EXPECT_EQ(sensor->VD6281_Term(), 0);
    };
    for (int i = 1; i <= reads; ++i) fails_cleanly(Fault::register_read().nth(i));
    for (int i = 1; i <= writes; ++i) fails_cleanly(Fault::register_write().nth(i));
    EXPECT_GT(reads + writes, 40);
  }
}

TEST_F(BringUp, LeavesAnOpenDeviceAlone) {
  bring_up();
  const VD6281_device before = dev();
  EXPECT_THAT(init_events(-2), ElementsAre(error_line("dev is null")));
  EXPECT_EQ(std::memcmp(&before, &dev(), sizeof before), 0);
}

TEST_F(BringUp, TermResetsTheChipAndClosesTheNodesInReverseOnce) {
  bring_up();
  const Lines events = events_of([&] { EXPECT_EQ(sensor->VD6281_Term(), 0); });
  EXPECT_THAT(events, ElementsAre("write fe=01", "write fe=00", "write 58=00", "read 5a=00",
                                  "read 5a=0a", "write 71=01", "close vd6281",
                                  "close iridel_write_byte", "close iridel_read_byte"));
  EXPECT_EQ(dev().fd_dev, -1);
  EXPECT_EQ(dev().fd_write_byte, -1);
  EXPECT_EQ(dev().fd_read_byte, -1);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->VD6281_Term(), -4); }), IsEmpty());
}

TEST_F(BringUp, ClaimsOnlyAFreeRecord) {
  EXPECT_EQ(sensor->get_device(), &dev());
  EXPECT_EQ(sensor->get_active_device(), nullptr);
  bring_up();
  EXPECT_EQ(sensor->get_device(), nullptr);
  EXPECT_EQ(sensor->get_active_device(), &dev());
}

TEST_F(BringUp, ReportsTheVersionOfTheDriver) {
  unsigned int major = 9;
  unsigned int minor = 9;
  EXPECT_EQ(sensor->VD6281_GetVersion(nullptr, &minor), -1);
  EXPECT_EQ(sensor->VD6281_GetVersion(&major, nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetVersion(&major, &minor), 0);
  EXPECT_EQ(major, 0u);
  EXPECT_EQ(minor, 20u);
}

TEST_F(BringUp, ReportsTheVersionOfTheChip) {
  unsigned char id = 0;
  unsigned char revision = 0;
  EXPECT_EQ(sensor->VD6281_GetProductVersion(nullptr, nullptr), -4);
  bring_up();
  EXPECT_EQ(sensor->VD6281_GetProductVersion(&id, nullptr), -1);
  EXPECT_EQ(sensor->VD6281_GetProductVersion(nullptr, &revision), -1);
  EXPECT_EQ(sensor->VD6281_GetProductVersion(&id, &revision), 0);
  EXPECT_EQ(id, 0x70);
  EXPECT_EQ(revision, 0xBC);
}

}  // namespace
