#include "service/calibration_rule.h"
#include "tests/support/sensor_test.h"

namespace {

// A factory file with these lines as its lines 7 to 13, which hold the readings.
std::string factory_file(const std::vector<std::string>& lines) {
  std::string text = "one\n2\n\nfour\n0x5\n6\n";
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

const std::vector<std::string> kGolden1 = {"1698",    "3106", "1219", "7994",
                                           "skipped", "6405", "6607"};

class Calibration : public SensorTest {
 protected:
  bool readings(const std::string& file) {
    phone.factory_file(file);
    return sensor->GetFATPData(fatp);
  }
  unsigned short fatp[6] = {};
};

TEST_F(Calibration, KnowsThePhoneModels) {
  EXPECT_EQ(sensor->GetDeviceType(), 0) << "no property";
  for (const auto& [name, type] :
       {std::pair("tamberlo", 1), std::pair("fenwickle", 2), std::pair("ostrel", 3),
        std::pair("pyrrin", 4), std::pair("", 0), std::pair("unknown", 0), std::pair("pyrrin ", 0),
        std::pair("Ostrel", 0)}) {
    phone.model(name);
    EXPECT_EQ(sensor->GetDeviceType(), type) << name;
  }
}

TEST_F(Calibration, ReadsTheChannelsInTheFilesOwnOrder) {
  EXPECT_TRUE(readings(factory_file({"101", "102", "103", "106", "nonsense", "105", "104"})));
  EXPECT_THAT(fatp, ElementsAre(101, 102, 103, 104, 105, 106));
  EXPECT_TRUE(readings(factory_file({"0x64", "0144", " 100", "+100", "", "100 counts", "100\r"})));
  EXPECT_THAT(fatp, ::testing::Each(100));
}

TEST_F(Calibration, ReadsAFileOf64KiBToItsEndAndRefusesALongerOne) {
  std::string file = factory_file({"100", "100", "100", "100", "", "100", "100"});
  file.resize(65536, '\n');
  EXPECT_TRUE(readings(file));
  const auto trace = phone.trace();
  ASSERT_GE(trace.size(), 2u);
  EXPECT_EQ(trace.back().call, spectralsim::Call::kClose);
  EXPECT_EQ(trace[trace.size() - 2].result, 0);
  EXPECT_FALSE(readings(file + '\n'));
  phone.factory_file(file).fail(Fault::read(Node::kFactoryFile).nth(2));
  EXPECT_TRUE(sensor->GetFATPData(fatp)) << "a failed read behind the readings does not matter";
}

TEST_F(Calibration, ChecksTheReadings) {
  const auto with_last = [](const std::string& last) {
    return factory_file({"100", "100", "100", "100", "", "100", last});
  };
  EXPECT_FALSE(sensor->GetFATPData(fatp)) << "no file";
  EXPECT_TRUE(readings(with_last("50000")));
  EXPECT_FALSE(readings(with_last("50001")));
  EXPECT_FALSE(readings(with_last("99")));
  EXPECT_FALSE(readings(with_last("-100")));
  EXPECT_TRUE(readings(with_last("65736"))) << "the low 16 bits are 200";
  EXPECT_FALSE(sensor->GetFATPData(nullptr));
}

TEST_F(Calibration, SurvivesAnyFile) {
  const auto first_line = [](const std::string& line) {
    return factory_file({line, "100", "100", "100", "", "100", "100"});
  };
  for (const std::string& bad :
       {std::string(), std::string("\n"), std::string(100, '\0'), std::string("\xFF\xFE\x00\n", 4),
        first_line("banana"), first_line(""), first_line("0xg"), first_line("2147483648"),
        first_line("-2147483649"), first_line("99999999999999999999999"),
        // Beyond an int, though the low 16 bits would do.
        first_line("2147484648"), first_line("-2147548184"), first_line(std::string(30000, '7'))}) {
    EXPECT_FALSE(readings(bad)) << bad.substr(0, 60);
  }
  fatp[3] = 0;
  EXPECT_FALSE(readings(factory_file({"100", "100", "100", "100", "", "100"}))) << "12 lines";
  EXPECT_EQ(fatp[3], 0);
  const std::string text(30000, 'x');
  EXPECT_TRUE(readings(text + "\n2\n3\n4\n5\n6\n100\n100\n100\n100\n" + text + "\n100\n100"))
      << "lines that hold no reading may hold anything";
  phone.fail(Fault::read(Node::kFactoryFile));
  std::fill(std::begin(fatp), std::end(fatp), std::uint16_t{0});
  EXPECT_FALSE(sensor->GetFATPData(fatp));
  EXPECT_EQ(phone.open_descriptors(), 0);
}

TEST_F(Calibration, IsComputedByTheFirstSuccessfulInit) {
  phone.model("tamberlo");
  EXPECT_EQ(sensor->Init(1), 0);
  EXPECT_EQ(sensor->m_deviceType, 1u);
  EXPECT_EQ(sensor->m_calibrationValid, 0) << "no file";
  sensor->Uninit(1);
  phone.factory_file(factory_file(kGolden1));
  EXPECT_EQ(sensor->Init(1), 0);
  EXPECT_EQ(sensor->m_calibrationValid, 1);
  EXPECT_THAT(sensor->m_calibrationFactor, ::testing::Each(1.0f));
  sensor->Uninit(1);
  phone.model("ostrel").clear_trace();
  EXPECT_EQ(sensor->Init(1), 0);
  EXPECT_EQ(sensor->m_deviceType, 1u) << "the model is kept for the life of the instance";
  for (const auto& event : phone.trace()) EXPECT_NE(event.node, Node::kFactoryFile);
}

TEST_F(Calibration, KeepsTheFactorsWithoutAModelOrAFactoryFile) {
  sensor->m_calibrationFactor[2] = 7.0f;
  EXPECT_EQ(sensor->PrepareCalibrationData(), 0);
  phone.model("pyrrin");
  sensor->m_calibrationValid = 1;
  EXPECT_EQ(sensor->PrepareCalibrationData(), 0);
  EXPECT_EQ(sensor->m_calibrationValid, 0);
  EXPECT_EQ(sensor->m_deviceType, 4u);
  EXPECT_EQ(sensor->m_calibrationFactor[2], 7.0f);
  phone.factory_file(factory_file(kGolden1));
  EXPECT_EQ(sensor->PrepareCalibrationData(), 1);
  EXPECT_EQ(sensor->m_calibrationFactor[2], 493.0f / 1219.0f);
  EXPECT_EQ(sensor->m_calibrationFactor[3], 8555.0f / 6607.0f);
}

TEST_F(Calibration, CorrectsTheStoredResultOnceItIsValid) {
  ALSResult raw = {};
  raw.value[0] = 1000.0f;
  raw.value[1] = 40000.0f;
  raw.timestamp = 9;
  sensor->m_calibrationFactor[0] = 1.5f;
  sensor->m_calibrationFactor[1] = 2.0f;
  sensor->CorrectALSRAW(nullptr);
  sensor->CorrectALSRAW(&raw);
  EXPECT_EQ(sensor->m_alsResult.value[0], 1000.0f);
  EXPECT_EQ(sensor->m_alsResult.timestamp, 9u);
  sensor->m_calibrationValid = 1;
  sensor->CorrectALSRAW(&raw);
  EXPECT_EQ(sensor->m_alsResult.value[0], 1500.0f);
  EXPECT_EQ(sensor->m_alsResult.value[1], 65535.0f);
}

}  // namespace
