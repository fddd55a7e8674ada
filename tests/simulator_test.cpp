// The simulated phone: the chip's registers, the kernel's nodes, time, scenes and faults.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "driver/channel.h"
#include "driver/nodes.h"
#include "driver/register_map.h"
#include "simulator/phone.h"
#include "vd6281.h"

namespace {

using namespace std::chrono_literals;
namespace reg = spectral::reg;
using spectral::address_of;
using spectral::Register;
using spectralsim::Chip;
using spectralsim::Fault;
using spectralsim::Light;
using spectralsim::Scene;
using ::testing::ElementsAre;

constexpr Light kEven = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0};

class SimulatedChip : public ::testing::Test {
 protected:
  SimulatedChip() {
    chip.noise(0, 1).power(true);
    chip.write(address_of(Register::kDcEnable), spectral::kDcChannels);
    chip.write(address_of(Register::kAcEnable), reg::kOn);
    for (int n = 0; n < spectral::kChannels; ++n) {
      chip.write(address_of(Register::kChannelGain + n), 13);
    }
  }

  void expose(int steps, std::uint8_t measurement = reg::kSingleShotAls) {
    chip.write(address_of(Register::kExposureLow), static_cast<std::uint8_t>(steps & 0xFF));
    chip.write(address_of(Register::kExposureHigh), static_cast<std::uint8_t>(steps >> 8));
    chip.write(address_of(Register::kMeasurement), measurement);
  }

  bool result_waits() { return (*chip.read(address_of(Register::kStatus)) & reg::kNoResult) == 0; }

  void acknowledge() {
    chip.write(address_of(Register::kStatus), reg::kAcknowledge);
    chip.write(address_of(Register::kStatus), reg::kRearm);
  }

  std::uint32_t raw(int channel) {
    const auto first = address_of(Register::kAlsResults + reg::kAlsResultStride * channel);
    return static_cast<std::uint32_t>(*chip.read(first) << 16 |
                                      *chip.read(static_cast<std::uint8_t>(first + 1)) << 8 |
                                      *chip.read(static_cast<std::uint8_t>(first + 2)));
  }

  void pass_ms(double duration) {
    phone.clock().sleep_ns(static_cast<std::int64_t>(duration * spectralsim::kNsPerMs));
  }

  spectralsim::Phone phone;
  Chip& chip = phone.chip();
};

TEST_F(SimulatedChip, IsSilentWithoutPowerAndForgetsItsRegisters) {
  chip.write(address_of(Register::kClampSetting), 0x1F);
  chip.power(false);
  EXPECT_FALSE(chip.read(address_of(Register::kDeviceId)).has_value());
  EXPECT_FALSE(chip.write(address_of(Register::kClampSetting), 1));
  chip.power(true);
  EXPECT_EQ(*chip.read(address_of(Register::kClampSetting)), 0);
}

TEST_F(SimulatedChip, KeepsItsIdentityAndResultsFromWrites) {
  chip.cut(spectralsim::Cut::k2_1);
  for (const int address : {0x00, 0x01, 0x06, 0x1C, 0x5A, 0x5B, 0x6A}) {
    const auto before = *chip.read(static_cast<std::uint8_t>(address));
    chip.write(static_cast<std::uint8_t>(address), static_cast<std::uint8_t>(before + 1));
    EXPECT_EQ(*chip.read(static_cast<std::uint8_t>(address)), before) << address;
  }
  EXPECT_EQ(*chip.read(address_of(Register::kDeviceId)), 0x70);
  EXPECT_EQ(*chip.read(address_of(Register::kRevisionId)), 0xBB);
  chip.write(address_of(Register::kOsc2Trim), 9);
  chip.write(address_of(Register::kSoftwareReset), 1);
  EXPECT_EQ(*chip.read(address_of(Register::kOsc2Trim)), 0);
}

TEST_F(SimulatedChip, LoadsTheOtpOnRequest) {
  chip.otp(spectralsim::Otp().raw(0x5B, 0x42)).otp_ready_on_read(3);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpStatus)), 0) << "no load was requested";
  chip.write(address_of(Register::kOtpControl), reg::kOtpLoad);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpStatus)), 0);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpBank0)), 0);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpStatus)), 0);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpStatus)), reg::kOtpReady);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpStatus)), reg::kOtpReady);
  EXPECT_EQ(*chip.read(address_of(Register::kOtpBank0)), 0x42);
}

TEST_F(SimulatedChip, CountsLightTimesGainTimesExposure) {
  chip.scene(Scene({1.0, 2.0, 0.5, 0.0, 3.0, 4.0}));
  chip.write(address_of(Register::kChannelGain + 1), 6);  // 10.0
  chip.write(address_of(Register::kDcEnable), 0x0F);      // not channel 5
  expose(100);                                            // 160 ms
  pass_ms(160);
  ASSERT_TRUE(result_waits());
  EXPECT_EQ(raw(0), 160u * 256);
  EXPECT_EQ(raw(1), 3200u * 256);
  EXPECT_EQ(raw(2), 80u * 256);
  EXPECT_EQ(raw(3), 0u);
  EXPECT_EQ(raw(4), 0u);
  EXPECT_EQ(raw(5), 640u * 256);
}

TEST_F(SimulatedChip, SaturatesByExposureAndAtFullScale) {
  chip.scene(Scene({1e6, 1e6, 1e6, 1e6, 1e6, 1e6}));
  expose(1);
  pass_ms(1.6);
  EXPECT_EQ(raw(0), 910u * 256);
  expose(10);
  pass_ms(16);
  EXPECT_EQ(raw(0), 9100u * 256);
  expose(1023);
  pass_ms(1636.8);
  EXPECT_EQ(raw(0), 65535u * 256);
}

TEST_F(SimulatedChip, ASingleShotGivesOneResultAfterItsExposure) {
  expose(10);
  pass_ms(15.9);
  EXPECT_FALSE(result_waits());
  pass_ms(0.1);
  EXPECT_TRUE(result_waits());
  EXPECT_TRUE(result_waits());
  acknowledge();
  EXPECT_FALSE(result_waits());
  pass_ms(1000);
  EXPECT_FALSE(result_waits());
  expose(10);
  chip.write(address_of(Register::kMeasurement), reg::kStop);
  pass_ms(1000);
  EXPECT_FALSE(result_waits());
}

TEST_F(SimulatedChip, SynchronousResultsFollowThePeriod) {
  chip.write(address_of(Register::kInterMeasurementPeriod), 2);  // 41 ms
  expose(10, reg::kSynchronousAls);
  for (int i = 0; i < 3; ++i) {
    pass_ms(i == 0 ? 15.9 : 40.9);
    EXPECT_FALSE(result_waits()) << i;
    pass_ms(0.1);
    EXPECT_TRUE(result_waits()) << i;
    acknowledge();
  }
  pass_ms(1000);
  EXPECT_TRUE(result_waits()) << "the latest result";
}

TEST_F(SimulatedChip, IntegratesLightThatChanges) {
  chip.scene(Scene({{0, kEven}, {100, {3, 3, 3, 3, 3, 3}}, {200, {0, 0, 0, 0, 0, 0}}}));
  expose(125);  // 200 ms, with a mean of 2 in the first half and of 1.5 in the second
  pass_ms(200);
  EXPECT_NEAR(raw(0) / 256.0, 350.0, 0.5);
}

TEST_F(SimulatedChip, NoiseIsSmallAndFollowsItsSeed) {
  const auto measure = [&](std::uint64_t seed) {
    chip.scene(Scene(kEven)).noise(0.25, seed);
    expose(1000);
    pass_ms(1600);
    return raw(0);
  };
  const auto first = measure(7);
  EXPECT_NE(first, measure(8));
  EXPECT_EQ(first, measure(7));
  EXPECT_NEAR(first / 256.0, 1600.0, 0.25 * 40 * 6);
  EXPECT_NE(first, 1600u * 256);
}

class SimulatedKernel : public ::testing::Test {
 protected:
  spectralsim::Phone phone;
};

TEST_F(SimulatedKernel, PassesOtherFilesThrough) {
  const std::string path = ::testing::TempDir() + "spectral_other_file";
  std::ofstream(path) << "text";
  std::string text;
  std::ifstream(path) >> text;
  EXPECT_EQ(text, "text");
  EXPECT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(open(path.c_str(), O_RDONLY), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(phone.events(), ::testing::IsEmpty());
}

TEST_F(SimulatedKernel, StreamsWhatTheHubIsSetUpFor) {
  phone.chip().power(true);
  std::FILE* tunnel = std::fopen(spectral::kTunnelPath, "r");
  ASSERT_NE(tunnel, nullptr);
  std::uint32_t flicker[] = {0, 36897, 1, 0};
  EXPECT_EQ(ioctl(fileno(tunnel), spectral::SENSOR_TUNNEL_SETUP, flicker), -1)
      << "the tunnel is not routed yet";
  EXPECT_EQ(ioctl(fileno(tunnel), spectral::SENSOR_TUNNEL_ROUTE_SETUP, 0UL), 0);
  for (const int word : {0, 1, 2, 3}) {
    std::uint32_t wrong[] = {0, 36897, 1, 0};
    ++wrong[word];
    EXPECT_EQ(ioctl(fileno(tunnel), spectral::SENSOR_TUNNEL_SETUP, wrong), -1) << word;
  }
  EXPECT_EQ(ioctl(fileno(tunnel), spectral::SENSOR_TUNNEL_SETUP, flicker), 0);
  char bytes[188];
  const std::int64_t start_ns = phone.clock().now_ns();
  std::setvbuf(tunnel, nullptr, _IONBF, 0);
  EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, tunnel), sizeof bytes);
  EXPECT_EQ(phone.clock().now_ns() - start_ns, 10 * spectralsim::kNsPerMs);
  EXPECT_EQ(std::memcmp(bytes, "EMOR", 4), 0);
  phone.hub().at_once(true);
  EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, tunnel), sizeof bytes);
  EXPECT_EQ(phone.clock().now_ns() - start_ns, 10 * spectralsim::kNsPerMs);
  std::fclose(tunnel);
  EXPECT_EQ(phone.open_descriptors(), 0);
}

TEST_F(SimulatedKernel, FaultsHitTheAccessThatTheyName) {
  phone.chip().power(true);
  const int fd = open(spectral::kWriteBytePath, O_WRONLY);
  phone.fail(Fault::parse("write:iridel_write_byte@0x2e#2=EBUSY"));
  phone.fail(Fault::parse("open:vd6281#every"));
  phone.fail(Fault::parse("write:iridel_write_byte@0x2f=3"));
  const auto writes = [&](const char* text) { return write(fd, text, std::strlen(text)); };
  EXPECT_EQ(writes("0x2e01"), 6);
  EXPECT_EQ(writes("0x3001"), 6);
  EXPECT_EQ(writes("0x2e02"), -1);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(phone.chip().peek(0x2E), 1);
  EXPECT_EQ(writes("0x2e03"), 6);
  EXPECT_EQ(writes("0x2f05"), 3) << "a short write is still carried out";
  EXPECT_EQ(phone.chip().peek(0x2F), 5);
  EXPECT_EQ(open(spectral::kDevicePath, O_RDWR), -1);
  EXPECT_EQ(open(spectral::kDevicePath, O_RDWR), -1);
  EXPECT_EQ(errno, EIO);
  phone.heal();
  close(fd);
}

TEST_F(SimulatedKernel, RefusesFaultsThatNameNoAccess) {
  for (const char* bad :
       {"", "seek:vd6281", "write:nowhere", "write:vd6281=EWHAT", "open:vd6281#"}) {
    EXPECT_THROW(Fault::parse(bad), std::invalid_argument) << bad;
  }
}

TEST_F(SimulatedKernel, VirtualTimeIsExactAndRunsActionsOnTheWay) {
  const auto steady_start = std::chrono::steady_clock::now();
  const auto system_start = std::chrono::system_clock::now();
  std::vector<int> order;
  phone.clock().after_ms(30, [&] { order.push_back(2); });
  phone.clock().after_ms(10, [&] {
    order.push_back(1);
    phone.clock().after_ms(5, [&] { order.push_back(3); });
  });
  std::this_thread::sleep_for(20ms);
  EXPECT_THAT(order, ElementsAre(1, 3));
  std::this_thread::sleep_for(1h);
  EXPECT_THAT(order, ElementsAre(1, 3, 2));
  EXPECT_EQ(std::chrono::steady_clock::now() - steady_start, 1h + 20ms);
  EXPECT_EQ(std::chrono::system_clock::now() - system_start, 1h + 20ms);

  std::mutex mutex;
  std::condition_variable condition;
  std::unique_lock<std::mutex> lock(mutex);
  EXPECT_EQ(condition.wait_for(lock, 8200ms), std::cv_status::timeout);
  EXPECT_EQ(std::chrono::steady_clock::now() - steady_start, 1h + 8220ms);
  phone.clock().after_ms(100, [&] {
    EXPECT_TRUE(mutex.try_lock()) << "a wait releases its lock";
    mutex.unlock();
  });
  EXPECT_EQ(condition.wait_until(lock, std::chrono::steady_clock::now() + 1s),
            std::cv_status::no_timeout);
  EXPECT_EQ(std::chrono::steady_clock::now() - steady_start, 1h + 8320ms);

  std::timed_mutex timed;
  EXPECT_TRUE(timed.try_lock_for(1ms));
  EXPECT_EQ(std::chrono::steady_clock::now() - steady_start, 1h + 8320ms);
  timed.unlock();
}

TEST_F(SimulatedKernel, RealTimeBeginsWithThePhoneAndPasses) {
  phone.clock().set_virtual(false);
  EXPECT_LT(phone.clock().now_ns(), spectralsim::kNsPerSecond);
  const auto start = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(2ms);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 2ms);
}

TEST(SimulatedScene, ComesByNameOrAsJson) {
  for (const std::string& name : Scene::names()) {
    EXPECT_GE(Scene::named(name).mean(4, 0, 100), 0.0);
    EXPECT_FALSE(Scene::description(name).empty());
  }
  EXPECT_EQ(Scene::from_json(R"({"light": [1, 2, 3, 4, 5, 6]})").mean(2, 0, 1), 3.0);
  const Scene ramp = Scene::from_json(
      R"({"points": [{"at_ms": 100, "light": [0, 0, 0, 0, 0, 0]},
                     {"at_ms": 200, "light": [10, 0, 0, 0, 0, 0]}]})");
  EXPECT_EQ(ramp.mean(0, 0, 100), 0.0);
  EXPECT_NEAR(ramp.mean(0, 100, 200), 5.0, 1e-9);
  EXPECT_EQ(ramp.mean(0, 300, 400), 10.0);
}

TEST(SimulatedScene, FlickersAroundItsMean) {
  const Scene scene = Scene::from_json(
      R"({"light": [1, 1, 1, 1, 1, 1],
          "flicker": [{"wave": "mains", "hz": 100, "share": 0.5},
                      {"wave": "pwm", "hz": 300, "duty": 0.25, "share": 0.3}]})");
  EXPECT_NEAR(scene.modulation(0, 10), 1.0, 1e-9);
  EXPECT_NEAR(scene.modulation(0, 1e-6), 0.2 + 0.3 * 4, 1e-3) << "mains at its lowest, PWM on";
  EXPECT_NEAR(scene.modulation(0.005, 0.005 + 1e-6), 0.2 + 0.5 * std::acos(-1.0) / 2, 1e-3);
  EXPECT_EQ(scene.strongest_hz(), 300);
  EXPECT_EQ(Scene::named("daylight").strongest_hz(), 0);
  EXPECT_EQ(Scene::named("candle").strongest_hz(), 0) << "too slow for the detector";
}

std::string refusal(const std::string& json) {
  try {
    Scene::from_json(json);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "accepted";
}

TEST(SimulatedScene, RefusesBadInputByItsLine) {
  const std::string light = "{\"light\": [1,2,3,4,5,6],\n";
  const std::string wave = light + "\"flicker\": [\n{\"wave\": ";
  const std::string point = R"({"at_ms": 5, "light": [1,2,3,4,5,6]})";
  const struct {
    std::string json;
    const char* refusal;
  } cases[] = {
      {"", "line 1: .*unexpected end"},
      {"\n{\"light\":\n[1,2,3,4,5,]}\n", "line 3: "},
      {"[]", "line 1: a scene is an object"},
      {"\n{}", "line 2: a scene has either \"light\" or \"points\""},
      {light + "\"points\": []}", "line 1: a scene has either"},
      {light + "\"flikcer\": []}",
       "line 2: a scene has no \"flikcer\"; it has \"light\", \"points\", \"flicker\""},
      {light + "\n\"light\": 0}", "line 3: \"light\" stands on line 1 already"},
      {"{\"light\":\n[1]\n}", "line 2: \"light\" is a list of six"},
      {"{\"light\": [1,\n2,\n-3\n,4,5,6]}", "line 3: the light of a channel is a number, 0 or"},
      {"{\"light\": [1,2,3,4,5,\"6\"]}", "line 1: the light of a channel"},
      {"{\"points\": []}", "line 1: .*at least one"},
      {"{\"points\": [\n{\"light\": [1,2,3,4,5,6]}]}", "line 2: a point has \"at_ms\""},
      {"{\"points\": [" + point + ",\n{\"at\": 1}]}", "line 2: a point has no \"at\""},
      {"{\"points\": [" + point + ",\n{\"at_ms\": 1, \"light\": [1,2,3,4,5,6]}]}",
       "line 2: .*not less"},
      {wave + "\"sine\"}]}", "line 3: .*\"mains\", \"pwm\" or \"candle\""},
      {wave + "\"pwm\", \"duty\": 2}]}", "line 3: \"duty\" is a number from 0.001 to 1"},
      {wave + "\"mains\", \"duty\": 0.5}]}", "line 3: a mains wave has no \"duty\""},
      {wave + "\"mains\"}, {\"wave\": \"candle\"}]}", "line 2: the waves share more"},
      {std::string(100000, '['), "line 1: too many lists"},
  };
  for (const auto& [json, expected] : cases) {
    EXPECT_THAT(refusal(json), testing::ContainsRegex(expected)) << json.substr(0, 200);
  }
}

TEST(SimulatedScene, IsRefusedByItsNameOrFile) {
  EXPECT_THROW(Scene::named("disco"), std::invalid_argument);
  EXPECT_THROW(Scene::named_or_file("/nowhere/scene.json"), std::invalid_argument);
  const std::string path = testing::TempDir() + "spectral_scene.json";
  std::ofstream(path) << "{\n\"lihgt\": 1}";
  try {
    Scene::named_or_file(path);
    ADD_FAILURE() << "accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("spectral_scene.json, line 2: "));
  }
  unlink(path.c_str());
}

}  // namespace
