// Binding the analysis library. FAKES is the folder of the libraries that fakes/analysis.cpp is
// compiled to.

#include <dlfcn.h>

#include "tests/support/sensor_test.h"

namespace {

using ::testing::HasSubstr;

class AnalysisLibrary : public SensorTest {
 protected:
  static std::string fake(const std::string& name) { return std::string(FAKES) + "/" + name; }

  void SetUp() override {
    void* const library = dlopen(fake("libwhole.so").c_str(), RTLD_NOW);
    ASSERT_NE(library, nullptr);
    instances = static_cast<int*>(dlsym(library, "fake_instances"));
    config = static_cast<void**>(dlsym(library, "fake_config"));
    flags = static_cast<std::int32_t*>(dlsym(library, "fake_flags"));
    creates_nothing = static_cast<bool*>(dlsym(library, "fake_creates_nothing"));
    processed = static_cast<int*>(dlsym(library, "fake_processed"));
    *instances = *processed = 0;
    *creates_nothing = false;
  }

  // The variables of libwhole.so.
  int* instances = nullptr;
  void** config = nullptr;
  std::int32_t* flags = nullptr;
  bool* creates_nothing = nullptr;
  int* processed = nullptr;
};

const std::string kDlError = "check_dl_error: dlerror ";

TEST_F(AnalysisLibrary, IsLoadedByTheFirstFlickerClientAndUnloadedByTheLast) {
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->Init(1), 0);
  EXPECT_EQ(events_of([&] { EXPECT_EQ(sensor->Init(2), 0); }),
            (Lines{"dlopen /vendor/lib64/libzelk_flicker.so"}))
      << "the sensor is up already";
  EXPECT_EQ(*instances, 1);
  EXPECT_EQ(sensor->Init(2), -17);
  EXPECT_EQ(*instances, 1);
  sensor->Uninit(2);
  EXPECT_EQ(*instances, 1);
  sensor->Uninit(2);
  EXPECT_EQ(*instances, 0);
  EXPECT_EQ(sensor->m_flickerLibHandle, nullptr);
  EXPECT_EQ(sensor->m_flickerCore, nullptr);
  EXPECT_EQ(dev().state, 1u) << "the ambient-light client keeps the sensor up";
}

TEST_F(AnalysisLibrary, AnUnbalancedUninitReportsThatNoneIsLoaded) {
  sensor->Uninit(2);
  EXPECT_EQ(sensor->m_flkRefCount, -1);
  EXPECT_THAT(phone.log(),
              ElementsAre(error_line("UnloadFlickerLibrary: Error library handle == NULL!")));
}

TEST_F(AnalysisLibrary, AFailedLoadFailsInitAndLogsCode0) {
  struct Case {
    std::string path;
    std::string last;
    std::size_t messages;
  };
  for (const Case& c : {Case{"/nowhere/lib.so", "error opening libzelk_flicker.so!", 4},
                        Case{"/etc/hostname", "error opening libzelk_flicker.so!", 4},
                        Case{fake("libno_create.so"), "Error loading FlickerCreate", 5},
                        Case{fake("libno_process.so"), "Error loading FlickerProcess", 4},
                        Case{fake("libno_destroy.so"), "Error loading FlickerDestroy", 4}}) {
    phone.analysis_library(c.path).clear_trace();
    EXPECT_EQ(sensor->Init(2), -22);
    const Lines log = phone.log();
    ASSERT_EQ(log.size(), c.messages) << c.path;
    EXPECT_THAT(log[c.messages - 4], HasSubstr(kDlError));
    EXPECT_EQ(log[c.messages - 3], error_line("LoadFlickerLibrary: " + c.last));
    EXPECT_EQ(log[c.messages - 2],
              error_line("UnloadFlickerLibrary: Error library handle == NULL!"));
    EXPECT_EQ(log[c.messages - 1],
              error_line("Init: Failed to load flicker library, error code 0"));
    EXPECT_EQ(sensor->m_flickerLibHandle, nullptr);
    sensor->Uninit(2);
    EXPECT_EQ(sensor->m_flkRefCount, 0);
    EXPECT_FALSE(phone.chip().powered());
  }
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->Init(2), 0);
  sensor->Uninit(2);
}

TEST_F(AnalysisLibrary, KeepsTheEntryPointsResolvedBeforeAFailure) {
  phone.analysis_library(fake("libno_process.so")).clear_trace();
  EXPECT_EQ(sensor->LoadFlickerLibrary(), -22);
  EXPECT_NE(sensor->m_pfnFlickerCreate, nullptr);
  EXPECT_EQ(sensor->m_pfnFlickerProcess, nullptr);
}

TEST_F(AnalysisLibrary, LoadingAgainUnloadsFirst) {
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->LoadFlickerLibrary(), 0);
  EXPECT_EQ(sensor->LoadFlickerLibrary(), 0);
  EXPECT_NE(sensor->m_flickerCore, nullptr);
  EXPECT_EQ(*instances, 1);
  EXPECT_TRUE(sensor->m_flk_lib_mtx.try_lock());
  sensor->m_flk_lib_mtx.unlock();
  sensor->UnloadFlickerLibrary();
}

TEST_F(AnalysisLibrary, GivesCreateNullAnd0) {
  *config = this;
  *flags = 7;
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->Init(2), 0);
  EXPECT_EQ(*config, nullptr);
  EXPECT_EQ(*flags, 0);
  SpectralSensorOutput output = {};
  EXPECT_EQ(sensor->Process(2, &output), 0);
  EXPECT_EQ(*processed, 1);
  sensor->Uninit(2);
}

TEST_F(AnalysisLibrary, IsNotCalledWithoutAnInstance) {
  *creates_nothing = true;
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->Init(2), 0);
  EXPECT_EQ(sensor->m_flickerCore, nullptr);
  SpectralSensorOutput output = {};
  EXPECT_EQ(sensor->Process(2, &output), 0);
  EXPECT_EQ(*processed, 0);
  sensor->Uninit(2);
}

TEST_F(AnalysisLibrary, NeverCallsANullEntryPoint) {
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->Init(2), 0);
  sensor->m_pfnFlickerProcess = nullptr;
  sensor->m_pfnFlickerDestroy = nullptr;
  SpectralSensorOutput output = {};
  EXPECT_EQ(sensor->Process(2, &output), 0);
  sensor->Uninit(2);
  EXPECT_EQ(sensor->m_flickerLibHandle, nullptr);
}

}  // namespace
