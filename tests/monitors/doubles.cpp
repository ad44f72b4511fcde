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

}  // extern "C"

namespace doubles {

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
  faults::on_write = nullptr;
  faults::stop();
  test_clock::reset();
  log_capture::clear();
  brio_set_root_dir(root_.dir().c_str());
  std::thread([] {}).join();  // ThreadSanitizer starts a thread of its own beside the first one
}

void MonitorTest::TearDown() {
  brio_set_root_dir(nullptr);
}

void MonitorTest::count_what_is_open() {
  descriptors_ = process::descriptors();
  threads_ = process::threads();
}

void MonitorTest::expect_nothing_left() const {
  EXPECT_LE(process::settled_threads(threads_), threads_);
  EXPECT_EQ(descriptors_, process::descriptors());
}
