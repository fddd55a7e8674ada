// What other threads may do while a capture runs, on real time.

#include <chrono>
#include <thread>

#include "tests/support/sensor_test.h"

namespace {

using namespace std::chrono_literals;

class Threads : public SensorTest {
 protected:
  Threads() {
    phone.clock().set_virtual(false);
    sensor->Init(1);
  }
  SpectralSensorOutput output = {};
};

TEST_F(Threads, AnAbortFromAnotherThreadEndsBothCaptures) {
  for (const bool auto_exposure : {false, true}) {
    sensor->m_alsAeEnable = auto_exposure ? 1 : 0;
    sensor->m_alsConfig.exposureTime = 1600000;
    sensor->SetEnableFlag(1, true);
    const auto start = std::chrono::steady_clock::now();
    std::thread other([&] {
      for (int i = 0; i < 20; ++i) {  // whenever the wait begins, one of them meets it
        std::this_thread::sleep_for(2ms);
        sensor->SetEnableFlag(1, false);
      }
    });
    EXPECT_EQ(sensor->Process(1, &output), auto_exposure ? -22 : 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    other.join();
    EXPECT_EQ(dev().state, 1u);
  }
}

TEST_F(Threads, AnAbortFromAnotherThreadEndsAFlickerMeasurement) {
  ASSERT_EQ(sensor->Init(2), 0);
  phone.scene("mains-50hz");
  const auto start = std::chrono::steady_clock::now();
  std::thread other([&] {
    std::this_thread::sleep_for(20ms);
    sensor->SetEnableFlag(2, false);
  });
  EXPECT_EQ(sensor->Process(2, &output), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  other.join();
  EXPECT_EQ(output.flicker.valid, 1);
  EXPECT_EQ(dev().state, 1u);
  sensor->Uninit(2);
}

TEST_F(Threads, CreateInitAndUninitMayRaceEachOther) {
  std::vector<std::thread> clients;
  for (int i = 0; i < 4; ++i) {
    clients.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(SpectralSensorDevice::Create(), sensor);
        EXPECT_EQ(sensor->Init(1), -17);
        sensor->SetEnableFlag(1, round % 2 == 0);
        sensor->Uninit(1);
      }
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(sensor->m_alsRefCount, 1);
}

}  // namespace
