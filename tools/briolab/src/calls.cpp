#include "lab/calls.h"

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
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "nipc/nipc.h"

namespace {

std::atomic<void (*)()> s_hook;

// One call's plan and counts. Changed while no call of the kind is under way, but for the counts.
struct Plan {
  explicit Plan(const char* its_name) : name(its_name), next(s_first) { s_first = this; }
  // Counts the call. Whether it shall fail, with errno set.
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

Plan* find(const std::string& call) {
  Plan* plan = Plan::s_first;
  while (plan != nullptr && call != plan->name) plan = plan->next;
  return plan;
}

Plan& plan(const std::string& call) {
  Plan* found = find(call);
  if (found == nullptr) fprintf(stderr, "faults: %s is not replaced\n", call.c_str()), abort();
  return *found;
}

std::atomic<long> s_heap, s_stream, s_thread, s_lock, s_mutex, s_condition, s_attributes, s_digest,
    s_connection, s_text;
std::atomic<long> s_stray_closes;

}  // namespace

// CALL(return type, name, (parameters), (arguments), result on failure, what is done with `result`)
#define CALL(TYPE, NAME, PARAMETERS, ARGUMENTS, FAILURE, BEHIND)        \
  extern "C" TYPE __real_##NAME PARAMETERS;                             \
  static Plan s_##NAME(#NAME);                                          \
  extern "C" TYPE __wrap_##NAME PARAMETERS {                            \
    TYPE result = s_##NAME.fails() ? FAILURE : __real_##NAME ARGUMENTS; \
    BEHIND;                                                             \
    return result;                                                      \
  }
// UNDO(name, (parameters), (arguments), what is counted down)
#define UNDO(NAME, PARAMETERS, ARGUMENTS, COUNT) \
  extern "C" void __real_##NAME PARAMETERS;      \
  extern "C" void __wrap_##NAME PARAMETERS {     \
    COUNT;                                       \
    __real_##NAME ARGUMENTS;                     \
  }
using Void = void*;
using Text = char*;
using ConstText = const char*;
using Time = tm*;
using Digest = EVP_MD_CTX*;
using Method = const EVP_MD*;

// ---- Memory
CALL(Void, malloc, (size_t size), (size), nullptr, s_heap += result != nullptr)
CALL(Void, calloc, (size_t count, size_t size), (count, size), nullptr, s_heap += result != nullptr)
CALL(Text, strdup, (const char* text), (text), nullptr, s_heap += result != nullptr)
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
     errno == faults::kShort ? __real_read(fd, data, std::min<size_t>(size, 3))
     : errno == faults::kEnd ? 0
                             : -1, )
CALL(ssize_t, send, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags),
     errno == faults::kShort ? __real_send(fd, data, size / 2, flags) : -1, )
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
CALL(int, fstat, (int fd, struct stat* facts), (fd, facts), -1, )
CALL(int, fchmod, (int fd, mode_t mode), (fd, mode), -1, )
CALL(ConstText, inet_ntop, (int family, const void* address, char* text, socklen_t size),
     (family, address, text, size), nullptr, )

// Calls with an argument that may be left out. VARIADIC(name, (fixed parameters), (fixed arguments), last
// named, type)
#define VARIADIC(NAME, PARAMETERS, ARGUMENTS, TYPE, LAST)   \
  extern "C" int __real_##NAME PARAMETERS;                  \
  static Plan s_##NAME(#NAME);                              \
  extern "C" int __wrap_##NAME PARAMETERS {                 \
    va_list rest;                                           \
    va_start(rest, LAST);                                   \
    const TYPE argument = va_arg(rest, TYPE);               \
    va_end(rest);                                           \
    return s_##NAME.fails() ? -1 : __real_##NAME ARGUMENTS; \
  }
VARIADIC(open, (const char* path, int flags, ...), (path, flags, argument), mode_t, flags)
VARIADIC(ioctl, (int fd, unsigned long request, ...), (fd, request, argument), void*, request)

extern "C" int __real_fcntl(int fd, int command, ...);
static Plan s_fcntl("fcntl"), s_duplicate("F_DUPFD_CLOEXEC");
extern "C" int __wrap_fcntl(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const long argument = va_arg(rest, long);
  va_end(rest);
  Plan& plan = command == F_DUPFD_CLOEXEC ? s_duplicate : s_fcntl;
  return plan.fails() ? -1 : __real_fcntl(fd, command, argument);
}

extern "C" ssize_t __real_write(int fd, const void* data, size_t size);
static Plan s_write("write");
extern "C" ssize_t __wrap_write(int fd, const void* data, size_t size) {
  if (s_write.fails()) {
    return errno == faults::kShort ? __real_write(fd, data, size / 2) : errno == faults::kEnd ? 0 : -1;
  }
  return faults::on_write ? faults::on_write(fd, static_cast<const char*>(data), size)
                          : __real_write(fd, data, size);
}
ssize_t faults::real_write(int fd, const void* data, size_t size) {
  return __real_write(fd, data, size);
}

extern "C" int __real_close(int fd);
static Plan s_close("close");
extern "C" int __wrap_close(int fd) {
  const bool fails = s_close.fails();
  const int error = errno;
  const int result = __real_close(fd);
  if (result != 0 && errno == EBADF) s_stray_closes++;
  if (!fails) return result;
  errno = error;
  return -1;
}

// ---- Streams. They read through here, so that a failing read is the stream's own.
static Plan s_fread("fread");
static ssize_t read_stream(void* cookie, char* data, size_t size) {
  const int fd = static_cast<int>(reinterpret_cast<intptr_t>(cookie));
  if (!s_fread.fails()) return __real_read(fd, data, size);
  return errno == faults::kShort ? __real_read(fd, data, std::min<size_t>(size, 3))
         : errno == faults::kEnd ? 0
                                 : -1;
}
static int close_stream(void* cookie) {
  return __real_close(static_cast<int>(reinterpret_cast<intptr_t>(cookie)));
}
static Plan s_fdopen("fdopen");
extern "C" FILE* __real_fdopen(int fd, const char* mode);
extern "C" FILE* __wrap_fdopen(int fd, const char* mode) {
  // The product only reads; coverage counts are written.
  if (strcmp(mode, "r") != 0) return __real_fdopen(fd, mode);
  if (s_fdopen.fails()) return nullptr;
  FILE* stream = fopencookie(reinterpret_cast<void*>(static_cast<intptr_t>(fd)), mode,
                             {read_stream, nullptr, nullptr, close_stream});
  s_stream += stream != nullptr;
  return stream;
}
extern "C" int __real_fclose(FILE* stream);
static Plan s_fclose("fclose");
extern "C" int __wrap_fclose(FILE* stream) {
  const bool fails = s_fclose.fails();
  const int error = errno;
  s_stream--;
  const int result = __real_fclose(stream);
  if (!fails) return result;
  errno = error;
  return EOF;
}

// ---- Processes and time
CALL(int, system, (const char* command), (command), errno == faults::kEnd ? 127 << 8 : -1, )
CALL(Time, localtime_r, (const time_t* time, tm* broken_down), (time, broken_down), nullptr, )
extern "C" bool __real__ZN4brio15clock_monotonicEP8timespec(timespec* now);
static Plan s_clock("clock_gettime");
extern "C" bool __wrap__ZN4brio15clock_monotonicEP8timespec(timespec* now) {
  return !s_clock.fails() && __real__ZN4brio15clock_monotonicEP8timespec(now);
}

// ---- libcrypto
CALL(Digest, EVP_MD_CTX_new, (), (), nullptr, s_digest += result != nullptr)
UNDO(EVP_MD_CTX_free, (EVP_MD_CTX * context), (context), s_digest -= context != nullptr)
CALL(Method, EVP_md5, (), (), nullptr, )
CALL(int, EVP_DigestInit, (EVP_MD_CTX * context, const EVP_MD* method), (context, method), 0, )
CALL(int, EVP_DigestUpdate, (EVP_MD_CTX * context, const void* data, size_t size), (context, data, size), 0, )
CALL(int, EVP_DigestFinal, (EVP_MD_CTX * context, unsigned char* digest, unsigned* size),
     (context, digest, size), 0, )

// ---- IPC. An error is the service's status.
CALL(Void, NipcOpen, (const char* service), (service), nullptr, s_connection += result != nullptr)
CALL(uint32_t, NipcClose, (void* handle), (handle), (__real_NipcClose(handle), static_cast<uint32_t>(errno)),
     s_connection--)
CALL(uint32_t, NipcGetStringProperty, (void* handle, const char* service, const char* property, char** value),
     (handle, service, property, value), static_cast<uint32_t>(errno), s_text += result == 0)
UNDO(NipcFreeString, (char* value), (value), s_text -= value != nullptr)
CALL(ConstText, NipcGetEventName, (const void* event), (event), nullptr, )
CALL(ConstText, NipcGetEventSource, (const void* event), (event), nullptr, )

void faults::fail(const std::string& call, int error, long skip, long times) {
  Plan& its = plan(call);
  its.times = 0;
  its.error = error;
  its.skip = skip;
  its.since = 0;
  its.fired = 0;
  its.times = times;
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

bool faults::known(const std::string& call) {
  return find(call) != nullptr;
}

std::string faults::held() {
  const std::pair<const char*, long> all[] = {{"heap", s_heap},
                                              {"stream", s_stream},
                                              {"thread", s_thread},
                                              {"lock", s_lock},
                                              {"mutex", s_mutex},
                                              {"condition", s_condition},
                                              {"attributes", s_attributes},
                                              {"digest", s_digest},
                                              {"connection", s_connection},
                                              {"text", s_text}};
  std::string text;
  for (const auto& [name, count] : all) {
    if (count != 0) text += std::string(text.empty() ? "" : " ") + name + "=" + std::to_string(count);
  }
  return text;
}

long faults::stray_closes() {
  return s_stray_closes.exchange(0);
}
