#include "flicker/flicker_start_rule.h"
#include "tests/support/sensor_test.h"

namespace {

using spectral::GainChoice;

struct Search {
  std::vector<int> trials;  // indices of the gains, negative on the fallback channel
  GainChoice choice;
};

// Searches where the two channels saturate at the gains of these indices and at higher gains, which
// have lower indices.
Search search(int preferred_saturates_to, int fallback_saturates_to) {
  Search result;
  result.choice = spectral::search_gain([&](const GainChoice& trial) {
    const bool preferred = trial.channel == 0x20;
    result.trials.push_back(preferred ? trial.index : -trial.index);
    return trial.index <= (preferred ? preferred_saturates_to : fallback_saturates_to);
  });
  return result;
}

TEST(GainSearch, FindsTheHighestGainThatDoesNotSaturate) {
  const Search dark = search(-1, -1);
  EXPECT_THAT(dark.trials, ElementsAre(14, 6, 2, 0, 0));
  EXPECT_EQ(dark.choice.index, 0);
  EXPECT_THAT(search(6, -1).trials, ElementsAre(14, 6, 10, 8, 7));
  for (int saturates_to = -1; saturates_to < 14; ++saturates_to) {
    const Search found = search(saturates_to, -1);
    EXPECT_EQ(found.choice.channel, 0x20u) << saturates_to;
    EXPECT_EQ(found.choice.index, saturates_to + 1);
  }
}

TEST(GainSearch, SwitchesToTheFallbackChannelOnce) {
  const Search bright = search(14, 5);
  EXPECT_EQ(bright.trials[0], 14);
  EXPECT_EQ(bright.trials[1], -14);
  EXPECT_EQ(bright.choice.channel, 0x04u);
  EXPECT_EQ(bright.choice.index, 6);
  const Search blinding = search(14, 14);
  EXPECT_THAT(blinding.trials, ElementsAre(14, -14, -14, -14, -14, -14));
  EXPECT_EQ(blinding.choice.index, 14);
}

class FlickerExposure : public SensorTest {
 protected:
  FlickerExposure() { bring_up(); }
};

// On cut 2.2: five trials of start, thirteen polls of the saturation counter, and stop, and then
// the start at the gain that was found.
TEST_F(FlickerExposure, SearchesWithAFixedSequenceOfAccesses) {
  phone.scene("dark");
  const Lines events = events_of([&] { EXPECT_EQ(sensor->StartExpFLK_AutoGain(), 0); });
  const Lines start = {"write 2a=0f", "write 2d=01", "read 31=00", "write 31=20", "write 41=01",
                       "write 47=0f", "write 71=01", "read 31=20", "write 31=23"};
  const Lines stop = {"read 31=23",  "write 31=22", "write 71=01", "read 31=22",
                      "write 31=02", "write 41=00", "write 47=00", "write 2d=00"};
  const std::size_t polls = 13 * 2;
  ASSERT_EQ(events.size(), 5 * (start.size() + polls + stop.size()) + start.size());
  EXPECT_EQ(Lines(events.begin(), events.begin() + 9), start);
  EXPECT_EQ(events[9], "read 33=00");
  EXPECT_EQ(events[10], "read 34=00");
  EXPECT_EQ(Lines(events.begin() + 35, events.begin() + 43), stop);
  EXPECT_EQ(sensor->m_flkGain, 17067);
  EXPECT_EQ(sensor->m_flkChannelMask, 0x20u);
  EXPECT_EQ(dev().state, 3u);
}

TEST_F(FlickerExposure, SwitchesTheChannelInTheSun) {
  phone.scene("sunlight");
  EXPECT_EQ(sensor->StartExpFLK_AutoGain(), 0);
  EXPECT_EQ(sensor->m_flkChannelMask, 0x04u);
  EXPECT_EQ(sensor->m_flkGain, 181);
  EXPECT_EQ(dev().flicker_channels, 0x04);
}

TEST_F(FlickerExposure, PollsNothingWhileTheFlagIsClear) {
  sensor->SetEnableFlag(2, false);
  const Lines events = events_of([&] { EXPECT_EQ(sensor->StartExpFLK_AutoGain(), 0); });
  for (const std::string& event : events)
    EXPECT_EQ(event.rfind("read 3", 0) == 0 && event[6] != '1', false);
  EXPECT_EQ(sensor->m_flkGain, 17067);
  EXPECT_EQ(dev().state, 3u);
}

TEST_F(FlickerExposure, SumsTheErrorsOfItsSearchAndGoesOn) {
  phone.fail(Fault::register_write().at(0x2A).nth(2).returning(-3))
      .fail(Fault::register_write().at(0x2D).nth(3).returning(-5));
  phone.clear_trace();
  EXPECT_EQ(sensor->StartExpFLK_AutoGain(), -22);
  EXPECT_EQ(phone.log().back().substr(0, 110).find("retVal=-16") != std::string::npos, true)
      << "-3, -5, and -8 of the stop that found nothing running: " << phone.log().back();
  EXPECT_EQ(dev().state, 3u) << "flicker runs all the same";
}

TEST_F(FlickerExposure, AFailedSaturationReadKeepsTheBytesReadBefore) {
  phone.chip().pin(0x34, 3);
  phone.fail(Fault::register_read().at(0x34).nth(2).returning(-9));
  EXPECT_EQ(sensor->StartExpFLK_AutoGain(), 0) << "a failed read does not count as an error";
  EXPECT_EQ(sensor->m_flkChannelMask, 0x04u);
}

TEST_F(FlickerExposure, KeepsTheStoredGainWhereNoneIsApplied) {
  sensor->m_flkGain = 777;
  phone.fail(Fault::register_write().at(0x2A).nth(6));
  EXPECT_EQ(sensor->StartExpFLK_AutoGain(), -22);
  EXPECT_EQ(sensor->m_flkGain, 777);
  EXPECT_EQ(phone.log().back(), error_line("StartExpFLK_AutoGain: Cannot start FLK  retVal=-1, "
                                           "channel=0x20, gain=0x309"));
}

TEST_F(FlickerExposure, StartsAtTheStoredGain) {
  sensor->m_flkGain = 300;
  phone.chip().write(0x31, 0x40);
  const Lines events = events_of([&] { EXPECT_EQ(sensor->StartExpFLK(), 0); });
  EXPECT_EQ(Lines(events.begin(), events.begin() + 5),
            (Lines{"write 2a=0c", "read 31=40", "write 31=00", "write 32=03", "write 2d=01"}));
  EXPECT_EQ(sensor->m_flkGain, 320);
  EXPECT_THAT(events_of([&] { EXPECT_EQ(sensor->StartExpFLK(), -22); }),
              ElementsAre(error_line("StartExpFLK: Cannot start FLK  -7, channel=0x20")))
      << "the refusals of the gain and of the pedestal are not logged";
  EXPECT_EQ(sensor->StopExpFLK(), 0);
}

TEST_F(FlickerExposure, ReportsAFailedStartOrStop) {
  EXPECT_EQ(sensor->StopExpFLK(), -22);
  EXPECT_THAT(phone.log(), ElementsAre(error_line("StopExpFLK: Cannot stop FLK exposure  -8")));
  sensor->m_flkChannelMask = 0x1040;
  EXPECT_EQ(sensor->StartExpFLK(), -22);
  EXPECT_EQ(phone.log().back(), error_line("StartExpFLK: Cannot start FLK  -1, channel=0x1040"));
  sensor->VD6281_Term();
  EXPECT_EQ(sensor->StartExpFLK(), -22);
  EXPECT_EQ(phone.log().back(), error_line("StartExpFLK: Cannot start FLK  -4, channel=0x1040"));
}

}  // namespace
