#include "base/own_threads.h"

#include <unistd.h>

#include "base/log.h"
#include "base/words.h"

namespace {

constexpr char kLogTag[] = "briolib/src/base";

__thread brio::Thread t_thread;
__thread uint32_t t_callbacks;

// Relaxed atomics: how many threads there are to be joined, and the process that started the latest.
uint32_t s_threads;
pid_t s_process;

bool prv_refuse(bool refused, const char* function) {
  if (refused) {
    BLIB_E("E blib:%s:%d:%s::refused on a thread of the library or in a forked child\n", BLIB_HERE, function);
  }
  return refused;
}

}  // namespace

void brio::this_thread_is(Thread thread) {
  t_thread = thread;
}

bool brio::on_channel_thread() {
  return t_thread == Thread::kRead || t_thread == Thread::kEvent;
}

int brio::start_thread(pthread_t* thread, void* (*function)(void*), void* argument) {
  relaxed_store(s_process, getpid());
  __atomic_fetch_add(&s_threads, 1u, __ATOMIC_RELAXED);
  const int error = pthread_create(thread, nullptr, function, argument);
  if (error != 0) __atomic_fetch_sub(&s_threads, 1u, __ATOMIC_RELAXED);
  return error;
}

void brio::join_thread(pthread_t thread) {
  pthread_join(thread, nullptr);
  __atomic_fetch_sub(&s_threads, 1u, __ATOMIC_RELAXED);
}

bool brio::in_forked_child() {
  return relaxed_load(s_threads) != 0 && relaxed_load(s_process) != getpid();
}

bool brio::refused_in_forked_child(const char* function) {
  return prv_refuse(in_forked_child(), function);
}

bool brio::refused_here(const char* function) {
  return prv_refuse(t_thread != Thread::kHost || in_forked_child(), function);
}

brio::InEventCallback::InEventCallback() {
  t_callbacks++;
}

brio::InEventCallback::~InEventCallback() {
  t_callbacks--;
}

bool brio::may_send() {
  return t_thread != Thread::kRead && (t_thread != Thread::kEvent || t_callbacks == 0) && !in_forked_child();
}
