#include <algorithm>
#include <random>

#include "tests/support/sensor_test.h"

namespace {

using spectralsim::Hub;

class TunnelStream : public SensorTest {
 protected:
  TunnelStream() { bring_up(); }

  static std::string flicker(std::uint16_t id, std::uint32_t sequence, char fill) {
    return Hub::packet(id, sequence, 1000 + sequence, std::string(160, fill));
  }

  static std::string flicker_packets(std::uint32_t count) {
    std::string bytes;
    for (std::uint32_t i = 0; i < count; ++i) bytes += flicker(0, i, static_cast<char>(1 + i));
    return bytes;
  }

  // Opens the tunnel on a stream of these bytes.
  void open(const std::string& bytes) {
    phone.hub().send(bytes);
    ASSERT_EQ(sensor->VD6281_QuilInit(), 0);
    ASSERT_EQ(sensor->VD6281_QuilTunnelSetup(), 0);
    ASSERT_EQ(sensor->VD6281_QuilResetRdBuf(), 0);
    phone.clear_trace();
  }

  unsigned char* gather(const std::string& bytes, unsigned int len_ms) {
    open(bytes);
    unsigned char* result = sensor->VD6281_GetFlickerDataBuffer(len_ms);
    EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), 0);
    EXPECT_EQ(phone.open_descriptors(), 3);
    EXPECT_EQ(dev().tun_dev, nullptr);
    return result;
  }

  // The number of payloads in the buffer; none begins with a zero.
  int payloads() const {
    int count = 0;
    while (count < 100 && dev().flicker_buf[160 * count] != 0) ++count;
    return count;
  }
};

const std::string kGather = "VD6281_GetFlickerDataBuffer";
const std::string kDump = "VD6281_QuilDumpFlickerDataToFile";
const std::string kOutOfStep = ": Could not find the magic number, reading again";

TEST_F(TunnelStream, GathersPayloadsByLength) {
  std::string bytes;
  for (std::uint32_t i = 0; i < 120; ++i) {
    bytes += flicker(0, i, static_cast<char>(1 + i)) + Hub::packet(15, i, 0, std::string(16, 'v'));
  }
  for (const auto& [len_ms, count] : {std::pair(9u, 0), std::pair(10u, 1), std::pair(19u, 1),
                                      std::pair(250u, 25), std::pair(1000u, 100)}) {
    EXPECT_EQ(gather(bytes, len_ms), dev().flicker_buf);
    EXPECT_EQ(payloads(), count) << len_ms;
    EXPECT_THAT(phone.log(), IsEmpty());
  }
  for (int i = 0; i < 100; ++i) EXPECT_EQ(dev().flicker_buf[160 * i + 159], 1 + i);
  EXPECT_EQ(dev().seq_lost[0], 0u);
  EXPECT_EQ(dev().last_seq[0], 99u);
}

TEST_F(TunnelStream, NeedsAnOpenDevice) {
  sensor->VD6281_Term();
  EXPECT_THAT(events_of([&] {
                EXPECT_EQ(sensor->VD6281_GetFlickerDataBuffer(2000), nullptr);
                EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(2000), -4);
              }),
              IsEmpty());
}

TEST_F(TunnelStream, ReadsASecondAtMost) {
  const std::string message = ": maximum length is 1000 ms, requested length: 1001 ms";
  EXPECT_EQ(sensor->VD6281_GetFlickerDataBuffer(1001), nullptr);
  EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(1001), -1);
  EXPECT_THAT(phone.events(),
              ElementsAre(error_line(kGather + message), error_line(kDump + message)));
}

TEST_F(TunnelStream, TracksSequenceNumbersAndTimeStampsPerId) {
  gather(flicker(3, 5, 'a') + flicker(3, 9, 'b') + flicker(4, 7, 'c') + flicker(31, 1, 'd'), 40);
  EXPECT_EQ(payloads(), 4);
  EXPECT_EQ(dev().seq_lost[3], 3u);
  EXPECT_EQ(dev().seq_lost[4], 0u);
  EXPECT_EQ(dev().pkt_ts[3], 1009u);
  EXPECT_EQ(dev().seq_seen[31], 1u);
  EXPECT_EQ(dev().parsed_bytes, 4 * 188);
}

TEST_F(TunnelStream, AcceptsIds0To32AndTracks0To31) {
  gather(flicker(32, 5, 'a') + flicker(33, 6, 'b') + flicker(0xFFFF, 7, 'c') + flicker(0, 8, 'd'),
         20);
  EXPECT_EQ(payloads(), 2);
  EXPECT_EQ(dev().flicker_buf[160], 'd');
  EXPECT_THAT(phone.log(), ElementsAre(error_line(kGather + ": Invalid tunnel id 33"),
                                       error_line(kGather + ": Invalid tunnel id 65535")));
  EXPECT_EQ(dev().hdr_size, 28u) << "the field behind the per-id tables";
  EXPECT_EQ(dev().cur_id, 0);
}

// After a first packet of 188 bytes, the rest of the read is looked at if it is longer than a
// header.
TEST_F(TunnelStream, ParsesARestThatIsLongerThanAHeader) {
  for (const std::size_t rest : {28u, 29u}) {
    gather(flicker(0, 0, 'a') + std::string(rest, '?'), 20);
    const bool parsed = phone.log()[0] == error_line(kGather + kOutOfStep);
    EXPECT_EQ(parsed, rest == 29) << rest;
    EXPECT_EQ(payloads(), 1);
  }
}

// A read of 8192 bytes may end anywhere in a packet.
TEST_F(TunnelStream, CompletesPacketsAcrossReads) {
  for (const std::size_t odd : {0u, 1u, 7u, 100u, 8000u, 9000u}) {
    gather(Hub::packet(15, 0, 0, std::string(odd, 'x')) + flicker_packets(100), 1000);
    EXPECT_EQ(payloads(), 100) << odd;
    EXPECT_EQ(dev().seq_lost[0], 0u);
    EXPECT_THAT(phone.log(), IsEmpty());
  }
}

TEST_F(TunnelStream, GivesUpAStreamOutOfStep) {
  EXPECT_EQ(gather("EMOSxxxxxxxxxxxxxxxxxxxxxxxxxxxx", 100), nullptr);
  EXPECT_EQ(phone.log()[0], error_line(kGather + kOutOfStep));
  EXPECT_EQ(phone.log()[1],
            error_line(kGather + ": buf_itr[0] 45 buf_itr[1] 4d buf_itr[2] 4f buf_itr[3] 53 "));
  EXPECT_EQ(gather(flicker(0, 0, 'a') + std::string(100, '?'), 100), nullptr);
}

// The first read ends 28 bytes into garbage, as many as a packet's header has.
TEST_F(TunnelStream, GivesUpGarbageAcrossReads) {
  std::string bytes = flicker_packets(43);
  const std::size_t to_the_cut = 8192 - 28 - bytes.size();
  bytes += Hub::packet(15, 0, 0, std::string(to_the_cut - 28, 'v')) + std::string(200, '\xFF');
  EXPECT_EQ(gather(bytes, 1000), nullptr);
  EXPECT_EQ(phone.log()[0], error_line(kGather + kOutOfStep));
}

TEST_F(TunnelStream, KeepsThePayloadsOfAStreamThatEnds) {
  const std::string warning = warning_line(kGather + ":Failed to read data from the tunnel");
  const std::string two = flicker(0, 0, 'a') + flicker(0, 1, 'b');
  for (const std::string& bytes :
       {std::string(), two, two + flicker(0, 2, 'c').substr(0, 100), two + "EMOR", two + "EM",
        two + Hub::packet(0, 2, 0, std::string(65535, 'z')),
        two + Hub::packet(0, 2, 0, std::string(16357, 'z'))}) {
    EXPECT_EQ(gather(bytes, 100), dev().flicker_buf);
    EXPECT_EQ(payloads(), bytes.empty() ? 0 : 2) << bytes.size();
    EXPECT_EQ(phone.log()[0], warning);
  }
  gather(two + Hub::packet(0, 2, 0, std::string(16356, 'z')) + flicker(0, 3, 'c'), 30);
  EXPECT_EQ(payloads(), 3) << "the longest packet that fits into the buffer";
}

TEST_F(TunnelStream, FillsItsBufferWithAPacketThatNeverFits) {
  const std::string packet = Hub::packet(0, 0, 0, std::string(20000, 'z'));
  for (const std::size_t there : {5000u, 9000u, 16384u, 20028u}) {
    gather(packet.substr(0, there), 100);
    EXPECT_EQ(dev().rd_len, static_cast<std::int32_t>(std::min<std::size_t>(there, 16384)));
    EXPECT_EQ(dev().carry_len, dev().rd_len);
    EXPECT_EQ(phone.log().size(), 1u) << "the failed read";
  }
}

TEST_F(TunnelStream, StopsWhenTheFlagIsCleared) {
  sensor->SetEnableFlag(2, false);
  gather(flicker_packets(10), 100);
  EXPECT_EQ(payloads(), 0);
  EXPECT_THAT(phone.log(), IsEmpty());
}

TEST_F(TunnelStream, ReportsATunnelThatHasBeenClosed) {
  open(flicker_packets(10));
  dev().tun_dev = (std::fclose(dev().tun_dev), nullptr);
  EXPECT_EQ(sensor->VD6281_GetFlickerDataBuffer(100), dev().flicker_buf);
  EXPECT_THAT(phone.log(),
              ElementsAre(error_line(kGather + ":tun_dev is null (possibly device FW crash)")));
}

TEST_F(TunnelStream, StaysWithinItsBuffersOnAnyStream) {
  constexpr std::uint32_t kSeed = 4711;
  RecordProperty("seed", static_cast<int>(kSeed));
  std::mt19937 engine(kSeed);
  const auto random = [&engine] { return static_cast<std::uint32_t>(engine()); };
  for (int round = 0; round < 400; ++round) {
    std::string bytes;
    while (bytes.size() < 30000) {
      std::string packet = Hub::packet(
          static_cast<std::uint16_t>(random() % 3 == 0 ? random() : random() % 40), random(),
          random(), std::string(random() % 4 == 0 ? random() % 65536 : 160, 'p'));
      if (random() % 16 == 0) packet[random() % packet.size()] = static_cast<char>(random());
      if (random() % 32 == 0) packet.resize(random() % packet.size());
      bytes += packet;
    }
    gather(bytes, 10 + random() % 991);
    EXPECT_EQ(dev().hdr_size, 28u) << "seed " << kSeed << ", round " << round;
  }
}

TEST_F(TunnelStream, DumpsTheRawStreamAndThePayloads) {
  const std::string bytes = flicker(0, 0, 'a') + Hub::packet(15, 0, 0, "vsync") +
                            flicker(40, 0, 'x') + flicker(32, 1, 'y');
  open(bytes);
  EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(30), 0);
  EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), 0);
  EXPECT_EQ(phone.dumped(Node::kUnparsedFile), bytes);
  EXPECT_EQ(phone.dumped(Node::kDumpFile), "vsync" + std::string(155, 'a'))
      << "the two ids write two files of one name, each from its start";
  EXPECT_EQ(phone.open_descriptors(), 3);
}

TEST_F(TunnelStream, ADumpDoesNotCountInvalidIds) {
  const std::string bytes = flicker(33, 0, 'x') + flicker(40, 0, 'x') + flicker(0, 0, 'a');
  open(bytes + flicker(0, 1, 'b'));
  EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(10), 0);
  EXPECT_EQ(sensor->VD6281_QuilTunnelTerminate(), 0);
  EXPECT_EQ(phone.dumped(Node::kDumpFile), std::string(160, 'a'));
}

TEST_F(TunnelStream, EndsADumpThatFails) {
  open("");
  EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(100), 0);
  EXPECT_EQ(phone.log().back(), error_line(kDump + ":Failed to read data from the tunnel"));
  sensor->VD6281_QuilTunnelTerminate();
  EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(100), 0)
      << "a closed tunnel is an empty stream";
  sensor->VD6281_QuilTunnelTerminate();
  for (const auto& [node, bytes, message] :
       {std::tuple(Node::kUnparsedFile, std::string(),
                   kDump + ": Failed to open the file /data/unparsed_flicker_data"),
        std::tuple(Node::kDumpFile, flicker(0, 0, 'a'),
                   kDump + ": ERROR: Failed to open the file /data/flicker_data.wav"),
        std::tuple(Node::kNone, std::string(40, '?'), kDump + kOutOfStep)}) {
    open(bytes);
    phone.heal().fail(Fault::open(node));
    EXPECT_EQ(sensor->VD6281_QuilDumpFlickerDataToFile(100), 0);
    EXPECT_EQ(phone.log()[0], error_line(message));
    EXPECT_EQ(phone.open_descriptors(), 3) << "the tunnel is torn down";
  }
}

}  // namespace
