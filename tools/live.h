#pragma once

// A page that is drawn repeatedly in the same place of a terminal.

#include <signal.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace spectralsensorctl {

// Whether stdout is a terminal that can move its cursor, as a LivePage needs it. One that is called
// "dumb" by TERM, or whose TERM is not set, gets plain lines.
bool can_draw_pages();

// A bar of `width` columns for a value between 1 and `full`. Its scale is logarithmic, because
// light spans decades.
std::string bar(double value, double full, int width);

// Breaks lines that are wider than `columns` at blanks. A word is never broken.
std::string wrapped(const std::string& text, int columns);

// Draws each page over the one before, or below what has been printed meanwhile. A thread draws the
// page again when the terminal changes its size and when the program continues after a stop, and
// shows the lines that are written to stderr whole, above the page. While another program has the
// terminal, nothing is drawn. The terminal's settings stay as they are, so that there is nothing to
// restore when the program stops or ends.
class LivePage {
 public:
  // Returns whole lines of at most this many columns, where that is possible.
  using Text = std::function<std::string(int columns)>;

  LivePage();
  ~LivePage();
  LivePage(const LivePage&) = delete;
  LivePage& operator=(const LivePage&) = delete;

  void draw(Text text);

 private:
  void take_stderr();
  void run();
  bool take_signals();
  void show_messages();
  void redraw();
  void erase();
  void paint();

  std::mutex m_mutex;     // of the page, and of the order of what is printed
  Text m_text;            // of the page
  std::string m_drawn;    // what stands above the cursor
  std::string m_message;  // a line of stderr that has not ended yet
  sigset_t m_mask_before = {};
  int m_signals = -1;   // descriptor from which the thread reads signals
  int m_stop = -1;      // descriptor by which the thread is stopped
  int m_messages = -1;  // pipe's end from which the thread reads what is written to stderr
  int m_stderr = -1;    // stderr itself
  std::thread m_thread;
};

}  // namespace spectralsensorctl
