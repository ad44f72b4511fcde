// The library's own threads. A host's callback runs on some of them and must not do there what would wait for
// that very thread. A child of fork() has copies of the library's words and none of these threads: what it
// stopped, joined or sent there would be its parent's, or wait for ever.
#pragma once

#include <pthread.h>
#include <stdint.h>

namespace brio {

enum class Thread : uint8_t { kHost, kRead, kEvent, kMonitor, kTrace };

// A thread of the library says which one it is before it does anything else.
void this_thread_is(Thread thread);

// Whether this is the read thread or the event thread, which only live while the library opens or is open.
bool on_channel_thread();

// As pthread_create and pthread_join. From the one to the other the library belongs to this process.
int start_thread(pthread_t* thread, void* (*function)(void*), void* argument);
void join_thread(pthread_t thread);

// The library belongs to this process while it lives, too.
class ProcessClaim {
 public:
  ProcessClaim();
  ~ProcessClaim();
  ProcessClaim(const ProcessClaim&) = delete;
  ProcessClaim& operator=(const ProcessClaim&) = delete;
};

// Whether this is a child of the process that the library belongs to.
bool in_forked_child();

// The same, and the same or any thread of the library: then with an error line that `function` is refused.
bool refused_in_forked_child(const char* function);
bool refused_here(const char* function);

// An event callback runs on this thread.
class InEventCallback {
 public:
  InEventCallback();
  ~InEventCallback();
  InEventCallback(const InEventCallback&) = delete;
  InEventCallback& operator=(const InEventCallback&) = delete;
};

// Whether this thread may wait for an answer. The read thread would wait for itself; the event thread may
// hold the URC-data mutex while it is in a callback, and the read thread wait for that. A forked child would
// wait for nobody.
bool may_send();

}  // namespace brio
