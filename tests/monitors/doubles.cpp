#include "monitors/doubles.h"

#include <errno.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"

namespace {

std::mutex s_mutex;  // guards everything below but the atomics
std::condition_variable s_changed;
std::vector<std::string> s_requests;
std::vector<std::pair<std::string, uint32_t>> s_request_status;
std::vector<uint32_t> s_sar_commands;
std::vector<std::string> s_sensor_writes;
std::string s_hook_suffix;
doubles::WriteHook s_hook;
bool s_sar_held = false;
unsigned s_sar_waiting = 0;

std::atomic<uint32_t> s_library_status{0};
std::atomic<uint32_t> s_carrier_status{0};
std::atomic<uint16_t> s_carrier{0xFFFF};
std::atomic<unsigned> s_carrier_questions{0};
std::atomic<uint32_t> s_sar_status{0};
std::atomic<int> s_send_error{0}, s_socketpair_error{0}, s_thread_error{0}, s_select_error{0},
    s_read_error{0};
std::atomic<unsigned> s_sends{0};

std::string name_of(int fd) {
  char target[4096];
  ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof(target));
  return std::string(target, length > 0 ? static_cast<size_t>(length) : 0);
}

bool ends_with(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

namespace doubles {

void reset() {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_requests.clear();
  s_request_status.clear();
  s_sar_commands.clear();
  s_sensor_writes.clear();
  s_hook = nullptr;
  s_sar_held = false;
  s_library_status = s_carrier_status = s_sar_status = 0;
  s_carrier = 0xFFFF;
  s_carrier_questions = s_sends = 0;
  s_send_error = s_socketpair_error = s_thread_error = s_select_error = s_read_error = 0;
}

void set_library_status(uint32_t status) {
  s_library_status = status;
}

void set_request_status(const std::string& prefix, uint32_t status) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_request_status.emplace_back(prefix, status);
}

std::vector<std::string> requests() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_requests;
}

void set_carrier(uint16_t carrier, uint32_t status) {
  s_carrier = carrier;
  s_carrier_status = status;
}

unsigned carrier_questions() {
  return s_carrier_questions;
}

void set_sar_status(uint32_t status) {
  s_sar_status = status;
}

std::vector<uint32_t> sar_commands() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_sar_commands;
}

void hold_sar(bool hold) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_sar_held = hold;
  s_changed.notify_all();
}

bool wait_sar_held() {
  std::unique_lock<std::mutex> lock(s_mutex);
  return s_changed.wait_for(lock, std::chrono::seconds(10), [] { return s_sar_waiting > 0; });
}

void fail_send(int error) {
  s_send_error = error;
}

void fail_socketpair(int error) {
  s_socketpair_error = error;
}

void fail_pthread_create(int error) {
  s_thread_error = error;
}

void fail_select_once(int error) {
  s_select_error = error;
}

void fail_tty_read_once(int error) {
  s_read_error = error;
}

void hook_writes(const std::string& suffix, WriteHook hook) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_hook_suffix = suffix;
  s_hook = std::move(hook);
}

unsigned sends() {
  return s_sends;
}

std::vector<std::string> sensor_writes() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_sensor_writes;
}

}  // namespace doubles

// The linker gives the product's calls to these.
extern "C" {

uint32_t __wrap_briolib_check_library_status() {
  return s_library_status;
}

uint32_t __wrap_blpkt_atcmd_request_with_callback(const char* command, uint32_t type, const char*, recv_func,
                                                  void*, uint16_t) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_requests.push_back(std::to_string(type) + ":" + command);
  for (const auto& entry : s_request_status) {
    if (s_requests.back().compare(2, entry.first.size(), entry.first) == 0) return entry.second;
  }
  return 0;
}

uint32_t __wrap_brio_get_carrier_id(uint16_t* out) {
  s_carrier_questions++;
  if (s_carrier_status == 0) *out = s_carrier;
  return s_carrier_status;
}

uint32_t __wrap_brio_set_sar_pwr(uint32_t on) {
  std::unique_lock<std::mutex> lock(s_mutex);
  s_sar_commands.push_back(on);
  s_sar_waiting++;
  s_changed.notify_all();
  s_changed.wait(lock, [] { return !s_sar_held; });
  s_sar_waiting--;
  return s_sar_status;
}

ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __real_send(int fd, const void* data, size_t size, int flags);
int __real_select(int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout);
int __real_socketpair(int domain, int type, int protocol, int sockets[2]);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void*);

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  std::string name = name_of(fd);
  doubles::WriteHook hook;
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    size_t entry = name.find("/proximity0/");
    if (entry != std::string::npos) {
      s_sensor_writes.push_back(name.substr(entry + 12) + "=" +
                                std::string(static_cast<const char*>(data), size));
    }
    if (s_hook && ends_with(name, s_hook_suffix)) hook = s_hook;
  }
  return hook ? hook(fd, data, size) : __real_write(fd, data, size);
}

ssize_t __wrap_read(int fd, void* data, size_t size) {
  if (s_read_error != 0 && isatty(fd)) {
    errno = s_read_error.exchange(0);
    return -1;
  }
  return __real_read(fd, data, size);
}

ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
  if (s_send_error != 0) {
    errno = s_send_error;
    return -1;
  }
  ssize_t result = __real_send(fd, data, size, flags);
  int error = errno;
  s_sends++;
  errno = error;
  return result;
}

int __wrap_select(int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout) {
  if (timeout == nullptr && s_select_error != 0) {
    errno = s_select_error.exchange(0);
    return -1;
  }
  return __real_select(nfds, reads, writes, excepts, timeout);
}

int __wrap_socketpair(int domain, int type, int protocol, int sockets[2]) {
  if (s_socketpair_error != 0) {
    errno = s_socketpair_error;
    return -1;
  }
  return __real_socketpair(domain, type, protocol, sockets);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
  if (s_thread_error != 0) return s_thread_error;
  return __real_pthread_create(thread, attributes, run, argument);
}

}  // extern "C"

namespace doubles {

ssize_t real_write(int fd, const void* data, size_t size) {
  return __real_write(fd, data, size);
}

}  // namespace doubles
