#include "support/sim_fixture.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/words.h"
#include "brio/brio.h"

namespace fs = std::filesystem;

void SimFixture::SetUp() {
  test_clock::reset();
  log_capture::clear();
  brio_set_root_dir(root_.dir().c_str());
  modem_ = std::make_unique<modemsim::Modem>(initial_state());
  ASSERT_TRUE(modem_->start(root_.dir())) << modem_->error();
  descriptors_before_ = open_descriptors();
  threads_before_ = thread_count();
}

void SimFixture::TearDown() {
  close_library();
  modem_.reset();
  brio_set_root_dir(nullptr);
}

void SimFixture::set_log_mask(uint32_t bits) {
  brio::relaxed_store(g_brio_lib_log_mask, bits);
}

namespace {

std::size_t entries(const char* dir) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(dir)) {
    (void)entry;
    count++;
  }
  return count;
}

}  // namespace

std::size_t open_descriptors() {
  return entries("/proc/self/fd") - 1;  // without the one that reads the directory
}

std::size_t thread_count() {
  return entries("/proc/self/task");
}

bool SimFixture::nothing_left_behind() const {
  return eventually(
      [this] { return open_descriptors() == descriptors_before_ && thread_count() <= threads_before_; });
}

bool wait_thread_count(std::size_t count) {
  return eventually([count] { return thread_count() <= count; });
}
