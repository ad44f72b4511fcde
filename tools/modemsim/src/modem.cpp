// The simulator's thread: it waits on the three ports, on inotify (who opened what) and on an eventfd that
// announces work from other threads, and sleeps otherwise.
#include "modemsim/modem.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>

#include "device_files.h"
#include "impl.h"
#include "quiet_thread.h"

namespace modemsim {
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMaxLine = 4096;  // a longer command line is answered with ERROR

constexpr const char* kPortNames[] = {"ttyACM1", "ttyACM2", "ttyACM3"};
constexpr const char* kFolders[] = {"dev", "var/local/wan/debug", "var/run", "mnt/us", "proc/net"};

}  // namespace

// -- Life

bool Modem::Impl::start(const std::string& where) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (running_) {
    error_ = "the modem is already running";
    return false;
  }
  root_ = where;
  for (const char* folder : kFolders) {
    error_ = make_device_folder(root_, folder);
    if (!error_.empty()) return false;
  }
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_ < 0) {
    error_ = std::string("cannot create an eventfd: ") + std::strerror(errno);
    return false;
  }
  inotify_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (!connect()) {
    close_wake_ups();
    return false;
  }
  quit_ = false;
  running_ = true;
  thread_ = quiet_thread([this] { run(); });
  return true;
}

void Modem::Impl::stop() {
  post([this] { quit_ = true; });
  if (thread_.joinable()) thread_.join();
  stop_playing();
  disconnect();
  timers_.clear();
  close_wake_ups();
}

void Modem::Impl::close_wake_ups() {
  for (int* fd : {&wake_, &inotify_}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

// Creates the ptys and their links.
bool Modem::Impl::connect() {
  for (std::size_t i = 0; i < ports_.size(); i++) {
    std::string problem = ports_[i].create(inotify_);
    const fs::path link = fs::path(root_) / "dev" / kPortNames[i];
    if (problem.empty()) {
      std::error_code failed;
      const fs::file_status status = fs::symlink_status(link, failed);
      if (fs::exists(status) && !fs::is_symlink(status)) {
        problem = link.string() + " is in the way: it is not a link; remove it or choose another root folder";
      } else {
        fs::remove(link, failed);
        fs::create_symlink(ports_[i].device(), link, failed);
        if (failed) problem = "cannot create the link " + link.string() + ": " + failed.message();
      }
    }
    if (!problem.empty()) {
      error_ = problem;
      disconnect();
      return false;
    }
    ports_[i].set_chunk(static_cast<Port>(i) == Port::kTrace ? 0 : chunk_);
  }
  connected_ = true;
  return true;
}

void Modem::Impl::disconnect() {
  for (std::size_t i = 0; i < ports_.size(); i++) {
    const fs::path link = fs::path(root_) / "dev" / kPortNames[i];
    std::error_code failed;
    if (ports_[i].fd() >= 0 && fs::read_symlink(link, failed) == ports_[i].device()) fs::remove(link, failed);
    ports_[i].close();
  }
  connected_ = false;
  unplugged_++;
  forget_reports();
  show_net_device();
  partial_line_.clear();
  queue_.clear();
  drop_current();
}

bool Modem::Impl::plug() {
  if (connected_) return true;
  if (!connect()) return false;
  Session session{state_, last_network_};
  last_sets_.clear();
  boot(session);
  show_net_device();
  return true;
}

// -- Work from other threads

void Modem::Impl::post(std::function<void()> work) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (!running_ || std::this_thread::get_id() == thread_.get_id()) {
    work();
    return;
  }
  mailbox_.push_back(std::move(work));
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t count = ::write(wake_, &one, sizeof one);
}

void Modem::Impl::call(const std::function<void()>& work) {
  // No promise: what checks threads (helgrind) does not see the order that one makes.
  bool done = false;
  post([&] {
    work();
    const std::lock_guard<std::mutex> guard(log_mutex_);
    done = true;
    log_changed_.notify_all();
  });
  std::unique_lock<std::mutex> lock(log_mutex_);
  log_changed_.wait(lock, [&] { return done; });
}

// -- The thread

void Modem::Impl::run() {
  prctl(PR_SET_TIMERSLACK, 1000UL);
  bool more = true;
  while (more) {
    wait();
    std::vector<std::function<void()>> work;
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      work.swap(mailbox_);
    }
    look_who_opened();  // after taking the work: a reader that opened a port and then asked for a report gets
                        // it
    for (const auto& item : work) item();
    run_timers();
    for (std::size_t i = 0; i < ports_.size(); i++) read_port(static_cast<Port>(i));
    stream_background_trace();
    for (auto& port : ports_) {
      if (port.is_open()) port.flush();
    }
    tell_waiters();
    if (quit_) {
      const std::lock_guard<std::mutex> guard(mutex_);
      running_ = false;
      for (const auto& item : mailbox_) item();
      mailbox_.clear();
      more = false;
    }
  }
  const std::lock_guard<std::mutex> guard(log_mutex_);
  for (const auto& waiter : waiters_) waiter->ready = true;
  waiters_.clear();
  log_changed_.notify_all();
}

void Modem::Impl::wait() {
  std::array<pollfd, 5> items{};
  std::size_t count = 0;
  items[count++] = {wake_, POLLIN, 0};
  if (inotify_ >= 0) items[count++] = {inotify_, POLLIN, 0};
  auto next = timers_.empty() ? Clock::time_point::max() : timers_.begin()->first;
  for (std::size_t i = 0; i < ports_.size(); i++) {
    readable_[i] = false;
    if (!ports_[i].is_open()) continue;
    next = std::min(next, ports_[i].retry_at());
    poll_index_[i] = count;
    items[count++] = {ports_[i].fd(), static_cast<short>(POLLIN | (ports_[i].blocked() ? POLLOUT : 0)), 0};
  }
  timespec patience{};
  if (next != Clock::time_point::max()) {
    const auto left = std::max(std::chrono::nanoseconds(0),
                               std::chrono::duration_cast<std::chrono::nanoseconds>(next - Clock::now()));
    patience.tv_sec = static_cast<time_t>(left.count() / 1000000000);
    patience.tv_nsec = static_cast<long>(left.count() % 1000000000);
  }
  if (ppoll(items.data(), count, next == Clock::time_point::max() ? nullptr : &patience, nullptr) <= 0) {
    return;
  }
  for (std::size_t i = 0; i < ports_.size(); i++) {
    if (ports_[i].is_open()) {
      readable_[i] = (items[poll_index_[i]].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
    }
  }
  if (items[0].revents != 0) {
    std::uint64_t value = 0;
    [[maybe_unused]] const ssize_t got = ::read(wake_, &value, sizeof value);
  }
}

void Modem::Impl::look_who_opened() {
  if (inotify_ < 0) return;
  alignas(inotify_event) char buffer[1024];
  for (;;) {
    const ssize_t size = ::read(inotify_, buffer, sizeof buffer);
    if (size <= 0) return;
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, buffer + at, sizeof event);
      at += static_cast<ssize_t>(sizeof event + event.len);
      for (auto& port : ports_) {
        const bool all = (event.mask & IN_Q_OVERFLOW) != 0;
        if (!all && event.wd != port.watch()) continue;
        if (all || (event.mask & IN_OPEN) != 0) port.device_opened();
        if ((event.mask & IN_CLOSE) != 0) port.device_closed();
      }
    }
  }
}

void Modem::Impl::run_timers() {
  const auto now = timers_.empty() ? Clock::time_point() : Clock::now();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    const auto action = std::move(timers_.begin()->second.second);
    timers_.erase(timers_.begin());
    action();
  }
}

std::uint64_t Modem::Impl::at(Clock::time_point time, std::function<void()> action) {
  timers_.emplace(time, std::make_pair(++last_timer_, std::move(action)));
  return last_timer_;
}

std::uint64_t Modem::Impl::after(Clock::duration delay, std::function<void()> action) {
  return at(Clock::now() + delay, std::move(action));
}

void Modem::Impl::after_if_plugged(Clock::duration delay, std::function<void()> action) {
  after(delay, [this, when = unplugged_, action = std::move(action)] {
    if (connected_ && when == unplugged_) action();
  });
}

void Modem::Impl::cancel(std::uint64_t timer) {
  for (auto it = timers_.begin(); it != timers_.end(); ++it) {
    if (it->second.first != timer) continue;
    timers_.erase(it);
    return;
  }
}

void Modem::Impl::read_port(Port port) {
  const auto index = static_cast<std::size_t>(port);
  if (!readable_[index] || !ports_[index].is_open()) return;
  readable_[index] = false;
  char buffer[4096];
  const std::size_t size = ports_[index].read(buffer, sizeof buffer);
  if (port != Port::kQuery) return;  // nothing is ever said to the modem there
  for (std::size_t i = 0; i < size && connected_; i++) {
    if (buffer[i] == '\r') {
      std::string line;
      line.swap(partial_line_);
      take_line(line);
    } else if (buffer[i] != '\n' && partial_line_.size() < kMaxLine) {
      partial_line_ += buffer[i];
    }
  }
}

// -- Waiting for the simulator

void Modem::Impl::tell_waiters() {
  if (waiters_.empty()) return;
  const std::lock_guard<std::mutex> guard(log_mutex_);
  const auto done = [](const auto& waiter) {
    if (!waiter->condition()) return false;
    waiter->ready = true;
    return true;
  };
  waiters_.erase(std::remove_if(waiters_.begin(), waiters_.end(), done), waiters_.end());
  log_changed_.notify_all();
}

bool Modem::Impl::wait_until(std::function<bool()> condition, Milliseconds patience) {
  const auto waiter = std::make_shared<Waiter>();
  waiter->condition = std::move(condition);
  post([this, waiter] {
    if (running_) {
      waiters_.push_back(waiter);
      return;
    }
    const std::lock_guard<std::mutex> guard(log_mutex_);
    waiter->ready = waiter->condition();
  });
  std::unique_lock<std::mutex> lock(log_mutex_);
  return log_changed_.wait_for(lock, patience, [&] { return waiter->ready; });
}

bool Modem::Impl::all_written() const {
  if (busy_ || !queue_.empty()) return false;
  return std::none_of(ports_.begin(), ports_.end(), [](const PtyPort& port) { return port.pending(); });
}

// -- The interface

Modem::Modem(State state) : impl_(std::make_unique<Impl>()) {
  impl_->state_ = std::move(state);
}
Modem::~Modem() {
  impl_->stop();
}

bool Modem::start(const std::string& root) {
  return impl_->start(root);
}
void Modem::stop() {
  impl_->stop();
}

std::string Modem::error() const {
  std::string text;
  impl_->call([&] { text = impl_->error_; });
  return text;
}

void Modem::with_state(const std::function<void(State&)>& change) {
  impl_->call([&] { change(impl_->state_); });
}

void Modem::update(const std::function<void(State&)>& change) {
  impl_->call([&] {
    const Reported before = reported(impl_->state_);
    change(impl_->state_);
    impl_->report_change(before);
  });
}

State Modem::state() {
  State copy;
  impl_->call([&] { copy = impl_->state_; });
  return copy;
}

void Modem::urc(const std::string& line) {
  raw(Port::kUrc, "\r\n" + line + "\r\n");
}

void Modem::raw(Port port, const std::string& bytes) {
  impl_->post([this, port, bytes] { impl_->write(port, bytes); });
}

void Modem::tell(const std::string& command) {
  impl_->call([&] { impl_->take_line(command); });
}

void Modem::answer(const Answer& answer) {
  impl_->call([&] { impl_->answers_.push_back(answer); });
}

void Modem::fault(const Fault& fault) {
  impl_->call([&] { impl_->faults_.push_back(fault); });
}

void Modem::clear_faults() {
  impl_->call([this] {
    impl_->faults_.clear();
    impl_->answers_.clear();
  });
}

void Modem::chunk(std::size_t bytes) {
  impl_->call([&] { impl_->set_chunk(bytes); });
}

std::vector<std::string> Modem::commands() {
  const std::lock_guard<std::mutex> guard(impl_->log_mutex_);
  return impl_->commands_;
}

void Modem::clear_commands() {
  const std::lock_guard<std::mutex> guard(impl_->log_mutex_);
  impl_->commands_.clear();
}

bool Modem::wait_command(const std::string& command, std::size_t times, Milliseconds patience) {
  std::unique_lock<std::mutex> lock(impl_->log_mutex_);
  return impl_->log_changed_.wait_for(lock, patience, [&] {
    const auto count = std::count(impl_->commands_.begin(), impl_->commands_.end(), command);
    return static_cast<std::size_t>(count) >= times;
  });
}

bool Modem::wait_written(Milliseconds patience) {
  return impl_->wait_until([this] { return impl_->all_written(); }, patience);
}

bool Modem::is_open(Port port) const {
  bool open = false;
  impl_->call([&] { open = impl_->ports_[static_cast<std::size_t>(port)].is_open(); });
  return open;
}

bool Modem::wait_open(Port port, bool open, Milliseconds patience) {
  return impl_->wait_until(
      [this, port, open] { return impl_->ports_[static_cast<std::size_t>(port)].is_open() == open; },
      patience);
}

void Modem::unplug() {
  impl_->call([this] { impl_->disconnect(); });
}

bool Modem::plug() {
  bool done = false;
  impl_->call([&] { done = impl_->plug(); });
  return done;
}

bool Modem::is_plugged() const {
  bool plugged = false;
  impl_->call([&] { plugged = impl_->connected_; });
  return plugged;
}

void Modem::stream_trace(std::uint64_t bytes, std::uint64_t bytes_per_second) {
  impl_->call([&] { impl_->port(Port::kTrace).stream(bytes, bytes_per_second); });
}

unsigned char Modem::trace_byte(std::uint64_t position) {
  return trace_pattern_byte(position);
}

void Modem::observe(std::function<void(const Traffic&)> observer) {
  impl_->observer_ = std::move(observer);
}

}  // namespace modemsim
