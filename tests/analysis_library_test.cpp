// Binding the analysis library. FAKES is the folder of the test's own libraries.

#include <dlfcn.h>

#include "tests/support/sensor_test.h"

namespace {

using ::testing::HasSubstr;

class AnalysisLibrary : public SensorTest {
 protected:
  static std::string fake(const std::string& name) { return std::string(FAKES) + "/" + name; }
};

const std::string kDlError = "check_dl_error: dlerror ";

TEST_F(AnalysisLibrary, IsLoadedByTheFirstFlickerClientAndUnloadedByTheLast) {
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->Init(1), 0);
  EXPECT_EQ(events_of([&] { EXPECT_EQ(sensor->Init(2), 0); }),
            (Lines{"dlopen /vendor/lib64/libzelk_flicker.so"}))
      << "and nothing else: the sensor is up";
  void* const library = dlopen(fake("libwhole.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr);
  const int* instances = static_cast<int*>(dlsym(library, "fake_instances"));
  EXPECT_EQ(*instances, 1);
  EXPECT_EQ(sensor->Init(2), -17);
  EXPECT_EQ(*instances, 1);
  sensor->Uninit(2);
  EXPECT_EQ(*instances, 1);
  sensor->Uninit(2);
  EXPECT_EQ(*instances, 0);
  EXPECT_EQ(sensor->m_flickerLibHandle, nullptr);
  EXPECT_EQ(sensor->m_flickerCore, nullptr);
  EXPECT_EQ(dev().state, 1u) << "the other client still has the sensor";
  phone.clear_trace();
  sensor->Uninit(2);
  EXPECT_EQ(sensor->m_flkRefCount, -1);
  EXPECT_THAT(phone.log(),
              ElementsAre(error_line("UnloadFlickerLibrary: Error library handle == NULL!")));
  dlclose(library);
}

TEST_F(AnalysisLibrary, AFailedLoadFailsInitWithAZero) {
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

TEST_F(AnalysisLibrary, KeepsWhatWasResolvedBeforeAFailure) {
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
  EXPECT_TRUE(sensor->m_flk_lib_mtx.try_lock());
  sensor->m_flk_lib_mtx.unlock();
  sensor->UnloadFlickerLibrary();
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

TEST_F(AnalysisLibrary, ReportsAndClosesOnADlError) {
  phone.analysis_library(fake("libwhole.so"));
  EXPECT_EQ(sensor->LoadFlickerLibrary(), 0);
  dlerror();
  EXPECT_EQ(sensor->check_dl_error(), 0);
  EXPECT_NE(sensor->m_flickerLibHandle, nullptr);
  EXPECT_EQ(dlsym(sensor->m_flickerLibHandle, "NoSuchSymbol"), nullptr);
  phone.clear_trace();
  EXPECT_EQ(sensor->check_dl_error(), -22);
  EXPECT_EQ(sensor->m_flickerLibHandle, nullptr);
  EXPECT_THAT(phone.log()[0], HasSubstr(kDlError));
}

}  // namespace
