// What both facades owe their clients alike.

#include <dlfcn.h>

#include <algorithm>
#include <cstring>

#include "spectral_sensor.h"
#include "tests/support/sensor_test.h"

namespace {

template <typename Facade>
class Facades : public SensorTest {
 protected:
  Facades() : facade(Facade::Create()) { phone.clear_trace(); }
  ~Facades() override {
    phone.heal();
    if (facade->m_flickerLibHandle != nullptr) facade->UnloadFlickerLibrary();
    Facade::Destroy();
  }

  void init_both() {
    ASSERT_EQ(facade->Init(1), 0);
    ASSERT_EQ(facade->Init(2), 0);
    phone.clear_trace();
  }

  // An unchanging light, 160 counts a channel at gain 1, and a configuration that measures it.
  void set_up_light() {
    phone.chip().scene(spectralsim::Scene({1.0, 1.0, 1.0, 1.0, 1.0, 1.0}));
    facade->m_alsConfig.exposureTime = 160000;
    for (auto& code : facade->m_alsConfig.gainCode) code = 256;
  }

  Facade* facade;
  SpectralSensorOutput output = {};
};

using BothFacades = ::testing::Types<SpectralSensorDevice, SpectralSensor>;
TYPED_TEST_SUITE(Facades, BothFacades);

TYPED_TEST(Facades, TheLastClientOfAModeStopsItsMeasurementBesideTheOther) {
  for (const auto& [mode, left_running] : {std::pair(1, 3u), std::pair(2, 2u)}) {
    this->init_both();
    ASSERT_EQ(this->facade->StartExpALS(), 0);
    ASSERT_EQ(this->facade->StartExpFLK(), 0);
    ASSERT_EQ(this->dev().state, 4u);
    this->facade->Uninit(mode);
    EXPECT_EQ(this->dev().state, left_running) << mode;
    this->facade->Uninit(3 - mode);
    EXPECT_EQ(this->dev().state, 0u);
  }
}

TYPED_TEST(Facades, ResetForgetsTheClientsOfBothModes) {
  this->init_both();
  EXPECT_EQ(this->facade->Init(1), -17);
  EXPECT_EQ(this->facade->ResetDevice(), 0);
  EXPECT_EQ(this->facade->m_alsRefCount, 0);
  EXPECT_EQ(this->facade->m_flkRefCount, 0);
  EXPECT_EQ(this->facade->Init(1), -22) << "the device is still open";
  this->facade->Uninit(1);
  EXPECT_EQ(this->facade->Init(1), 0);
  this->facade->Uninit(1);
}

// The readings of the reference units, per model and channel.
constexpr float kReference[4][6] = {{1698, 3106, 1219, 6607, 6405, 7994},
                                    {1844, 3298, 1266, 6418, 6764, 8540},
                                    {1744, 2153, 483, 8821, 3987, 8736},
                                    {1731, 2163, 493, 8555, 4051, 8552}};

TYPED_TEST(Facades, ComputesFactorsFromReadingsOfTheCaller) {
  unsigned short readings[6] = {1, 20, 300, 4000, 50000, 65535};
  for (std::uint32_t model = 1; model <= 4; ++model) {
    this->facade->m_deviceType = model;
    this->facade->ComputeCalData(readings);
    EXPECT_EQ(this->facade->m_calibrationValid, 1);
    for (int n = 0; n < 6; ++n) {
      EXPECT_EQ(this->facade->m_calibrationFactor[n],
                kReference[model - 1][n] / static_cast<float>(readings[n]));
    }
    this->facade->ComputeCalData(nullptr);
    EXPECT_EQ(this->facade->m_calibrationValid, 0);
  }
  for (const std::uint32_t unknown : {0u, 5u}) {
    this->facade->m_calibrationValid = 1;
    this->facade->m_deviceType = unknown;
    this->facade->ComputeCalData(readings);
    EXPECT_EQ(this->facade->m_calibrationValid, 0);
  }
}

TYPED_TEST(Facades, WeighsWhatIsFoundTowardsALamp) {
  EXPECT_EQ(this->facade->ComputeHarmonicContribution(100, 300), 1.0f);
  EXPECT_EQ(this->facade->ComputeHarmonicContribution(300, 100), 0.0f);
}

TYPED_TEST(Facades, ALoaderErrorClosesTheLibrary) {
  ASSERT_EQ(this->facade->LoadFlickerLibrary(), 0);
  dlerror();
  EXPECT_EQ(this->facade->check_dl_error(), 0);
  EXPECT_NE(this->facade->m_flickerLibHandle, nullptr);
  ASSERT_EQ(dlsym(RTLD_DEFAULT, "there_is_no_such_symbol"), nullptr);
  EXPECT_EQ(this->facade->check_dl_error(), -22);
  EXPECT_EQ(this->facade->m_flickerLibHandle, nullptr);
  // The instance is left; the code of a closed library stays mapped.
  this->facade->m_pfnFlickerDestroy(this->facade->m_flickerCore);
  EXPECT_THAT(this->phone.log().back(), ::testing::HasSubstr("check_dl_error: dlerror "));
}

TYPED_TEST(Facades, ACalibratedCaptureKeepsTheRestOfItsResult) {
  ASSERT_EQ(this->facade->Init(1), 0);
  this->set_up_light();
  this->facade->m_calibrationValid = 1;
  std::fill(std::begin(this->facade->m_calibrationFactor),
            std::end(this->facade->m_calibrationFactor), 3.0f);
  ASSERT_EQ(this->facade->Process(1, &this->output), 0);
  EXPECT_EQ(this->output.als.value[0], 480.0f);
  EXPECT_EQ(this->output.als.exposureMs, 160.0f);
  EXPECT_EQ(this->output.als.gain, 1.0f);
  EXPECT_EQ(this->output.als.channelMask, 0x1B);
  EXPECT_EQ(this->output.als.valid, 1);
  this->facade->Uninit(1);
}

// Between the reading and the correction the device service would otherwise apply slope and factor
// both: 240.
TYPED_TEST(Facades, AUnitThatBecomesCalibratedDuringACaptureIsNotYetCalibrated) {
  ASSERT_EQ(this->facade->Init(1), 0);
  this->set_up_light();
  this->dev().otp_slope[0] = 0x40;
  this->facade->m_calibrationFactor[0] = 3.0f;
  this->phone.fail(Fault::register_write().at(0x03).nth(2).late_by_ms(10));  // the stop
  this->phone.clock().after_ms(160 + 12 + 5, [this] { this->facade->m_calibrationValid = 1; });
  ASSERT_EQ(this->facade->Process(1, &this->output), 0);
  const bool layered = std::is_same_v<TypeParam, SpectralSensor>;
  EXPECT_EQ(this->output.als.value[0], layered ? 160.0f : 80.0f);
  EXPECT_EQ(this->facade->m_calibrationValid, 1) << "it came in between";
  this->facade->Uninit(1);
}

TYPED_TEST(Facades, AnAbortWhoseWakeUpIsLostEndsTheWaitWithin20Ms) {
  ASSERT_EQ(this->facade->Init(1), 0);
  const std::int64_t start_ms = this->now_ms();
  this->phone.clock().after_ms(50, [this] {
    __atomic_store_n(&this->facade->m_alsEnableFlag, std::uint8_t{0}, __ATOMIC_RELEASE);
  });
  EXPECT_EQ(this->facade->Process(1, &this->output), -22);
  EXPECT_GE(this->now_ms() - start_ms, 50);
  EXPECT_LE(this->now_ms() - start_ms, 70);
  this->facade->Uninit(1);
}

TYPED_TEST(Facades, TheHighByteOfTheCounterMeansSaturationToo) {
  ASSERT_EQ(this->facade->Init(2), 0);
  this->phone.chip().pin(0x33, 0x01).pin(0x34, 0x00);
  EXPECT_EQ(this->facade->StartExpFLK_AutoGain(), 0);
  EXPECT_EQ(this->facade->m_flkChannelMask, 0x04u) << "even the lowest gain saturates";
  this->facade->StopExpFLK();
  this->facade->Uninit(2);
}

TYPED_TEST(Facades, AnAbandonedFlickerMeasurementLeavesTheResult) {
  ASSERT_EQ(this->facade->Init(2), 0);
  this->facade->SetEnableFlag(2, false);
  FlickerResult result;
  std::memset(&result, 0x5A, sizeof result);
  FlickerResult before;
  std::memcpy(&before, &result, sizeof result);
  EXPECT_EQ(this->facade->FlickerCoreWrapper(&result), 0);
  EXPECT_EQ(std::memcmp(&before, &result, sizeof result), 0);
  EXPECT_EQ(this->dev().state, 1u) << "and stops the engine";
  this->facade->Uninit(2);
}

TYPED_TEST(Facades, EveryOpenIsCloseOnExec) {
  this->phone.model("ostrel").factory_file(std::string(12, '\n'));
  this->init_both();
  this->phone.scene("mixed");
  EXPECT_EQ(this->facade->Process(1, &this->output), 0);
  EXPECT_EQ(this->facade->Process(2, &this->output), 0);
  this->facade->StartExpFLK();
  this->sensor->VD6281_QuilInit();
  this->sensor->VD6281_QuilTunnelSetup();
  this->sensor->VD6281_QuilResetRdBuf();
  EXPECT_EQ(this->sensor->VD6281_QuilDumpFlickerDataToFile(10), 0);
  this->sensor->VD6281_QuilTunnelTerminate();
  this->facade->Uninit(1);
  this->facade->Uninit(2);
  EXPECT_EQ(this->facade->Init(1), 0);
  this->facade->GetFATPData(nullptr);
  bool enabled = false;
  this->sensor->VD6281_CheckEnableStatus(&enabled);
  this->facade->Uninit(1);
  int opens = 0;
  for (const auto& event : this->phone.trace()) {
    if (event.call != spectralsim::Call::kOpen) continue;
    ++opens;
    EXPECT_TRUE(event.close_on_exec) << describe(event);
  }
  EXPECT_GE(opens, 12) << "power, nodes, tunnel, dump files, factory file";
}

}  // namespace
