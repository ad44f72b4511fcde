// The system calls of a piece of work, on all its threads.
#ifndef BENCH_CALL_COUNT_H
#define BENCH_CALL_COUNT_H

#include <functional>
#include <map>

namespace bench {

// Runs `work` in a traced child process, which ends with it, and counts the calls by their number from the
// child's first call of count_begin to count_end. Empty when the child cannot be traced or does not end well.
std::map<long, long> count_system_calls(const std::function<bool()>& work);

void count_begin();
void count_end();

}  // namespace bench

#endif
