// The clock below the library as the device has it, only brisker: a sleep and the wait of the sensor's
// monitor last a hundredth, and no request waits longer than a few seconds. No lock and no atomic word: it
// must not put the threads that it serves into an order that they do not have by themselves.
#include <errno.h>
#include <time.h>

#include "base/clock.h"

namespace brio {
namespace {

constexpr unsigned kBrisker = 100;
// Far longer than a modem that answers needs, under a sanitizer on a busy machine too.
constexpr time_t kLongestWaitSeconds = 3;

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

int clock_wait_until(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
  timespec latest;
  if (!clock_monotonic(&latest)) return EINVAL;
  latest.tv_sec += kLongestWaitSeconds;
  return pthread_cond_timedwait(condition, mutex, latest.tv_sec < deadline->tv_sec ? &latest : deadline);
}

int clock_poll(pollfd* descriptors, nfds_t count, int timeout_seconds) {
  return poll(descriptors, count, timeout_seconds * 1000);
}

int clock_select(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds) {
  timeval timeout = {0, static_cast<suseconds_t>(timeout_seconds * 1000000L / kBrisker)};
  return select(nfds, read_set, nullptr, except_set, &timeout);
}

}  // namespace brio
