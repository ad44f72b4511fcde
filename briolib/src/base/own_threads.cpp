#include "base/own_threads.h"

#include "base/log.h"
#include "base/relaxed.h"

constexpr char kLogTag[] = "briolib/src/base";

namespace brio {
namespace {

__thread Thread t_thread;
__thread uint32_t t_callbacks;

// Relaxed atomics: how many threads to be joined and other claims there are; whether forks are watched; in a
// child, whether its parent had claims.
uint32_t s_claims;
uint32_t s_watches;
uint32_t s_forked;

void prv_in_child() {
  if (relaxed_load(s_claims) != 0) relaxed_store(s_forked, 1u);
}

// The handler stays: the library is never unloaded. Where memory is short the next claim tries again.
void prv_claim() {
  if (relaxed_load(s_watches) == 0 && pthread_atfork(nullptr, nullptr, prv_in_child) == 0) {
    relaxed_store(s_watches, 1u);
  }
  __atomic_fetch_add(&s_claims, 1u, __ATOMIC_RELAXED);
}

void prv_give_up() {
  __atomic_fetch_sub(&s_claims, 1u, __ATOMIC_RELAXED);
}

bool prv_refuse(bool refused, const char* function) {
  if (refused) {
    BLIB_E("%s::refused on a thread of the library or in a forked child\n", function);
  }
  return refused;
}

}  // namespace

void this_thread_is(Thread thread) {
  t_thread = thread;
}

bool on_channel_thread() {
  return t_thread == Thread::kRead || t_thread == Thread::kEvent;
}

int start_thread(pthread_t* thread, void* (*function)(void*), void* argument) {
  prv_claim();
  const int error = pthread_create(thread, nullptr, function, argument);
  if (error != 0) prv_give_up();
  return error;
}

void join_thread(pthread_t thread) {
  pthread_join(thread, nullptr);
  prv_give_up();
}

ProcessClaim::ProcessClaim() {
  prv_claim();
}

ProcessClaim::~ProcessClaim() {
  prv_give_up();
}

bool in_forked_child() {
  return relaxed_load(s_forked) != 0;
}

bool refused_in_forked_child(const char* function) {
  return prv_refuse(in_forked_child(), function);
}

bool refused_here(const char* function) {
  return prv_refuse(t_thread != Thread::kHost || in_forked_child(), function);
}

InEventCallback::InEventCallback() {
  t_callbacks++;
}

InEventCallback::~InEventCallback() {
  t_callbacks--;
}

bool may_send() {
  return t_thread != Thread::kRead && (t_thread != Thread::kEvent || t_callbacks == 0) && !in_forked_child();
}

}  // namespace brio
