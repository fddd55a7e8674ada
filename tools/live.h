#pragma once

// A page that is drawn repeatedly in the same place of a terminal.

#include <string>

namespace spectralsensorctl {

// Whether stdout is a terminal.
bool on_terminal();

// The terminal's width in columns, or 80 if the terminal does not report it.
int terminal_columns();

// A bar of `width` columns for a value between 1 and `full`. Its scale is logarithmic, because
// light spans decades.
std::string bar(double value, double full, int width);

// Draws each page over the one before. The cursor is hidden while the object exists.
class LivePage {
 public:
  LivePage();
  ~LivePage();
  LivePage(const LivePage&) = delete;
  LivePage& operator=(const LivePage&) = delete;

  // `text` consists of whole lines. Lines wider than the terminal are cut.
  void draw(const std::string& text);

 private:
  int m_lines = 0;
};

}  // namespace spectralsensorctl
