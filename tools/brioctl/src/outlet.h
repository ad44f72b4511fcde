// Lines for a file or a terminal that may stop taking them.
#ifndef BRIOCTL_OUTLET_H
#define BRIOCTL_OUTLET_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace brioctl {

// Writes at once while the descriptor takes it. What it does not take waits for a thread of the outlet's own,
// so that nobody who has something to say is held.
class Outlet {
 public:
  explicit Outlet(int fd) : fd_(fd) {}
  ~Outlet() { finish(); }
  Outlet(const Outlet&) = delete;
  Outlet& operator=(const Outlet&) = delete;

  void put(std::string line);  // with its line end; any thread
  bool failed() const { return error_ != 0; }
  // Returns when all was written: 0, or the errno of the first write that failed.
  int finish();

 private:
  void run();
  void write_all(const std::string& text);

  const int fd_;
  std::atomic<int> error_{0};
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::deque<std::string> waiting_;
  std::size_t lost_ = 0;  // lines, because too many waited
  bool ends_ = false;
  bool writes_ = false;  // the thread has lines that are not written yet
  std::thread thread_;
};

// Standard error, for lines that the library's threads and the relay have to tell.
Outlet& terminal();

}  // namespace brioctl

#endif
