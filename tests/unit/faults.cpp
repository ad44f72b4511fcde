#include "faults.h"

#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <sys/select.h>
#include <sys/types.h>

#include <atomic>
#include <mutex>

namespace {

struct Plan {
  std::atomic<int> skip{0}, times{0}, error{0};
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

void faults::fail(Call call, int error, int skip, int times) {
  plan(call).error = error;
  plan(call).skip = skip;
  plan(call).times = times;
}

long faults::calls(Call call) {
  return plan(call).calls;
}

void faults::on_urc(std::function<void(char*)> handler) {
  std::lock_guard<std::mutex> lock(s_urc_mutex);
  s_urc_handler = std::move(handler);
}

// WRAP(result on failure, which call, return type, name, (parameters), (arguments))
#define WRAP(FAILURE, CALL, TYPE, NAME, PARAMETERS, ARGUMENTS)                  \
  extern "C" TYPE __real_##NAME PARAMETERS;                                     \
  extern "C" TYPE __wrap_##NAME PARAMETERS {                                    \
    return fails(faults::Call::CALL) ? TYPE(FAILURE) : __real_##NAME ARGUMENTS; \
  }
using Void = void*;
using Text = char*;
WRAP(nullptr, kMalloc, Void, malloc, (size_t size), (size))
WRAP(nullptr, kCalloc, Void, calloc, (size_t count, size_t size), (count, size))
WRAP(nullptr, kStrdup, Text, strdup, (const char* text), (text))
WRAP(-1, kSocketpair, int, socketpair, (int domain, int type, int protocol, int* pair),
     (domain, type, protocol, pair))
WRAP(-1, kSend, ssize_t, send, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags))
WRAP(errno == 0 ? __real_write(fd, data, size - 1) : -1, kWrite, ssize_t, write,
     (int fd, const void* data, size_t size), (fd, data, size))
WRAP(-1, kSelect, int, select, (int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout),
     (nfds, reads, writes, excepts, timeout))
WRAP(errno, kThread, int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument),
     (thread, attributes, start, argument))
WRAP(errno, kMutex, int, pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
     (mutex, attributes))
WRAP(errno, kCondition, int, pthread_cond_init,
     (pthread_cond_t * condition, const pthread_condattr_t* attributes), (condition, attributes))

extern "C" uint32_t __real_at_parse(char* line, void* argument_a, void* argument_b);
extern "C" uint32_t __wrap_at_parse(char* line, void* argument_a, void* argument_b) {
  std::function<void(char*)> handler;
  {
    std::lock_guard<std::mutex> lock(s_urc_mutex);
    handler = s_urc_handler;
  }
  if (!handler) return __real_at_parse(line, argument_a, argument_b);
  handler(line);
  return 0;
}
