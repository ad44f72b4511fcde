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

// After `skip` good calls, `times` calls fail with `error` (a write with error 0 is short by one byte).
void fail(Call call, int error, int skip = 0, int times = 1);

// Calls so far. The allocation calls of libraries are not counted.
long calls(Call call);

// Runs instead of at_parse; null for at_parse itself.
void on_urc(std::function<void(char* line)> handler);

}  // namespace faults

#endif
