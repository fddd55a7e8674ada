#pragma once

// A page that is drawn again in the same place, on a terminal.

#include <string>

namespace spectralsensorctl {

// Whether stdout is a terminal.
bool on_terminal();

// The terminal's width in columns, 80 where it does not tell.
int terminal_columns();

// A bar of `width` columns for a value between 1 and `full`, by its logarithm: light spans decades.
std::string bar(double value, double full, int width);

// Draws each page over the one before. The cursor is hidden meanwhile, and is back with the end of
// the object, whichever way that comes.
class LivePage {
 public:
  LivePage();
  ~LivePage();
  LivePage(const LivePage&) = delete;
  LivePage& operator=(const LivePage&) = delete;

  // `text` is whole lines; what is wider than the terminal is cut.
  void draw(const std::string& text);

 private:
  int m_lines = 0;
};

}  // namespace spectralsensorctl
