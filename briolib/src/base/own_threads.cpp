#include "base/own_threads.h"

#include "base/log.h"

namespace {

constexpr char kLogTag[] = "briolib/src/base";

__thread brio::Thread t_thread;
__thread uint32_t t_callbacks;

}  // namespace

void brio::this_thread_is(Thread thread) {
  t_thread = thread;
}

bool brio::on_channel_thread() {
  return t_thread == Thread::kRead || t_thread == Thread::kEvent;
}

bool brio::refused_on_own_thread(const char* function) {
  if (t_thread == Thread::kHost) return false;
  BLIB_E("E blib:%s:%d:%s::refused on a thread of the library\n", BLIB_HERE, function);
  return true;
}

brio::InEventCallback::InEventCallback() {
  t_callbacks++;
}

brio::InEventCallback::~InEventCallback() {
  t_callbacks--;
}

bool brio::may_send() {
  return t_thread != Thread::kRead && (t_thread != Thread::kEvent || t_callbacks == 0);
}
