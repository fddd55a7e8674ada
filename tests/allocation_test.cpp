// No capture allocates once Init has returned.

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

  long allocations_of_a_capture(int mode = 1) {
    const long before = heap::allocations();
    sensor->Process(mode, &output);
    return heap::allocations() - before;
  }

  SpectralSensorOutput output = {};
};

TEST_F(Allocation, IsCounted) {
  const long before = heap::allocations();
  const std::string long_text(100, 'x');
  EXPECT_EQ(heap::allocations() - before, 1) << long_text;
}

TEST_F(Allocation, NoCaptureDoesAny) {
  for (const bool auto_exposure : {false, true}) {
    sensor->m_alsAeEnable = auto_exposure ? 1 : 0;
    EXPECT_EQ(allocations_of_a_capture(), 0);
    EXPECT_EQ(output.als.valid, 1);
    phone.fail(Fault::register_write().at(0x1E));
    EXPECT_EQ(allocations_of_a_capture(), 0) << "failed to configure";
    phone.heal().fail(Fault::register_read());
    EXPECT_EQ(allocations_of_a_capture(), 0) << "failed to read";
    phone.heal();
    phone.chip().pin(0x02, 0x02);
    EXPECT_EQ(allocations_of_a_capture(), 0) << "timed out";
    phone.chip().unpin(0x02);
  }
}

TEST_F(Allocation, NoFlickerMeasurementDoesAnyButTheTunnelsBuffer) {
  EXPECT_EQ(allocations_of_a_capture(2), 1);
  phone.hub().garbage_after(3);
  EXPECT_EQ(allocations_of_a_capture(2), 1);
  phone.remove(Node::kTunnel);
  EXPECT_EQ(allocations_of_a_capture(2), 0);
  sensor->SetEnableFlag(2, false);
  EXPECT_EQ(allocations_of_a_capture(2), 0);
}

TEST_F(Allocation, NorDoesTheLayeredService) {
  SpectralSensor* layered = SpectralSensor::Create();
  sensor->Uninit(2);
  sensor->Uninit(1);
  layered->Init(1);
  layered->Init(2);
  long before = heap::allocations();
  layered->Process(1, &output);
  EXPECT_EQ(heap::allocations() - before, 0);
  before = heap::allocations();
  layered->Process(2, &output);
  EXPECT_EQ(heap::allocations() - before, 1) << "the tunnel's buffer";
  layered->Uninit(2);
  layered->Uninit(1);
  SpectralSensor::Destroy();
}

}  // namespace
