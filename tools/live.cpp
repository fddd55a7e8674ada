#include "tools/live.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace spectralsensorctl {

namespace {

// kBegin hides the cursor and makes the terminal cut lines at its edge instead of wrapping them.
// kEnd undoes both.
constexpr char kBegin[] = "\033[?25l\033[?7l";
constexpr char kEnd[] = "\033[?7h\033[?25h";
constexpr char kClearToEnd[] = "\033[J";
constexpr int kUsualColumns = 80;

}  // namespace

bool on_terminal() { return isatty(STDOUT_FILENO) == 1; }

int terminal_columns() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsualColumns;
  return size.ws_col;
}

std::string bar(double value, double full, int width) {
  if (width <= 0) return "";
  const double part = std::log(std::max(value, 1.0)) / std::log(full);
  const auto filled = static_cast<std::size_t>(
      std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(width)));
  return std::string(filled, '#') + std::string(static_cast<std::size_t>(width) - filled, '.');
}

LivePage::LivePage() { std::fputs(kBegin, stdout); }

LivePage::~LivePage() {
  std::fputs(kEnd, stdout);
  std::fflush(stdout);
}

void LivePage::draw(const std::string& text) {
  if (m_lines > 0) std::printf("\033[%dA\r", m_lines);
  std::fputs(kClearToEnd, stdout);
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
  m_lines = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace spectralsensorctl
