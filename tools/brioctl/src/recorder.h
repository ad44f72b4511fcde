// Where the lines of the ports go: the AT log's file, the recording's folder, standard error.
#ifndef BRIOCTL_RECORDER_H
#define BRIOCTL_RECORDER_H

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "at_log.h"
#include "outlet.h"

namespace brioctl {

class Recorder {
 public:
  explicit Recorder(bool identities);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // Throws Failure when a file of the name holds something already; not for a device or a pipe.
  static void check_place(const std::string& path, bool force);
  // Writes the AT log into a new file; an older one of the name is replaced. Throws Failure.
  void write_to(const std::string& path);
  // Shows each line on standard error.
  void show();
  at_log::Journal* journal() { return &journal_; }
  std::size_t lines() const { return lines_; }
  bool failed() const { return log_ && log_->failed(); }  // a line could not be written: finish() tells
  // The last lines of the ports, the newest at the end.
  std::vector<at_log::Line> last(std::size_t count);

  // Ends the file. Throws Failure when it could not be written.
  void finish();

 private:
  at_log::Journal journal_;
  std::string path_;
  int file_ = -1;
  std::unique_ptr<Outlet> log_;
  std::atomic<std::size_t> lines_{0};
  std::mutex last_mutex_;  // guards last_
  std::deque<at_log::Line> last_;
};

// Time of the day, "07:12:03.123".
std::string time_of_day(std::int64_t wall_ms);
std::int64_t wall_clock_ms();

}  // namespace brioctl

#endif
