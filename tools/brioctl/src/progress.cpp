#include "progress.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>

#include "quiet_thread.h"

namespace brioctl {

namespace {
std::atomic<bool> s_shown{false};  // a line is there to be erased
}

void Progress::erase() {
  if (s_shown.exchange(false)) fprintf(stderr, "\r\033[K");
}

Progress::Progress(std::string what, bool wanted, std::function<std::string()> detail)
    : what_(std::move(what)), detail_(std::move(detail)) {
  if (!wanted || isatty(STDERR_FILENO) == 0) return;
  thread_ = quiet_thread([this] { run(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
  }
  end_.notify_one();
  thread_.join();
}

void Progress::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  int seconds = 0;
  while (!end_.wait_for(lock, std::chrono::seconds(1), [this] { return ended_; })) {
    fprintf(stderr, "\r\033[K%s: %d s%s", what_.c_str(), ++seconds, detail_ ? detail_().c_str() : "");
    fflush(stderr);
    s_shown = true;
  }
  erase();
}

}  // namespace brioctl
