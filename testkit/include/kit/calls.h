// A layer between the product and the C library, libcrypto and the IPC library (link option --wrap): counts
// every call that can fail, makes it fail on demand, and knows what the product holds. Only the product's own
// calls reach it (brio_product in CMakeLists.txt).
#ifndef KIT_CALLS_H
#define KIT_CALLS_H

#include <sys/types.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace faults {

// Instead of an errno.
// Some of the bytes: half of a write, three of a read. Of an ioctl: it goes well, and there are unsent bytes.
constexpr int kShort = -1;
constexpr int kEnd = -2;  // no byte; of system: the exit status of a shell that found no command

// After `skip` good calls, `times` calls fail with `error`. The monotonic clock is "clock_gettime". A close
// fails after its work is done.
void fail(const std::string& call, int error, long skip = 0, long times = 1);
// Runs whenever a call was made to fail, on its thread; null for none.
void on_fault(void (*hook)());
// A name of errno.h, "short" or "end", or a number; nothing for other words.
std::optional<int> error_number(const std::string& text);
// No call fails any more, no hook runs.
void stop();

// Calls so far.
long calls(const std::string& call);
// Calls made to fail since the call's last fail().
long fired(const std::string& call);
// The calls that can be made to fail.
std::set<std::string> names();

// While set, replaces the writes that do not fail; changed while none is under way.
inline std::function<ssize_t(int fd, const char* data, size_t size)> on_write;

// What the product made and did not undo: "heap=3 thread=1", without what is 0.
std::string held();
// Descriptors closed that were not open, since the last look.
long stray_closes();

}  // namespace faults

#endif
