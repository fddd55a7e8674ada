// What other threads may do during a capture, and at the same time as each other. These tests run
// on real time, and under the thread sanitizer too.

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "spectral_sensor.h"
#include "tests/support/sensor_test.h"

namespace {

using namespace std::chrono_literals;

constexpr char kFactoryFile[] = "\n\n\n\n\n\n1764\n3021\n1240\n8113\n0\n6350\n6511\n";

// Does something once on each of `count` threads at the same time, and waits for all of them.
void on_threads(std::size_t count, const std::function<void()>& work) {
  std::vector<std::thread> threads(count);
  for (std::thread& thread : threads) thread = std::thread(work);
  for (std::thread& thread : threads) thread.join();
}

// Repeats something on a thread of its own until the end of the scope.
class Repeated {
 public:
  explicit Repeated(std::function<void()> work)
      : m_thread([this, work = std::move(work)] {
          while (!m_done) work();
        }) {}
  ~Repeated() {
    m_done = true;
    m_thread.join();
  }
  Repeated(const Repeated&) = delete;
  Repeated& operator=(const Repeated&) = delete;

 private:
  std::atomic<bool> m_done{false};
  std::thread m_thread;
};

// Runs each test on both services. The layered service works on an instance of the device service.
template <typename Service>
class Threads : public SensorTest {
 protected:
  Threads() : service(Service::Create()) {
    phone.clock().set_virtual(false);
    phone.scene("mains-50hz");
    service->Init(1);
  }
  ~Threads() override {
    service->Uninit(1);
    Service::Destroy();
  }

  Service* service;
  SpectralSensorOutput output = {};
};

using Services = ::testing::Types<SpectralSensorDevice, SpectralSensor>;
TYPED_TEST_SUITE(Threads, Services);

TYPED_TEST(Threads, AnAbortFromAnotherThreadEndsEitherAmbientLightCapture) {
  for (const bool auto_exposure : {false, true}) {
    this->service->m_alsAeEnable = auto_exposure ? 1 : 0;
    this->service->m_alsConfig.exposureTime = 1600000;
    this->service->SetEnableFlag(1, true);
    const auto start = std::chrono::steady_clock::now();
    const auto abort = std::async(std::launch::async, [this] {
      std::this_thread::sleep_for(2ms);
      this->service->SetEnableFlag(1, false);
    });
    EXPECT_EQ(this->service->Process(1, &this->output), auto_exposure ? -22 : 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_EQ(this->dev().state, 1u);
  }
}

TYPED_TEST(Threads, AnAbortFromAnotherThreadEndsAFlickerMeasurement) {
  ASSERT_EQ(this->service->Init(2), 0);
  const auto start = std::chrono::steady_clock::now();
  {
    const auto abort = std::async(std::launch::async, [this] {
      std::this_thread::sleep_for(20ms);
      this->service->SetEnableFlag(2, false);
      this->sensor->SetEnableFlag(2, false);  // the driver's, which ends the tunnel reads
    });
    EXPECT_EQ(this->service->Process(2, &this->output), 0);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  EXPECT_EQ(this->output.flicker.valid, 1);
  EXPECT_EQ(this->dev().state, 1u);
  this->service->Uninit(2);
}

TYPED_TEST(Threads, FlagsMayBeSetBySeveralThreadsThroughout) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->phone.hub().at_once(true);
  this->service->m_alsConfig.exposureTime = 16000;
  {
    const auto set = [this, i = 0]() mutable {
      this->service->SetEnableFlag(1 + i % 2, i % 3 == 0);
      ++i;
    };
    const Repeated one(set);
    const Repeated two(set);
    for (int i = 0; i < 10; ++i) {
      this->service->m_alsAeEnable = i % 2 == 0 ? 1 : 0;
      const int status = this->service->Process(1, &this->output);
      EXPECT_TRUE(status == 0 || status == -22) << status;
      EXPECT_EQ(this->service->Process(2, &this->output), 0);
    }
  }
  this->service->SetEnableFlag(1, true);
  EXPECT_EQ(this->service->Process(1, &this->output), 0);
  this->service->Uninit(2);
}

TYPED_TEST(Threads, ClientsMayComeAndGoBesideACapture) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->phone.hub().at_once(true);
  {
    const Repeated clients([this] {
      for (const int client : {1, 2}) EXPECT_EQ(this->service->Init(client), -17);
      for (const int client : {1, 2}) this->service->Uninit(client);
      std::this_thread::yield();
    });
    EXPECT_EQ(this->service->Process(1, &this->output), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(this->service->Process(2, &this->output), 0);
  }
  EXPECT_EQ(this->output.als.valid, 1);
  EXPECT_GT(this->output.flicker.strength_a, 0u);
  this->service->Uninit(2);
  EXPECT_EQ(this->service->m_alsRefCount, 1);
  EXPECT_EQ(this->service->m_flkRefCount, 0);
}

TYPED_TEST(Threads, ClientsMayRaceEachOther) {
  this->service->Uninit(1);
  on_threads(3, [this] {
    for (int round = 0; round < 10; ++round) {
      for (const int mode : {1, 2}) {
        const int status = this->service->Init(mode);
        EXPECT_TRUE(status == 0 || status == -17) << status;
        this->service->SetEnableFlag(mode, round % 2 == 0);
      }
      for (const int mode : {2, 1}) this->service->Uninit(mode);
    }
  });
  EXPECT_EQ(this->service->m_alsRefCount + this->service->m_flkRefCount, 0);
  EXPECT_EQ(this->phone.open_descriptors(), 0);
  EXPECT_FALSE(this->phone.chip().powered());
  EXPECT_EQ(this->service->Init(1), 0);
}

TYPED_TEST(Threads, TunnelCapturesDoNotOverlap) {
  this->phone.hub().at_once(true);
  this->phone.clear_trace();
  on_threads(2, [this] {
    std::vector<unsigned char> data(16384);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(this->service->ReadFLKData(1000, data.data()), 0);
  });
  int opened = 0;
  bool is_open = false;
  for (const spectralsim::Event& event : this->phone.trace()) {
    if (event.node != Node::kTunnel) continue;
    EXPECT_EQ(event.call == spectralsim::Call::kOpen, !is_open) << describe(event);
    if (event.call == spectralsim::Call::kOpen) ++opened;
    is_open = event.call != spectralsim::Call::kClose;
  }
  EXPECT_EQ(opened, 10);
}

TYPED_TEST(Threads, TheAnalysisLibraryIsNotUnloadedDuringAnAnalysis) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->phone.hub().at_once(true);
  {
    const Repeated reload([this] {
      this->service->UnloadFlickerLibrary();
      EXPECT_EQ(this->service->LoadFlickerLibrary(), 0);
    });
    for (int i = 0; i < 10; ++i) EXPECT_EQ(this->service->Process(2, &this->output), 0);
  }
  this->service->Uninit(2);
}

TYPED_TEST(Threads, AmbientLightClientsMayComeAndGoBesideAFlickerMeasurement) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->service->Uninit(1);
  this->phone.hub().at_once(true);
  {
    const Repeated clients([this] {
      EXPECT_EQ(this->service->Init(1), -17);
      this->service->Uninit(1);
      std::this_thread::yield();
    });
    for (int i = 0; i < 5; ++i) EXPECT_EQ(this->service->Process(2, &this->output), 0);
  }
  EXPECT_GT(this->output.flicker.strength_a, 0u);
  this->service->Uninit(2);
}

using DeviceThreads = Threads<SpectralSensorDevice>;

// This holds for the device service only: a flicker client of the layered service writes the
// pedestal register. The phone gets its factory file half-way, and a client that joins then reads
// it.
TEST_F(DeviceThreads, FlickerClientsMayComeAndGoBesideACapture) {
  service->m_alsConfig.exposureTime = 16000;
  service->m_alsAeEnable = 0;
  const Repeated clients([this] {
    EXPECT_EQ(service->Init(2), 0);
    service->Uninit(2);
  });
  for (int i = 0; i < 10; ++i) {
    if (i == 5) phone.model("tamberlo").factory_file(kFactoryFile);
    EXPECT_EQ(service->Process(1, &output), 0);
    EXPECT_EQ(output.als.valid, 1);
  }
}

TEST_F(DeviceThreads, CreateAndDestroyMayRaceEachOther) {
  service->Uninit(1);
  on_threads(3, [] {
    for (int round = 0; round < 50; ++round) {
      EXPECT_NE(SpectralSensorDevice::Create(), nullptr);
      const FlickerSensor flicker;  // creates the instance where there is none
      SpectralSensorDevice::Destroy();
    }
  });
  EXPECT_EQ(SpectralSensorDevice::m_pInstance, nullptr);
  service = sensor = SpectralSensorDevice::Create();
}

TEST_F(DeviceThreads, CreateAndFurtherClientsMayRaceEachOther) {
  on_threads(3, [this] {
    for (int round = 0; round < 20; ++round) {
      EXPECT_EQ(SpectralSensorDevice::Create(), sensor);
      EXPECT_EQ(sensor->Init(1), -17);
      sensor->Uninit(1);
    }
  });
  EXPECT_EQ(sensor->m_alsRefCount, 1);
}

}  // namespace
