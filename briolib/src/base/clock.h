// The only place where the library reads clocks or waits for time to pass. Tests link another implementation.
#pragma once

#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/select.h>
#include <time.h>

namespace brio {

// CLOCK_MONOTONIC; false when it cannot be read.
bool clock_monotonic(timespec* now);

// The wall clock, for file names only.
time_t clock_wall();

// Sleeps for the whole time, signals or not.
void sleep_milliseconds(unsigned milliseconds);

// pthread_cond_timedwait for a condition bound to CLOCK_MONOTONIC.
int clock_wait_until(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline);

// poll(2) with a time-out of whole seconds.
int clock_poll(pollfd* descriptors, nfds_t count, int timeout_seconds);

// select(2) with a time-out of whole seconds.
int clock_select(int nfds, fd_set* read_set, fd_set* except_set, int timeout_seconds);

}  // namespace brio
