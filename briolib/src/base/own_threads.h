// The library's own threads. A host's callback runs on some of them and must not do there what would wait for
// that very thread. A child of fork() has copies of the library's words and none of these threads: what it
// stopped, joined or sent there would be its parent's, or wait for ever.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "base/guards.h"

namespace brio {

enum class Thread : uint8_t { kHost, kRead, kEvent, kMonitor, kTrace };

// A thread of the library, from start to join; meanwhile the library belongs to this process. One that waits
// in select is told to end by a socket pair. Owner: one thread at a time, except for what is said below.
class OwnThread : NoCopy {
 public:
  // `stop` becomes readable when the thread is to end; -1 without sockets.
  using Run = void (*)(int stop);

  constexpr OwnThread(Thread which, Run run) : which_(which), run_(run) {}

  // Before start: a connected pair, close-on-exec, both descriptors above 0 and below FD_SETSIZE. False with
  // errno, which is EMFILE when they do not fit an fd_set.
  bool open_sockets();
  int stop_socket() const { return sockets_[0]; }
  // The thread closes both when it ends; the owner does when it could not be started.
  void close_sockets();

  // 0, or the error of pthread_create.
  int start();
  // Not joined yet; it may have ended by itself.
  bool started() const { return started_; }
  // Writes "STOP" with its NUL, never raising SIGPIPE. Where that fails it hangs up and returns the errno:
  // EBADF when the thread has ended by itself.
  int stop();
  // Closes the owner's socket, so that the thread sees the end of the stream. Any thread.
  void hang_up();
  // False when there was no thread.
  bool join();

 private:
  static void* prv_main(void* self);
  void prv_hang_up();

  const Thread which_;
  const Run run_;
  // The thread alone uses the first socket and closes it.
  int sockets_[2] = {-1, -1};
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;  // guards the second socket
  pthread_t thread_ = {};
  bool started_ = false;
};

// Whether this is the read thread or the event thread, which only live while the library opens or is open.
bool on_channel_thread();

// The library belongs to this process while it lives, too.
class ProcessClaim : NoCopy {
 public:
  ProcessClaim();
  ~ProcessClaim();
};

// Whether this is a child of the process that the library belongs to.
bool in_forked_child();

// The same, and the same or any thread of the library: then with an error line that `function` is refused.
bool refused_in_forked_child(const char* function);
bool refused_here(const char* function);

// An event callback runs on this thread.
class InEventCallback : NoCopy {
 public:
  InEventCallback();
  ~InEventCallback();
};

// Whether this thread may wait for an answer. The read thread would wait for itself; the event thread may
// hold the URC-data mutex while it is in a callback, and the read thread wait for that. A forked child would
// wait for nobody.
bool may_send();

}  // namespace brio
