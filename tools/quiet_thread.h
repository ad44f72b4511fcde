// A thread without signals: they are the main thread's.
#ifndef TOOLS_QUIET_THREAD_H
#define TOOLS_QUIET_THREAD_H

#include <signal.h>

#include <functional>
#include <thread>

inline std::thread quiet_thread(const std::function<void()>& run) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread started(run);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

#endif
