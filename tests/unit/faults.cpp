#include "faults.h"

#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace {

struct Plan {
  std::atomic<int> skip{0};
  std::atomic<int> times{0};
  std::atomic<int> error{0};
  std::atomic<long> calls{0};
};

Plan s_plans[static_cast<int>(faults::Call::kCondition) + 1];
std::mutex s_urc_mutex;  // guards s_urc_handler
std::function<void(char*)> s_urc_handler;

Plan& plan(faults::Call call) {
  return s_plans[static_cast<int>(call)];
}

// Counts the call; whether it shall fail, with errno set.
bool fails(faults::Call call) {
  Plan& p = plan(call);
  p.calls++;
  if (p.times == 0) return false;
  if (p.skip > 0) {
    p.skip--;
    return false;
  }
  p.times--;
  errno = p.error;
  return true;
}

}  // namespace

namespace faults {

void reset() {
  for (Plan& p : s_plans) {
    p.skip = 0;
    p.times = 0;
    p.calls = 0;
  }
  on_urc(nullptr);
}

void fail(Call call, int error, int skip, int times) {
  plan(call).error = error;
  plan(call).skip = skip;
  plan(call).times = times;
}

long calls(Call call) {
  return plan(call).calls;
}

void on_urc(std::function<void(char*)> handler) {
  std::lock_guard<std::mutex> lock(s_urc_mutex);
  s_urc_handler = std::move(handler);
}

}  // namespace faults

using faults::Call;

extern "C" {

void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size) {
  return fails(Call::kMalloc) ? nullptr : __real_malloc(size);
}

void* __real_calloc(size_t count, size_t size);
void* __wrap_calloc(size_t count, size_t size) {
  return fails(Call::kCalloc) ? nullptr : __real_calloc(count, size);
}

char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text) {
  return fails(Call::kStrdup) ? nullptr : __real_strdup(text);
}

int __real_socketpair(int domain, int type, int protocol, int* pair);
int __wrap_socketpair(int domain, int type, int protocol, int* pair) {
  return fails(Call::kSocketpair) ? -1 : __real_socketpair(domain, type, protocol, pair);
}

ssize_t __real_send(int fd, const void* data, size_t size, int flags);
ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
  return fails(Call::kSend) ? -1 : __real_send(fd, data, size, flags);
}

ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size) {
  if (!fails(Call::kWrite)) return __real_write(fd, data, size);
  return errno == 0 ? __real_write(fd, data, size - 1) : -1;
}

int __real_select(int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout);
int __wrap_select(int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout) {
  return fails(Call::kSelect) ? -1 : __real_select(nfds, reads, writes, excepts, timeout);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                          void* argument) {
  return fails(Call::kThread) ? errno : __real_pthread_create(thread, attributes, start, argument);
}

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  return fails(Call::kMutex) ? errno : __real_pthread_mutex_init(mutex, attributes);
}

int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
  return fails(Call::kCondition) ? errno : __real_pthread_cond_init(condition, attributes);
}

uint32_t __real_at_parse(char* line, void* argument_a, void* argument_b);
uint32_t __wrap_at_parse(char* line, void* argument_a, void* argument_b) {
  std::function<void(char*)> handler;
  {
    std::lock_guard<std::mutex> lock(s_urc_mutex);
    handler = s_urc_handler;
  }
  if (!handler) return __real_at_parse(line, argument_a, argument_b);
  handler(line);
  return 0;
}

}  // extern "C"
