#include "outlet.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "quiet_thread.h"

namespace brioctl {
namespace {

constexpr std::size_t kMostWaiting = 100000;  // lines

bool takes(int fd) {
  pollfd item{fd, POLLOUT, 0};
  return poll(&item, 1, 0) == 1 && (item.revents & POLLOUT) != 0;
}

}  // namespace

Outlet& terminal() {
  static Outlet& s_terminal = *new Outlet(STDERR_FILENO);  // never destroyed: threads log to the end
  return s_terminal;
}

void Outlet::put(std::string line) {
  constexpr std::size_t kAtOnce = 4096;  // as much as a pipe takes that takes anything
  const std::lock_guard<std::mutex> guard(mutex_);
  if (waiting_.empty() && !writes_ && line.size() <= kAtOnce && takes(fd_)) {
    write_all(line);
    return;
  }
  if (waiting_.size() >= kMostWaiting) {
    lost_++;
    return;
  }
  waiting_.push_back(std::move(line));
  if (!thread_.joinable()) {
    thread_ = quiet_thread([this] { run(); });
  }
  changed_.notify_one();
}

int Outlet::finish() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ends_ = true;
    changed_.notify_one();
  }
  if (thread_.joinable()) thread_.join();
  const std::lock_guard<std::mutex> guard(mutex_);
  thread_ = std::thread();
  ends_ = false;
  return error_;
}

void Outlet::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ends_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    std::deque<std::string> lines;
    lines.swap(waiting_);
    const std::string missing = "# " + std::to_string(lost_) + " lines are missing: they were not taken\n";
    if (lost_ > 0) lines.push_back(missing);
    lost_ = 0;
    writes_ = true;
    lock.unlock();
    for (const std::string& line : lines) write_all(line);
    lock.lock();
    writes_ = false;
  }
}

void Outlet::write_all(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const ssize_t size = write(fd_, text.data() + at, text.size() - at);
    if (size >= 0) {
      at += static_cast<std::size_t>(size);
    } else if (errno == EAGAIN) {
      pollfd item{fd_, POLLOUT, 0};
      poll(&item, 1, -1);
    } else if (errno != EINTR) {
      if (error_ == 0) error_ = errno;
      return;
    }
  }
}

}  // namespace brioctl
