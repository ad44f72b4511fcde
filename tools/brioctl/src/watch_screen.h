// The terminal of brioctl watch, taken as a whole screen (ncurses) and given back whichever way the program
// ends.
#ifndef BRIOCTL_WATCH_SCREEN_H
#define BRIOCTL_WATCH_SCREEN_H

#include <vector>

#include "watch_layout.h"

namespace brioctl::watch {

// Input and output are a terminal that can be drawn on, and the program was built with ncurses.
bool screen_possible();

// One at a time. Throws Failure.
class Terminal {
 public:
  Terminal();
  ~Terminal();  // NOLINT(performance-trivially-destructible): with a screen it is not
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  int width() const;
  int height() const;
  bool ascii() const;  // it shows nothing else
  void draw(const std::vector<Row>& rows);
  // Waits for a key at most so long; 0 for none. Notices a changed size.
  int key(int milliseconds);
};

// Gives the terminal back, if it is taken. From any thread and in signal handlers; nothing can be drawn
// afterwards.
void restore_terminal();

}  // namespace brioctl::watch

#endif
