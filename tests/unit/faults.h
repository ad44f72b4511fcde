// Replaces calls below the library (link option --wrap): makes them fail on demand and counts them.
#ifndef TESTS_UNIT_FAULTS_H
#define TESTS_UNIT_FAULTS_H

#include <functional>

namespace faults {

enum class Call {
  kMalloc,
  kCalloc,
  kStrdup,
  kSocketpair,
  kSend,
  kWrite,
  kSelect,
  kThread,
  kMutex,
  kCondition
};

// No faults, counters at 0, at_parse does its own work.
void reset();

// After `skip` good calls, `times` calls fail with `error` (a write with error 0 is short by one byte).
void fail(Call call, int error, int skip = 0, int times = 1);

// Calls since reset. The allocation calls of libraries are not counted.
long calls(Call call);

// Runs instead of at_parse.
void on_urc(std::function<void(char* line)> handler);

}  // namespace faults

#endif
