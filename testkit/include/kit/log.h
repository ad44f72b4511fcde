// Captures what the library writes to syslog: the test program defines the syslog functions itself.
#ifndef KIT_LOG_H
#define KIT_LOG_H

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace log_capture {

struct Line {
  int priority;
  std::string text;
  std::thread::id thread;
};

// From now on lines go to `taker` alone, on the thread that logs and without a lock, which would order
// threads that the library does not order; null: they are kept again.
void hand_to(void (*taker)(const char* line));

void clear();
std::vector<Line> lines();
std::vector<Line> take();  // and clears
// Whether a line holds `part`.
bool has(const std::string& part);
// Waits, with process::g_patience, until `part` was logged at least `times` times.
bool wait_for(const std::string& part, size_t times = 1);
// Runs `hook` on the thread that logs the next line that holds `part`, once, before it goes on.
void on_line(const std::string& part, std::function<void()> hook);

}  // namespace log_capture

#endif
