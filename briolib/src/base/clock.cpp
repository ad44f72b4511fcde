#include "base/clock.h"

#include <errno.h>

namespace brio {

bool clock_monotonic(timespec* now) {
  return clock_gettime(CLOCK_MONOTONIC, now) == 0;
}

time_t clock_wall() {
  return time(nullptr);
}

void sleep_milliseconds(unsigned milliseconds) {
  timespec left = {static_cast<time_t>(milliseconds / 1000),
                   static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

int clock_wait_until(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
  return pthread_cond_timedwait(condition, mutex, deadline);
}

int clock_poll(pollfd* descriptors, nfds_t count, int timeout_seconds) {
  return poll(descriptors, count, timeout_seconds * 1000);
}

int clock_select(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds) {
  timeval timeout = {timeout_seconds, 0};
  return select(nfds, read_set, nullptr, except_set, &timeout);
}

}  // namespace brio
