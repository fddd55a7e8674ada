#include "tools/live.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tools/files.h"

namespace spectralsensorctl {

namespace {

constexpr char kClearToEnd[] = "\033[J";
constexpr winsize kUsualSize = {24, 80, 0, 0};

// The terminal's size, or a usual one if the terminal does not report it.
winsize terminal_size() {
  winsize size = {};
  const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
  return is_known && size.ws_col > 0 && size.ws_row > 0 ? size : kUsualSize;
}

// Whether this program may write to the terminal now. Where job control is absent, it may.
bool has_terminal() {
  const pid_t foreground = tcgetpgrp(STDOUT_FILENO);
  return foreground < 0 || foreground == getpgrp();
}

// The lines of the terminal that a text takes. A terminal breaks wider lines, also afterwards when
// it becomes narrower.
std::size_t height_of(const std::string& text, std::size_t columns) {
  std::istringstream lines(text);
  std::size_t height = 0;
  for (std::string line; std::getline(lines, line);) {
    height += std::max<std::size_t>(1, (line.size() + columns - 1) / columns);
  }
  return height;
}

// The first lines of a text, as many as the height allows.
std::string first_lines(const std::string& text, std::size_t height, std::size_t columns) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    if (height_of(result + line, columns) > height) break;
    result += line + "\n";
  }
  return result;
}

// Reads what the pipe has now.
std::string read_available(int descriptor) {
  std::string text;
  char chunk[4096];
  for (ssize_t count = 0; (count = read(descriptor, chunk, sizeof chunk)) > 0;) {
    text.append(chunk, static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

bool can_draw_pages() {
  const char* terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && *terminal != '\0' &&
         std::strcmp(terminal, "dumb") != 0;
}

std::string bar(double value, double full, int width) {
  if (width <= 0) return "";
  const double part = std::log(std::max(value, 1.0)) / std::log(full);
  const auto filled = static_cast<std::size_t>(
      std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(width)));
  return std::string(filled, '#') + std::string(static_cast<std::size_t>(width) - filled, '.');
}

std::string wrapped(const std::string& text, int columns) {
  std::string result;
  std::size_t used = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line); result += "\n", used = 0) {
    std::istringstream words(line);
    for (std::string word; words >> word; used += word.size()) {
      const bool fits = used + 1 + word.size() <= static_cast<std::size_t>(columns);
      if (used > 0) result += fits ? " " : "\n";
      used = used > 0 && fits ? used + 1 : 0;
      result += word;
    }
  }
  return result;
}

LivePage::LivePage() {
  sigset_t handled = {};
  sigemptyset(&handled);
  sigaddset(&handled, SIGCONT);
  sigaddset(&handled, SIGWINCH);
  m_signals = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
  m_stop = eventfd(0, EFD_CLOEXEC);
  if (m_signals < 0 || m_stop < 0) throw std::runtime_error(std::strerror(errno));
  take_stderr();
  // The thread blocks all signals, so that the others reach the thread that measures.
  sigset_t all = {};
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &m_mask_before);
  m_thread = std::thread(&LivePage::run, this);
  pthread_sigmask(SIG_SETMASK, &m_mask_before, nullptr);
  pthread_sigmask(SIG_BLOCK, &handled, nullptr);
}

LivePage::~LivePage() {
  if (m_stderr >= 0) dup2(m_stderr, STDERR_FILENO);
  eventfd_write(m_stop, 1);
  m_thread.join();
  if (m_stderr >= 0) write_all(m_stderr, m_message);
  for (const int descriptor : {m_signals, m_stop, m_messages, m_stderr}) {
    if (descriptor >= 0) close(descriptor);
  }
  pthread_sigmask(SIG_SETMASK, &m_mask_before, nullptr);
}

void LivePage::draw(Text text) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_text = std::move(text);
  take_signals();  // this thread may continue after a stop before the other one
  redraw();
}

// Puts a pipe in the place of a stderr that is a terminal.
void LivePage::take_stderr() {
  int ends[2] = {-1, -1};
  if (isatty(STDERR_FILENO) != 1 || pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
  m_messages = ends[0];
  fcntl(ends[1], F_SETFL, 0);  // who writes to stderr waits where it is full
  m_stderr = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (m_stderr >= 0) {
    dup2(ends[1], STDERR_FILENO);
  } else {
    close(std::exchange(m_messages, -1));
  }
  close(ends[1]);
}

void LivePage::run() {
  // poll ignores a descriptor that is -1.
  pollfd events[] = {{m_stop, POLLIN, 0}, {m_signals, POLLIN, 0}, {m_messages, POLLIN, 0}};
  bool is_stopped = false;
  while (!is_stopped) {
    poll(events, std::size(events), -1);
    is_stopped = (events[0].revents & POLLIN) != 0;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (take_signals()) redraw();
    show_messages();
  }
}

bool LivePage::take_signals() {
  signalfd_siginfo signal = {};
  bool is_any = false;
  while (read(m_signals, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
    is_any = true;
    if (signal.ssi_signo == SIGCONT) m_drawn.clear();  // the shell has printed below the page
  }
  return is_any;
}

void LivePage::show_messages() {
  if (m_messages < 0) return;
  m_message += read_available(m_messages);
  const std::size_t length = m_message.rfind('\n') + 1;
  if (length == 0) return;
  erase();
  std::fflush(stdout);
  write_all(m_stderr, m_message.substr(0, length));
  m_message.erase(0, length);
  paint();
}

void LivePage::redraw() {
  erase();
  paint();
}

void LivePage::erase() {
  if (m_drawn.empty() || !has_terminal()) return;
  const std::size_t height = height_of(m_drawn, terminal_size().ws_col);
  std::printf("\033[%zuA\r%s", height, kClearToEnd);
  m_drawn.clear();
}

void LivePage::paint() {
  m_drawn.clear();
  if (!m_text || !has_terminal()) return;
  const winsize size = terminal_size();
  // The cursor takes the last line.
  m_drawn = first_lines(m_text(size.ws_col), size.ws_row - 1u, size.ws_col);
  std::fputs(m_drawn.c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace spectralsensorctl
