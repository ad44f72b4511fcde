// The library's own threads. A host's callback runs on some of them and must not do there what would wait for
// that very thread.
#ifndef BRIOLIB_BASE_OWN_THREADS_H
#define BRIOLIB_BASE_OWN_THREADS_H

#include <stdint.h>

namespace brio {

enum class Thread : uint8_t { kHost, kRead, kEvent, kMonitor, kTrace };

// A thread of the library says which one it is before it does anything else.
void this_thread_is(Thread thread);

// Whether this is the read thread or the event thread, which only live while the library opens or is open.
bool on_channel_thread();

// Whether this is any thread of the library: then with an error line that `function` is refused.
bool refused_on_own_thread(const char* function);

// An event callback runs on this thread.
class InEventCallback {
 public:
  InEventCallback();
  ~InEventCallback();
  InEventCallback(const InEventCallback&) = delete;
  InEventCallback& operator=(const InEventCallback&) = delete;
};

// Whether this thread may wait for an answer. The read thread would wait for itself; the event thread may
// hold the URC-data mutex while it is in a callback, and the read thread wait for that.
bool may_send();

}  // namespace brio

#endif
