#include "monitors/doubles.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"

namespace {

std::mutex s_mutex;  // guards the two below
std::condition_variable s_changed;
bool s_hold = false, s_held = false;

// Whether a call fails, with errno set.
bool fails(int error) {
  if (error != 0) errno = error;
  return error != 0;
}

}  // namespace

// The linker gives the product's calls to these.
extern "C" {

uint32_t __wrap_briolib_check_library_status() {
  return 0;
}

uint32_t __wrap_blpkt_atcmd_request_with_callback(const char*, uint32_t, const char*, recv_func, void*,
                                                  uint16_t) {
  return 0;
}

uint32_t __wrap_brio_get_carrier_id(uint16_t* carrier) {
  *carrier = 202;
  return 0;
}

uint32_t __wrap_brio_set_sar_pwr(uint32_t) {
  std::unique_lock<std::mutex> lock(s_mutex);
  s_held = s_hold;
  s_changed.notify_all();
  s_changed.wait(lock, [] { return !s_hold; });
  return 0;
}

ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size) {
  return doubles::on_write ? doubles::on_write(fd, static_cast<const char*>(data), size)
                           : __real_write(fd, data, size);
}

ssize_t __real_read(int fd, void* data, size_t size);
ssize_t __wrap_read(int fd, void* data, size_t size) {
  return isatty(fd) != 0 && fails(doubles::read_error.exchange(0)) ? -1 : __real_read(fd, data, size);
}

ssize_t __real_send(int fd, const void* data, size_t size, int flags);
ssize_t __wrap_send(int fd, const void* data, size_t size, int flags) {
  if (fails(doubles::send_error)) return -1;
  const ssize_t result = __real_send(fd, data, size, flags);
  doubles::sends++;
  return result;
}

int __real_select(int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout);
int __wrap_select(int nfds, fd_set* reads, fd_set* writes, fd_set* excepts, timeval* timeout) {
  if (timeout == nullptr && fails(doubles::select_error.exchange(0))) return -1;
  return __real_select(nfds, reads, writes, excepts, timeout);
}

int __real_socketpair(int domain, int type, int protocol, int sockets[2]);
int __wrap_socketpair(int domain, int type, int protocol, int sockets[2]) {
  return fails(doubles::socketpair_error) ? -1 : __real_socketpair(domain, type, protocol, sockets);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
  return fails(doubles::thread_error) ? errno : __real_pthread_create(thread, attributes, run, argument);
}

}  // extern "C"

namespace doubles {

ssize_t real_write(int fd, const void* data, size_t size) {
  return __real_write(fd, data, size);
}

void hold_sar(bool hold) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_hold = hold;
  s_held = false;
  s_changed.notify_all();
}

bool wait_sar_held() {
  std::unique_lock<std::mutex> lock(s_mutex);
  return s_changed.wait_for(lock, std::chrono::seconds(10), [] { return s_held; });
}

}  // namespace doubles

void MonitorTest::SetUp() {
  doubles::on_write = nullptr;
  doubles::send_error = 0;
  doubles::sends = 0;
  test_clock::reset();
  log_capture::clear();
  brio_set_root_dir(root_.dir().c_str());
  std::thread([] {}).join();  // ThreadSanitizer starts a thread of its own beside the first one
}

void MonitorTest::TearDown() {
  brio_set_root_dir(nullptr);
}

void MonitorTest::count_what_is_open() {
  descriptors_ = open_descriptors();
  threads_ = thread_count();
}

void MonitorTest::expect_nothing_left() const {
  EXPECT_TRUE(wait_thread_count(threads_));
  EXPECT_EQ(descriptors_, open_descriptors());
}
