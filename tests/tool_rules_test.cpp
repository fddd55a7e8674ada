// What the tool derives from its measurements.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/hub.h"
#include "tools/live.h"
#include "tools/numbers.h"
#include "tools/report.h"
#include "tools/tunnel_dump.h"
#include "tools/waveform.h"

using spectralsensorctl::amplitude_spectrum;
using spectralsensorctl::parse_stream;
using spectralsensorctl::Peak;
using spectralsensorctl::TunnelStream;
using testing::ElementsAre;
using testing::Field;
using testing::FloatNear;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

namespace {

constexpr double kTwoPi = 6.28318530717958647692;

TEST(AmplitudeSpectrum, GivesEachToneItsAmplitudeAtItsFrequencyAndNothingElse) {
  std::vector<float> samples;
  for (int i = 0; i < 2000; ++i) {
    const double t = i / 2000.0;
    samples.push_back(static_cast<float>(5000.0 + 300.0 * std::sin(kTwoPi * 120 * t) +
                                         40.0 * std::cos(kTwoPi * 731 * t)));
  }
  const std::vector<float> amplitudes = amplitude_spectrum(samples);
  ASSERT_THAT(amplitudes, SizeIs(1001));
  EXPECT_THAT(amplitudes[120], FloatNear(300.0f, 0.1f));
  EXPECT_THAT(amplitudes[731], FloatNear(40.0f, 0.1f));
  for (const std::size_t elsewhere : {0u, 1u, 60u, 110u, 130u, 240u, 1000u}) {
    EXPECT_LT(amplitudes[elsewhere], 0.1f) << elsewhere;
  }
}

TEST(Saturation, IsACountOfAFullCounter) {
  using spectralsensorctl::is_saturated;
  EXPECT_TRUE(is_saturated(910.0, 1.6));
  EXPECT_FALSE(is_saturated(909.0, 1.6));
  EXPECT_TRUE(is_saturated(57329.6, 100.8));  // 57330, rounded by a gain
  EXPECT_FALSE(is_saturated(57330.0, 102.4));
  EXPECT_TRUE(is_saturated(65535.0, 1638.4));
  EXPECT_FALSE(is_saturated(65520.0, 1638.4));
  EXPECT_TRUE(is_saturated({0.0f, 32767.0f, 5.0f}));
  EXPECT_FALSE(is_saturated({0.0f, 32766.0f, 5.0f}));
}

TEST(Peaks, AreTheReportedFrequenciesWithAStrength) {
  FlickerResult verdict = {};
  verdict.freq_a = 100;
  verdict.freq_b = 120;
  verdict.strength_b = 7;
  verdict.dominant_freq = 0xFFFFFFFF;  // the analysis found none
  verdict.dominant_strength = 1;
  verdict.secondary_freq = 270;
  verdict.secondary_strength = 3;
  EXPECT_THAT(spectralsensorctl::peaks_of(verdict),
              ElementsAre(Field(&Peak::frequency_hz, 120), Field(&Peak::frequency_hz, 270)));
}

TEST(TunnelStream, IsParsedUpToWhereNoPacketBegins) {
  std::string payload(160, '\0');
  payload[8] = '\x34';
  payload[9] = '\xFF';
  const std::string flicker = spectralsim::Hub::packet(0, 41, 1234567, payload);
  const std::string vsync = spectralsim::Hub::packet(15, 7, 99, std::string(16, 'v'));

  const TunnelStream whole = parse_stream(flicker + vsync);
  ASSERT_THAT(whole.packets, SizeIs(2));
  EXPECT_EQ(whole.packets[0].sequence, 41u);
  EXPECT_EQ(whole.packets[0].time_stamp, 1234567u);
  ASSERT_THAT(whole.packets[0].samples, SizeIs(20));
  EXPECT_EQ(whole.packets[0].samples[1], -204);
  EXPECT_EQ(whole.packets[1].id, 15);
  EXPECT_THAT(whole.packets[1].samples, IsEmpty());
  EXPECT_EQ(whole.left_over, 0u);

  EXPECT_THAT(parse_stream("").packets, IsEmpty());
  const TunnelStream cut = parse_stream(vsync + flicker.substr(0, 100));
  EXPECT_THAT(cut.packets, SizeIs(1));
  EXPECT_EQ(cut.left_over, 100u);
  EXPECT_FALSE(cut.is_out_of_step);
  const TunnelStream garbage = parse_stream(vsync + std::string(50, 'x') + flicker);
  EXPECT_THAT(garbage.packets, SizeIs(1));
  EXPECT_EQ(garbage.left_over, 50 + flicker.size());
  EXPECT_TRUE(garbage.is_out_of_step);
}

TEST(WholeNumber, IsDecimalOrHexadecimalAndNothingElse) {
  using spectralsensorctl::parse_whole_number;
  EXPECT_THAT(parse_whole_number("010"), Optional(10u));
  EXPECT_THAT(parse_whole_number("0x1D"), Optional(29u));
  EXPECT_THAT(parse_whole_number("4294967295"), Optional(4294967295u));
  for (const char* text : {"", "0x", "-1", "+1", " 1", "1 ", "1.0", "1e3", "4294967296", "0x0x1"}) {
    EXPECT_EQ(parse_whole_number(text), std::nullopt) << text;
  }
}

TEST(Bar, IsLogarithmicAndStaysWithinItsWidth) {
  EXPECT_EQ(spectralsensorctl::bar(0.0, 10000.0, 8), "........");
  EXPECT_EQ(spectralsensorctl::bar(100.0, 10000.0, 8), "####....");
  EXPECT_EQ(spectralsensorctl::bar(20000.0, 10000.0, 8), "########");
  EXPECT_EQ(spectralsensorctl::bar(20000.0, 10000.0, -3), "");
}

// The test's output and errors go to a terminal of this width until the object ends.
class Terminal {
 public:
  explicit Terminal(unsigned short columns) {
    const winsize size = {24, columns, 0, 0};
    int line = -1;
    EXPECT_EQ(openpty(&m_screen, &line, nullptr, nullptr, &size), 0);
    fcntl(m_screen, F_SETFL, O_NONBLOCK);
    for (std::size_t i = 0; i < 2; ++i) {
      m_before[i] = dup(kStreams[i]);
      dup2(line, kStreams[i]);
    }
    close(line);
  }
  ~Terminal() {
    for (std::size_t i = 0; i < 2; ++i) {
      dup2(m_before[i], kStreams[i]);
      close(m_before[i]);
    }
    close(m_screen);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Waits until the terminal has this text, and returns all that it has.
  std::string shown_until(const std::string& end) {
    for (int i = 0; i < 500 && m_shown.find(end) == std::string::npos; ++i) {
      char chunk[4096];
      const ssize_t count = read(m_screen, chunk, sizeof chunk);
      if (count > 0) m_shown.append(chunk, static_cast<std::size_t>(count));
      if (count <= 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return std::exchange(m_shown, "");
  }

 private:
  static constexpr int kStreams[] = {STDOUT_FILENO, STDERR_FILENO};
  int m_screen = -1;
  int m_before[2] = {};
  std::string m_shown;
};

TEST(LivePage, ShowsMessagesWholeAndBeginsAnewAfterAStop) {
  Terminal terminal(10);
  {
    spectralsensorctl::LivePage page;
    page.draw([](int columns) { return std::to_string(columns) + "\nwider than ten\n1"; });
    EXPECT_EQ(terminal.shown_until("1\r\n"), "10\r\nwider than ten\r\n1\r\n");
    std::fputs("a message of one line\n", stderr);
    EXPECT_EQ(terminal.shown_until("1\r\n"),
              "\033[4A\r\033[Ja message of one line\r\n10\r\nwider than ten\r\n1\r\n");
    kill(getpid(), SIGCONT);
    EXPECT_EQ(terminal.shown_until("1\r\n"), "10\r\nwider than ten\r\n1\r\n");
    std::fputs("no end of line", stderr);
  }
  EXPECT_EQ(terminal.shown_until("line"), "no end of line");
}

TEST(Wrapped, BreaksLinesAtBlanksOnly) {
  EXPECT_EQ(spectralsensorctl::wrapped("gain 0.83, settled\n12345678\n", 10),
            "gain 0.83,\nsettled\n12345678\n");
  EXPECT_EQ(spectralsensorctl::wrapped("gain 0.83\n", 3), "gain\n0.83\n");
}

}  // namespace
