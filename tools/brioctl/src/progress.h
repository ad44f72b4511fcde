// Tells on a terminal's standard error that something takes its time; nothing in the first second, nothing
// elsewhere.
#ifndef BRIOCTL_PROGRESS_H
#define BRIOCTL_PROGRESS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace brioctl {

class Progress {
 public:
  // "WHAT: 3 s" and what `detail` returns, which is called on a thread of its own.
  Progress(std::string what, bool wanted, std::function<std::string()> detail = {});
  ~Progress();
  // For who ends the program meanwhile.
  static void erase();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void run();

  std::string what_;
  std::function<std::string()> detail_;
  std::mutex mutex_;  // guards ended_
  std::condition_variable end_;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace brioctl

#endif
