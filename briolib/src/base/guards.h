// Owners for what an early return would leak: a held mutex, a descriptor, heap text; a fair lock.
#pragma once

#include <assert.h>
#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>

namespace brio {

// Base of a class whose objects own something.
class NoCopy {
 public:
  NoCopy(const NoCopy&) = delete;
  NoCopy& operator=(const NoCopy&) = delete;

 protected:
  constexpr NoCopy() = default;
};

class MutexGuard : NoCopy {
 public:
  explicit MutexGuard(pthread_mutex_t& mutex) : MutexGuard(&mutex) {}
  // Null: locks nothing.
  explicit MutexGuard(pthread_mutex_t* mutex) : mutex_(mutex) {
    if (mutex_ != nullptr) pthread_mutex_lock(mutex_);
  }
  ~MutexGuard() {
    if (mutex_ != nullptr) pthread_mutex_unlock(mutex_);
  }

 private:
  pthread_mutex_t* mutex_;
};

// First line of a function whose caller holds the mutex; debug builds check it.
inline void assert_held([[maybe_unused]] pthread_mutex_t& mutex) {
  assert(pthread_mutex_trylock(&mutex) == EBUSY);
}

// A lock whose waiters get it in the order in which they asked for it.
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

class Descriptor : NoCopy {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

struct FreeMemory {
  void operator()(char* memory) const { free(memory); }
};
// Heap memory of malloc and its kin.
using HeapText = std::unique_ptr<char, FreeMemory>;

}  // namespace brio
