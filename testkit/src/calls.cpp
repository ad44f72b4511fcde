#include "kit/calls.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <poll.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "base/clock.h"
#include "nipc/nipc.h"

namespace {

std::atomic<void (*)()> s_hook;

// One call's plan and counts. Changed while no call of the kind is under way, but for the counts.
struct Plan {
  explicit Plan(const char* its_name) : name(its_name), next(s_first) { s_first = this; }
  // Counts the call. True, with errno set, when it is to fail.
  bool fails() {
    calls++;
    const long at = since++;
    if (at < skip || at - skip >= times) return false;
    fired++;
    if (void (*const hook)() = s_hook) hook();
    errno = error;
    return true;
  }
  static Plan* s_first;

  const char* name;
  Plan* next;
  std::atomic<long> calls{0}, since{0}, fired{0}, skip{0}, times{0};
  std::atomic<int> error{0};
};
Plan* Plan::s_first;

Plan& plan(const std::string& call) {
  Plan* found = Plan::s_first;
  while (found != nullptr && call != found->name) found = found->next;
  if (found == nullptr) fprintf(stderr, "faults: %s is not replaced\n", call.c_str()), abort();
  return *found;
}

// What the product holds.
constexpr const char* kHeld[] = {"heap",       "thread", "lock",       "mutex", "condition",
                                 "attributes", "digest", "connection", "text"};
std::atomic<long> s_held[std::size(kHeld)];
auto& [s_heap, s_thread, s_lock, s_mutex, s_condition, s_attributes, s_digest, s_connection, s_text] = s_held;
std::atomic<long> s_stray_closes;

// A transfer that fails after some bytes, or with none, or for good.
template <typename Transfer>
ssize_t fail_transfer(size_t some, Transfer transfer) {
  return errno == faults::kShort ? transfer(some) : errno == faults::kEnd ? 0 : -1;
}

// Fails when all is done.
template <typename Call>
int fail_behind(Call call, int result = -1) {
  const int error = errno;
  call();
  errno = error;
  return result;
}

}  // namespace

// CALL(return type, name, (parameters), (arguments), result on failure, what is done with `result`)
#define CALL(TYPE, NAME, PARAMETERS, ARGUMENTS, FAILURE, BEHIND) \
  static Plan s_##NAME(#NAME);                                   \
  extern "C" TYPE __wrap_##NAME PARAMETERS {                     \
    TYPE result = s_##NAME.fails() ? FAILURE : ::NAME ARGUMENTS; \
    BEHIND;                                                      \
    return result;                                               \
  }
// UNDO(name, (parameters), (arguments), what is counted down)
#define UNDO(NAME, PARAMETERS, ARGUMENTS, COUNT) \
  extern "C" void __wrap_##NAME PARAMETERS {     \
    COUNT;                                       \
    ::NAME ARGUMENTS;                            \
  }

// ---- Memory
CALL(void*, malloc, (size_t size), (size), nullptr, s_heap += result != nullptr)
CALL(void*, calloc, (size_t count, size_t size), (count, size), nullptr, s_heap += result != nullptr)
CALL(char*, strdup, (const char* text), (text), nullptr, s_heap += result != nullptr)
UNDO(free, (void* data), (data), s_heap -= data != nullptr)

// ---- Threads
CALL(int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument),
     (thread, attributes, start, argument), errno, s_thread += result == 0)
CALL(int, pthread_join, (pthread_t thread, void** value), (thread, value), errno, s_thread -= result == 0)
CALL(int, pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
     (mutex, attributes), errno, s_mutex += result == 0)
CALL(int, pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex), errno, s_mutex -= result == 0)
CALL(int, pthread_condattr_init, (pthread_condattr_t * attributes), (attributes), errno,
     s_attributes += result == 0)
CALL(int, pthread_condattr_setclock, (pthread_condattr_t * attributes, clockid_t clock), (attributes, clock),
     errno, )
CALL(int, pthread_condattr_destroy, (pthread_condattr_t * attributes), (attributes), errno,
     s_attributes -= result == 0)
CALL(int, pthread_cond_init, (pthread_cond_t * condition, const pthread_condattr_t* attributes),
     (condition, attributes), errno, s_condition += result == 0)
CALL(int, pthread_cond_destroy, (pthread_cond_t * condition), (condition), errno, s_condition -= result == 0)

// ---- Descriptors
CALL(ssize_t, read, (int fd, void* data, size_t size), (fd, data, size),
     fail_transfer(std::min<size_t>(size, 3), [=](size_t some) { return ::read(fd, data, some); }), )
CALL(ssize_t, send, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags),
     fail_transfer(size / 2, [=](size_t some) { return ::send(fd, data, some, flags); }), )
CALL(int, select, (int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout),
     (nfds, reads, writes, excepts, timeout), -1, )
CALL(int, poll, (pollfd * watched, nfds_t count, int timeout), (watched, count, timeout), -1, )
CALL(int, flock, (int fd, int operation), (fd, operation), -1,
     s_lock += operation == LOCK_UN ? -1 : result == 0)
CALL(int, shutdown, (int fd, int how), (fd, how), -1, )
CALL(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, )
CALL(int, socketpair, (int domain, int type, int protocol, int* pair), (domain, type, protocol, pair), -1, )
CALL(int, tcgetattr, (int fd, termios* settings), (fd, settings), -1, )
CALL(int, tcsetattr, (int fd, int when, const termios* settings), (fd, when, settings), -1, )
CALL(int, tcflush, (int fd, int queues), (fd, queues), -1, )
CALL(off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence), -1, )
CALL(int, unlink, (const char* path), (path), -1, )
CALL(int, fstat, (int fd, struct stat* facts), (fd, facts), -1, )
CALL(int, ftruncate, (int fd, off_t size), (fd, size), -1, )
CALL(int, fchmod, (int fd, mode_t mode), (fd, mode), -1, )
CALL(const char*, inet_ntop, (int family, const void* address, char* text, socklen_t size),
     (family, address, text, size), nullptr, )

CALL(int, close, (int fd), (fd), fail_behind([=] { s_stray_closes += ::close(fd) != 0; }),
     s_stray_closes += result != 0 && errno == EBADF)

// Calls with an argument that may be left out. VARIADIC(plan, name, (fixed parameters), last named, type,
// (arguments), result on failure)
#define VARIADIC(PLAN, NAME, PARAMETERS, LAST, TYPE, ARGUMENTS, FAILURE) \
  static Plan s_##NAME(#NAME);                                           \
  extern "C" int __wrap_##NAME PARAMETERS {                              \
    va_list rest;                                                        \
    va_start(rest, LAST);                                                \
    TYPE argument = va_arg(rest, TYPE);                                  \
    va_end(rest);                                                        \
    return (PLAN).fails() ? FAILURE : ::NAME ARGUMENTS;                  \
  }
VARIADIC(s_open, open, (const char* path, int flags, ...), flags, mode_t, (path, flags, argument), -1)
static Plan s_duplicate("F_DUPFD_CLOEXEC");
VARIADIC(command == F_DUPFD_CLOEXEC ? s_duplicate : s_fcntl, fcntl, (int fd, int command, ...), command, long,
         (fd, command, argument), -1)
VARIADIC(s_ioctl, ioctl, (int fd, unsigned long request, ...), request, void*, (fd, request, argument),
         errno != faults::kShort ? -1
         : request == TIOCOUTQ   ? (*static_cast<int*>(argument) = 1, 0)
                                 : ::ioctl(fd, request, argument))

static Plan s_write("write");
extern "C" ssize_t __wrap_write(int fd, const void* data, size_t size) {
  const auto write_some = [=](size_t some) { return ::write(fd, data, some); };
  if (s_write.fails()) return fail_transfer(size / 2, write_some);
  return faults::on_write ? faults::on_write(fd, static_cast<const char*>(data), size) : write_some(size);
}

// ---- Processes and time
CALL(int, system, (const char* command), (command), errno == faults::kEnd ? 127 << 8 : -1, )
CALL(tm*, localtime_r, (const time_t* time, tm* broken_down), (time, broken_down), nullptr, )
static Plan s_clock("clock_gettime");
extern "C" bool __wrap__ZN4brio15clock_monotonicEP8timespec(timespec* now) {
  return !s_clock.fails() && brio::clock_monotonic(now);
}

// ---- libcrypto
CALL(EVP_MD_CTX*, EVP_MD_CTX_new, (), (), nullptr, s_digest += result != nullptr)
UNDO(EVP_MD_CTX_free, (EVP_MD_CTX * context), (context), s_digest -= context != nullptr)
CALL(const EVP_MD*, EVP_md5, (), (), nullptr, )
CALL(int, EVP_DigestInit, (EVP_MD_CTX * context, const EVP_MD* method), (context, method), 0, )
CALL(int, EVP_DigestUpdate, (EVP_MD_CTX * context, const void* data, size_t size), (context, data, size), 0, )
CALL(int, EVP_DigestFinal, (EVP_MD_CTX * context, unsigned char* digest, unsigned* size),
     (context, digest, size), 0, )

// ---- IPC. An error is the service's status.
CALL(void*, NipcOpen, (const char* service), (service), nullptr, s_connection += result != nullptr)
CALL(uint32_t, NipcClose, (void* handle), (handle),
     static_cast<uint32_t>(fail_behind([=] { ::NipcClose(handle); }, errno)), s_connection--)
CALL(uint32_t, NipcGetStringProperty, (void* handle, const char* service, const char* property, char** value),
     (handle, service, property, value), static_cast<uint32_t>(errno), s_text += *value != nullptr)
UNDO(NipcFreeString, (char* value), (value), s_text -= value != nullptr)
CALL(const char*, NipcGetEventName, (const void* event), (event), nullptr, )
CALL(const char*, NipcGetEventSource, (const void* event), (event), nullptr, )

void faults::fail(const std::string& call, int error, long skip, long times) {
  Plan& its = plan(call);
  its.times = 0;
  its.error = error;
  its.skip = skip;
  its.since = 0;
  its.fired = 0;
  its.times = times;
}

std::optional<int> faults::error_number(const std::string& text) {
  if (text == "short") return kShort;
  if (text == "end") return kEnd;
  constexpr int kLast = 133;
  for (int error = 0; error <= kLast; error++) {
    const char* name = strerrorname_np(error);
    if (name != nullptr && text == name) return error;
  }
  char* end = nullptr;
  const long number = strtol(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0') return std::nullopt;
  return static_cast<int>(number);
}

void faults::on_fault(void (*hook)()) {
  s_hook = hook;
}

void faults::stop() {
  s_hook = nullptr;
  for (Plan* each = Plan::s_first; each != nullptr; each = each->next) each->times = 0;
}

long faults::calls(const std::string& call) {
  return plan(call).calls;
}

long faults::fired(const std::string& call) {
  return plan(call).fired;
}

std::set<std::string> faults::names() {
  std::set<std::string> all;
  for (Plan* each = Plan::s_first; each != nullptr; each = each->next) all.insert(each->name);
  return all;
}

std::string faults::held() {
  std::string text;
  for (size_t i = 0; i < std::size(s_held); i++) {
    if (s_held[i] == 0) continue;
    text += std::string(text.empty() ? "" : " ") + kHeld[i] + "=" + std::to_string(s_held[i]);
  }
  return text;
}

long faults::stray_closes() {
  return s_stray_closes.exchange(0);
}
