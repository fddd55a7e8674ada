// No capture allocates memory once Init has returned.

#include <new>

#include "spectral_sensor.h"
#include "support/heap.h"
#include "tests/support/sensor_test.h"

namespace {

class Allocation : public SensorTest {
 protected:
  Allocation() {
    sensor->Init(1);
    sensor->Init(2);
    phone.keep_trace(false);
  }

  template <typename Service>
  long allocations(Service* service, int mode) {
    const long before = heap::allocations();
    service->Process(mode, &output);
    return heap::allocations() - before;
  }

  SpectralSensorOutput output = {};
};

TEST_F(Allocation, IsCounted) {
  const long before = heap::allocations();
  const std::string long_text(100, 'x');
  EXPECT_EQ(heap::allocations() - before, 1) << long_text;
}

TEST_F(Allocation, AFailedCreateLeavesNoInstanceAndLosesNothing) {
  // The first exception of a thread may allocate what the later ones share.
  EXPECT_THROW(throw std::bad_alloc(), std::bad_alloc);
  int failures = 0;
  for (int nth = 1;; ++nth) {
    const long before = heap::live_blocks();
    SpectralSensor* layered = nullptr;
    heap::fail_allocation(nth);
    try {
      layered = SpectralSensor::Create();
    } catch (const std::bad_alloc&) {
    }
    if (!heap::fail_allocation(0)) {
      ASSERT_NE(layered, nullptr);
      break;
    }
    ++failures;
    EXPECT_EQ(layered, nullptr);
    EXPECT_EQ(SpectralSensor::m_pInstance, nullptr);
    EXPECT_EQ(heap::live_blocks(), before) << "allocation " << nth;
  }
  EXPECT_EQ(failures, 3) << "the instance and its two wrappers";
  SpectralSensor::Destroy();
  sensor = SpectralSensorDevice::Create();
}

TEST_F(Allocation, InitAnswersWithAStatusWhenMemoryRunsOut) {
  sensor->Uninit(2);
  sensor->Uninit(1);
  phone.model("ostrel").factory_file(
      "\n\n\n\n\n\n"
      "1\n2\n3\n4\n5\n6\n7\n");
  for (int nth = 1;; ++nth) {
    heap::fail_allocation(nth);
    EXPECT_EQ(sensor->Init(1), 0);
    const bool failed = heap::fail_allocation(0);
    EXPECT_EQ(sensor->m_calibrationValid, 0);
    sensor->Uninit(1);
    if (!failed) break;
    ASSERT_LT(nth, 100);
  }
}

TEST_F(Allocation, NoAmbientLightCaptureAllocates) {
  for (const bool auto_exposure : {false, true}) {
    sensor->m_alsAeEnable = auto_exposure ? 1 : 0;
    EXPECT_EQ(allocations(sensor, 1), 0);
    EXPECT_EQ(output.als.valid, 1);
    phone.fail(Fault::register_write().at(0x1E));
    EXPECT_EQ(allocations(sensor, 1), 0) << "failed to configure";
    phone.heal().fail(Fault::register_read());
    EXPECT_EQ(allocations(sensor, 1), 0) << "failed to read";
    phone.heal();
    phone.chip().pin(0x02, 0x02);
    EXPECT_EQ(allocations(sensor, 1), 0) << "timed out";
    phone.chip().unpin(0x02);
  }
}

TEST_F(Allocation, NoFlickerMeasurementAllocates) {
  EXPECT_EQ(allocations(sensor, 2), 0);
  phone.hub().garbage_after(3);
  EXPECT_EQ(allocations(sensor, 2), 0);
  phone.remove(Node::kTunnel);
  EXPECT_EQ(allocations(sensor, 2), 0);
  sensor->SetEnableFlag(2, false);
  EXPECT_EQ(allocations(sensor, 2), 0);
}

TEST_F(Allocation, NoCaptureOfTheLayeredServiceAllocates) {
  SpectralSensor* layered = SpectralSensor::Create();
  sensor->Uninit(2);
  sensor->Uninit(1);
  layered->Init(1);
  layered->Init(2);
  EXPECT_EQ(allocations(layered, 1), 0);
  EXPECT_EQ(allocations(layered, 2), 0);
  layered->Uninit(2);
  layered->Uninit(1);
  SpectralSensor::Destroy();
}

}  // namespace
