#include "support/sim_fixture.h"

#include "base/relaxed.h"
#include "brio/brio.h"

void SimFixture::SetUp() {
  test_clock::reset();
  log_capture::clear();
  brio_set_root_dir(root_.dir().c_str());
  modem_ = std::make_unique<modemsim::Modem>(initial_state());
  ASSERT_TRUE(modem_->start(root_.dir())) << modem_->error();
  descriptors_before_ = process::descriptors();
  threads_before_ = process::threads();
}

void SimFixture::TearDown() {
  close_library();
  modem_.reset();
  brio_set_root_dir(nullptr);
}

void SimFixture::set_log_mask(uint32_t bits) {
  brio::relaxed_store(g_brio_lib_log_mask, bits);
}

bool SimFixture::nothing_left_behind() const {
  return process::eventually([this] {
    return process::descriptors() == descriptors_before_ && process::threads() <= threads_before_;
  });
}
