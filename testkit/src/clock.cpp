#include "kit/clock.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "base/clock.h"

namespace {

// The time is read without a lock, which would order the threads that read it where the library does
// not.
std::atomic<int64_t> s_offset_ns{0};
std::atomic<int64_t> s_stopped_at{0};  // 0: the clock runs
std::atomic<bool> s_expiring{false};

std::mutex s_mutex;  // guards everything below but the atomics
std::condition_variable s_entered_changed;
std::vector<unsigned> s_sleeps;
unsigned s_ticks_pending = 0;
uint64_t s_selects_entered = 0;
unsigned s_selects_waiting = 0;
bool s_select_exception = false;
std::atomic<double> s_scale{1.0};
std::atomic<double> s_select_scale{-1.0};  // below 0: s_scale
constexpr double kPatience = 60;
std::atomic<double> s_least{kPatience};  // seconds that a wait with a deadline lasts at least
std::atomic<double> s_cap{1e9};
std::atomic<bool> s_fail_monotonic{false};
std::atomic<bool> s_manual_select{false};
std::atomic<time_t> s_wall{0};  // 0: the real one

constexpr int64_t kSecond = 1000000000;
constexpr auto kRelaxed = std::memory_order_relaxed;

int64_t real_now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

int64_t virtual_now() {
  const int64_t stopped = s_stopped_at.load(kRelaxed);
  return (stopped != 0 ? stopped : real_now()) + s_offset_ns.load(kRelaxed);
}

void move(int64_t ns) {
  s_offset_ns.fetch_add(ns, kRelaxed);
}

timespec to_timespec(int64_t ns) {
  return {static_cast<time_t>(ns / kSecond), static_cast<long>(ns % kSecond)};
}

void record_sleep(unsigned milliseconds) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_sleeps.push_back(milliseconds);
  move(static_cast<int64_t>(milliseconds) * 1000000);
}

}  // namespace

namespace test_clock {

void reset() {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_sleeps.clear();
  s_offset_ns = 0;
  s_stopped_at = 0;
  s_ticks_pending = 0;
  s_expiring = false;
  s_scale = 1.0;
  s_select_scale = -1.0;
  s_least = kPatience;
  s_cap = 1e9;
  s_fail_monotonic = false;
  s_manual_select = false;
  s_select_exception = false;
  s_wall = 0;
}

void advance(double seconds) {
  move(static_cast<int64_t>(seconds * 1e9));
}

void stop() {
  s_stopped_at = real_now();
}

void scale_waits(double factor) {
  s_scale = factor;
  s_least = 0;
}

void scale_selects(double factor) {
  s_select_scale = factor;
}

void cap_waits(double seconds) {
  s_cap = seconds;
}

void expire_wait() {
  s_expiring.store(true, kRelaxed);
}

void keep_wait() {
  s_expiring.store(false, kRelaxed);
}

void fail_monotonic(bool fail) {
  s_fail_monotonic = fail;
}

std::vector<unsigned> sleeps() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_sleeps;
}

void manual_select(bool on) {
  s_manual_select = on;
}

bool tick() {
  std::unique_lock<std::mutex> lock(s_mutex);
  auto patience = std::chrono::seconds(10);
  if (!s_entered_changed.wait_for(lock, patience, [] { return s_selects_waiting > 0; })) return false;
  uint64_t entered = s_selects_entered;
  s_ticks_pending++;
  return s_entered_changed.wait_for(lock, patience, [entered] { return s_selects_entered > entered; });
}

void except_select() {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_select_exception = true;
}

void set_wall(std::time_t now) {
  s_wall = now;
}

}  // namespace test_clock

namespace brio {

bool clock_monotonic(timespec* now) {
  if (s_fail_monotonic) {
    errno = EINVAL;
    return false;
  }
  *now = to_timespec(virtual_now());
  return true;
}

time_t clock_wall() {
  time_t set = s_wall;
  return set != 0 ? set : time(nullptr);
}

void sleep_milliseconds(unsigned milliseconds) {
  record_sleep(milliseconds);
}

int clock_wait_until(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
  // What this thread waits for, over the slices.
  thread_local struct {
    pthread_cond_t* condition;
    timespec deadline;
    int64_t start, left;
  } t_wait = {};
  if (t_wait.condition != condition || t_wait.deadline.tv_sec != deadline->tv_sec ||
      t_wait.deadline.tv_nsec != deadline->tv_nsec) {
    const int64_t left = deadline->tv_sec * kSecond + deadline->tv_nsec - virtual_now();
    t_wait = {condition, *deadline, real_now(), std::max<int64_t>(left, 0)};
  }
  const double patient = std::max(static_cast<double>(t_wait.left) * s_scale, s_least * kSecond);
  const double real_wait = std::min(patient, s_cap * kSecond);
  const int64_t end = t_wait.start + static_cast<int64_t>(real_wait);
  constexpr int64_t kLook = 2000000;  // how often a wait checks whether it is to expire
  timespec slice = to_timespec(std::min(end, real_now() + kLook));
  int result = pthread_cond_timedwait(condition, mutex, &slice);
  if (result != ETIMEDOUT) return result;
  if (real_now() < slice.tv_sec * kSecond + slice.tv_nsec) {
    fputs("test_clock: a condition that does not wait on the monotonic clock\n", stderr);
    abort();
  }
  // The end of a slice is a spurious wake-up: the caller checks its condition, which may have
  // become true at this very moment.
  if (real_now() < end && !s_expiring.exchange(false, kRelaxed)) return 0;
  t_wait = {};
  const int64_t missing = deadline->tv_sec * kSecond + deadline->tv_nsec - virtual_now();
  if (missing > 0) move(missing);
  return ETIMEDOUT;
}

int clock_poll(pollfd* descriptors, nfds_t count, int timeout_seconds) {
  int ready = poll(descriptors, count, static_cast<int>(timeout_seconds * 1000 * s_scale));
  if (ready == 0) test_clock::advance(timeout_seconds * (1 - s_scale));
  return ready;
}

namespace {

// One wait in manual mode: the descriptors, a tick, or an exception that the test asked for.
int wait_manually(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds) {
  for (;;) {
    fd_set reads = *read_set;
    fd_set excepts = *except_set;
    timeval slice = {0, 1000};
    int ready = select(nfds, &reads, nullptr, &excepts, &slice);
    if (ready != 0) {
      *read_set = reads;
      *except_set = excepts;
      return ready;
    }
    std::lock_guard<std::mutex> lock(s_mutex);
    if (s_select_exception) {
      s_select_exception = false;
      FD_ZERO(read_set);
      return 1;
    }
    if (s_ticks_pending > 0) {
      s_ticks_pending--;
      move(timeout_seconds * kSecond);
      FD_ZERO(read_set);
      FD_ZERO(except_set);
      return 0;
    }
  }
}

int wait_scaled(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds) {
  const double scale = s_select_scale;
  const double seconds = timeout_seconds * (scale < 0 ? s_scale.load() : scale);
  const auto microseconds = static_cast<int64_t>(seconds * 1e6);
  timeval timeout = {static_cast<time_t>(microseconds / 1000000),
                     static_cast<suseconds_t>(microseconds % 1000000)};
  return select(nfds, read_set, nullptr, except_set, &timeout);
}

}  // namespace

int clock_select(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds) {
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_selects_entered++;
    s_selects_waiting++;
    s_entered_changed.notify_all();
  }
  int result = s_manual_select ? wait_manually(nfds, read_set, except_set, timeout_seconds)
                               : wait_scaled(nfds, read_set, except_set, timeout_seconds);
  int error = errno;
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_selects_waiting--;
  }
  errno = error;
  return result;
}

}  // namespace brio
