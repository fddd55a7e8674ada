// What other threads may do while a capture runs, and beside each other, on real time. Runs under
// the thread sanitizer too.

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "spectral_sensor.h"
#include "tests/support/sensor_test.h"

namespace {

using namespace std::chrono_literals;

constexpr char kFactoryFile[] = "\n\n\n\n\n\n1764\n3021\n1240\n8113\n0\n6350\n6511\n";

// Joined when it goes out of scope.
class Other {
 public:
  explicit Other(std::function<void()> work) : m_thread(std::move(work)) {}
  ~Other() { m_thread.join(); }
  Other(const Other&) = delete;
  Other& operator=(const Other&) = delete;

 private:
  std::thread m_thread;
};

// On either service; the device service is there in any case.
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

TYPED_TEST(Threads, AnAbortFromAnotherThreadEndsBothCaptures) {
  for (const bool auto_exposure : {false, true}) {
    this->service->m_alsAeEnable = auto_exposure ? 1 : 0;
    this->service->m_alsConfig.exposureTime = 1600000;
    this->service->SetEnableFlag(1, true);
    const auto start = std::chrono::steady_clock::now();
    const Other other([this] {
      for (int i = 0; i < 20; ++i) {  // whenever the wait begins, one of them meets it
        std::this_thread::sleep_for(2ms);
        this->service->SetEnableFlag(1, false);
      }
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
    const Other other([this] {
      std::this_thread::sleep_for(20ms);
      this->service->SetEnableFlag(2, false);
      this->sensor->SetEnableFlag(2, false);  // the tunnel's reader looks at this one
    });
    EXPECT_EQ(this->service->Process(2, &this->output), 0);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  EXPECT_EQ(this->output.flicker.valid, 1);
  EXPECT_EQ(this->dev().state, 1u);
  this->service->Uninit(2);
}

TYPED_TEST(Threads, FlagsMayBeSetByManyAtOnceAllTheTime) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->phone.hub().at_once(true);
  this->service->m_alsConfig.exposureTime = 16000;
  std::atomic<bool> done{false};
  {
    const auto set = [&] {
      for (int i = 0; !done; ++i) this->service->SetEnableFlag(1 + i % 2, i % 3 == 0);
    };
    const Other one(set);
    const Other two(set);
    for (int i = 0; i < 10; ++i) {
      this->service->m_alsAeEnable = i % 2 == 0 ? 1 : 0;
      const int status = this->service->Process(1, &this->output);
      EXPECT_TRUE(status == 0 || status == -22) << status;
      EXPECT_EQ(this->service->Process(2, &this->output), 0);
    }
    done = true;
  }
  this->service->SetEnableFlag(1, true);
  EXPECT_EQ(this->service->Process(1, &this->output), 0);
  this->service->Uninit(2);
}

TYPED_TEST(Threads, ClientsMayComeAndGoBesideACapture) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->phone.hub().at_once(true);
  std::atomic<bool> done{false};
  {
    const Other other([&] {
      while (!done) {
        for (const int client : {1, 2}) EXPECT_EQ(this->service->Init(client), -17);
        for (const int client : {1, 2}) this->service->Uninit(client);
        std::this_thread::yield();
      }
    });
    EXPECT_EQ(this->service->Process(1, &this->output), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(this->service->Process(2, &this->output), 0);
    done = true;
  }
  EXPECT_EQ(this->output.als.valid, 1);
  EXPECT_GT(this->output.flicker.strength_a, 0u);
  this->service->Uninit(2);
  EXPECT_EQ(this->service->m_alsRefCount, 1);
  EXPECT_EQ(this->service->m_flkRefCount, 0);
}

TYPED_TEST(Threads, ClientsMayRaceEachOther) {
  this->service->Uninit(1);
  const auto come_and_go = [this] {
    for (int round = 0; round < 10; ++round) {
      for (const int mode : {1, 2}) {
        const int status = this->service->Init(mode);
        EXPECT_TRUE(status == 0 || status == -17) << status;
        this->service->SetEnableFlag(mode, round % 2 == 0);
      }
      for (const int mode : {2, 1}) this->service->Uninit(mode);
    }
  };
  {
    const Other one(come_and_go);
    const Other two(come_and_go);
    const Other three(come_and_go);
  }
  EXPECT_EQ(this->service->m_alsRefCount + this->service->m_flkRefCount, 0);
  EXPECT_EQ(this->phone.open_descriptors(), 0);
  EXPECT_FALSE(this->phone.chip().powered());
  EXPECT_EQ(this->service->Init(1), 0);
}

TYPED_TEST(Threads, TunnelCapturesAreOneAfterTheOther) {
  this->phone.hub().at_once(true);
  const auto read = [this] {
    std::vector<unsigned char> data(16384);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(this->service->ReadFLKData(1000, data.data()), 0);
  };
  this->phone.clear_trace();
  {
    const Other one(read);
    const Other two(read);
  }
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

TYPED_TEST(Threads, TheAnalysisLibraryIsNotTakenAwayWhileItIsUsed) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->phone.hub().at_once(true);
  std::atomic<bool> done{false};
  {
    const Other other([&] {
      while (!done) {
        this->service->UnloadFlickerLibrary();
        EXPECT_EQ(this->service->LoadFlickerLibrary(), 0);
      }
    });
    for (int i = 0; i < 10; ++i) EXPECT_EQ(this->service->Process(2, &this->output), 0);
    done = true;
  }
  this->service->Uninit(2);
}

TYPED_TEST(Threads, AmbientLightClientsMayComeAndGoBesideAFlickerMeasurement) {
  ASSERT_EQ(this->service->Init(2), 0);
  this->service->Uninit(1);
  this->phone.hub().at_once(true);
  std::atomic<bool> done{false};
  {
    const Other other([&] {
      while (!done) {
        EXPECT_EQ(this->service->Init(1), -17);
        this->service->Uninit(1);
        std::this_thread::yield();
      }
    });
    for (int i = 0; i < 5; ++i) EXPECT_EQ(this->service->Process(2, &this->output), 0);
    done = true;
  }
  EXPECT_GT(this->output.flicker.strength_a, 0u);
  this->service->Uninit(2);
}

using DeviceThreads = Threads<SpectralSensorDevice>;

// Here, where that takes no register: the layered service sets the pedestal for them. The phone has
// no factory file at first: a client that joins looks for it again.
TEST_F(DeviceThreads, FlickerClientsMayComeAndGoBesideACapture) {
  service->m_alsConfig.exposureTime = 16000;
  service->m_alsAeEnable = 0;
  std::atomic<bool> done{false};
  const Other other([&] {
    while (!done) {
      EXPECT_EQ(service->Init(2), 0);
      service->Uninit(2);
    }
  });
  for (int i = 0; i < 10; ++i) {
    if (i == 5) phone.model("tamberlo").factory_file(kFactoryFile);
    EXPECT_EQ(service->Process(1, &output), 0);
    EXPECT_EQ(output.als.valid, 1);
  }
  done = true;
}

TEST_F(DeviceThreads, CreateAndDestroyMayRaceEachOther) {
  service->Uninit(1);
  const auto create_and_destroy = [] {
    for (int round = 0; round < 50; ++round) {
      EXPECT_NE(SpectralSensorDevice::Create(), nullptr);
      const FlickerSensor flicker;  // takes the instance, too
      SpectralSensorDevice::Destroy();
    }
  };
  {
    const Other one(create_and_destroy);
    const Other two(create_and_destroy);
    const Other three(create_and_destroy);
  }
  EXPECT_EQ(SpectralSensorDevice::m_pInstance, nullptr);
  service = sensor = SpectralSensorDevice::Create();
}

TEST_F(DeviceThreads, CreateAndFurtherClientsMayRaceEachOther) {
  const auto join = [this] {
    for (int round = 0; round < 20; ++round) {
      EXPECT_EQ(SpectralSensorDevice::Create(), sensor);
      EXPECT_EQ(sensor->Init(1), -17);
      sensor->Uninit(1);
    }
  };
  {
    const Other one(join);
    const Other two(join);
    const Other three(join);
  }
  EXPECT_EQ(sensor->m_alsRefCount, 1);
}

}  // namespace
