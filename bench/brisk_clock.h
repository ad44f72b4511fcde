// The clock of bench/stress.cpp.
#ifndef BENCH_BRISK_CLOCK_H
#define BENCH_BRISK_CLOCK_H

#include <atomic>

namespace bench {

// Set: the request that waits times out now, and takes the flag back. Relaxed.
extern std::atomic<bool> g_expire_wait;

}  // namespace bench

#endif
