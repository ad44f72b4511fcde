// A lock whose waiters get it in the order in which they asked for it.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "base/guards.h"

namespace brio {

class FairLock : NoCopy {
 public:
  constexpr FairLock() = default;

  void lock() {
    MutexGuard guard(mutex_);
    const uint32_t ticket = next_++;
    while (ticket != served_) pthread_cond_wait(&changed_, &mutex_);
  }
  void unlock() {
    bool waited_for;
    {
      MutexGuard guard(mutex_);
      waited_for = ++served_ != next_;
    }
    if (waited_for) pthread_cond_broadcast(&changed_);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;  // guards the tickets
  pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
  uint32_t next_ = 0;    // the next ticket to be given out
  uint32_t served_ = 0;  // the ticket that has the lock, or is the next to have it
};

}  // namespace brio
