// The clock below the library as the device has it, only brisker: a sleep and the wait of the sensor's
// monitor last a hundredth. A request times out when it is told to, and by itself only after a time that no
// busy machine needs: an answer that comes later than its request would meet the next one. No lock: the clock
// must not put the threads that it serves into an order that they do not have by themselves.
#include "brisk_clock.h"

#include <errno.h>
#include <time.h>

#include "base/clock.h"

std::atomic<bool> bench::g_expire_wait{false};

namespace brio {
namespace {

constexpr unsigned kBrisker = 100;
constexpr int kLongestWaitMs = 60000;
constexpr int kLookMs = 20;  // how often a wait looks whether it is to end

void sleep_shortened(uint64_t nanoseconds) {
  nanoseconds /= kBrisker;
  timespec left = {static_cast<time_t>(nanoseconds / 1000000000),
                   static_cast<long>(nanoseconds % 1000000000)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace

bool clock_monotonic(timespec* now) {
  return clock_gettime(CLOCK_MONOTONIC, now) == 0;
}

// Each trace file gets a second, and so a name, of its own. Host thread only, as the captures are.
time_t clock_wall() {
  static time_t s_calls;
  return time(nullptr) + s_calls++;
}

void sleep_seconds(unsigned seconds) {
  sleep_shortened(seconds * uint64_t{1000000000});
}

void sleep_milliseconds(unsigned milliseconds) {
  sleep_shortened(milliseconds * uint64_t{1000000});
}

// Ends with every look, which is a wake-up without a cause; the count is that of the wait in hand.
int clock_wait_until(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
  thread_local timespec t_deadline = {};
  thread_local int t_waited_ms = 0;
  if (t_deadline.tv_sec != deadline->tv_sec || t_deadline.tv_nsec != deadline->tv_nsec) {
    t_deadline = *deadline;
    t_waited_ms = 0;
  }
  timespec look;
  if (!clock_monotonic(&look)) return EINVAL;
  look.tv_nsec += kLookMs * 1000000L;
  if (look.tv_nsec >= 1000000000L) {
    look.tv_nsec -= 1000000000L;
    look.tv_sec++;
  }
  const int result = pthread_cond_timedwait(condition, mutex, &look);
  if (result != ETIMEDOUT) return result;
  t_waited_ms += kLookMs;
  const bool expired = bench::g_expire_wait.exchange(false, std::memory_order_relaxed);
  return expired || t_waited_ms >= kLongestWaitMs ? ETIMEDOUT : 0;
}

int clock_poll(pollfd* descriptors, nfds_t count, int timeout_seconds) {
  return poll(descriptors, count, timeout_seconds * 1000);
}

int clock_select(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds) {
  timeval timeout = {0, static_cast<suseconds_t>(timeout_seconds * 1000000L / kBrisker)};
  return select(nfds, read_set, nullptr, except_set, &timeout);
}

}  // namespace brio
