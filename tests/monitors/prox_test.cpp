// The proximity monitor where threads meet and system calls fail. What it decides stands in
// tests/transcripts/prox.
#include "brio/prox.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "brio/brio.h"
#include "brio/wabs.h"
#include "monitors/doubles.h"

namespace {

const std::string kSensor = "/sys/devices/virtual/proximity/proximity0/";

// A healthy sensor with something near.
class Prox : public MonitorTest {
 protected:
  void SetUp() override {
    MonitorTest::SetUp();
    test_clock::manual_select(true);
    wabs_set_log_mask(0xFFFFFFFF);
    for (const char* name : {"prox_ctrl0", "sensor_sel"}) entry(name, "");
    for (const char* name : {"prox_diff", "prox_avg", "prox_offset", "prox_use"}) entry(name, "100");
    count_what_is_open();
  }
  void entry(const std::string& name, const std::string& text) { root_.write(kSensor + name, text); }
  // A monitor that is sending a command, and somebody who waits for its next poll.
  void start_and_hold() {
    ASSERT_EQ(0u, prox_open());
    ASSERT_TRUE(test_clock::tick());
    doubles::hold_sar(true);
    entry("prox_diff", "0");
    ticker_ = std::thread([] { test_clock::tick(); });
    ASSERT_TRUE(doubles::wait_sar_held());
  }
  std::thread ticker_;
};

TEST_F(Prox, CloseAfterTheThreadEndedWithAnError) {
  for (const bool exception : {false, true}) {
    log_capture::clear();
    ASSERT_EQ(0u, prox_open());
    test_clock::fail_select(EINTR);
    ASSERT_TRUE(test_clock::tick()) << "EINTR repeats the wait";
    exception ? test_clock::except_select() : test_clock::fail_select(EIO);
    ASSERT_TRUE(log_capture::wait_for("E proxlib:Monitor thread::Error thread exit"));
    EXPECT_TRUE(log_capture::has(exception ? "E proxlib:selerr::err on read s_sockets[0]--pausing read thread"
                                           : "E proxlib:select:errno=5:failed--pausing read thread"));
    expect_nothing_left();
    prox_close();
    EXPECT_TRUE(log_capture::has("E proxlib:sockpair:errno=9:can't access s_sockets[1]"));
    EXPECT_TRUE(log_capture::has("E proxlib:prox_close:socket FD closed already:calling thread join"));
    EXPECT_TRUE(log_capture::has("I proxlib:prox_close::Thread join completed successfully"));
  }
}

// The sensor cannot be switched off while the monitor sends a command: the close returns at once, and the
// thread, when it comes back, must not close what got its numbers meanwhile.
TEST_F(Prox, CloseAfterAFailedDisableLeavesForeignDescriptorsAlone) {
  start_and_hold();
  root_.remove(kSensor + "prox_ctrl0");
  prox_close();
  EXPECT_TRUE(log_capture::has("E proxlib:reg_write:status=3:failed to disable prox"));
  EXPECT_FALSE(log_capture::has("Thread join"));
  std::vector<int> mine;
  for (int i = 0; i < 8; i++) mine.push_back(open("/dev/null", O_RDWR | O_CLOEXEC));
  doubles::hold_sar(false);
  ASSERT_TRUE(log_capture::wait_for("I proxlib:Monitor thread::Graceful thread exit"));
  ticker_.join();
  EXPECT_LE(process::settled_threads(threads_), threads_) << "it ends by itself";
  for (int fd : mine) EXPECT_EQ(0, close(fd)) << "somebody closed descriptor " << fd;
  expect_nothing_left();
  root_.write(kSensor + "prox_ctrl0", "");
  prox_close();  // joins it
}

TEST_F(Prox, OpenWaitsForTheThreadThatCouldNotBeJoined) {
  start_and_hold();
  faults::fail("send", EIO);
  prox_close();
  EXPECT_TRUE(log_capture::has("E proxlib:sockpair:errno=5:can't access s_sockets[1]"));
  EXPECT_TRUE(log_capture::has("I proxlib:closing lib::proxlib was NOT closed properly"));
  log_capture::clear();
  std::thread opener([] { EXPECT_EQ(0u, prox_open()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(log_capture::has("prox sensor is enabled")) << "never two monitors at a time";
  doubles::hold_sar(false);
  opener.join();
  ticker_.join();
  EXPECT_EQ(BRIO_SAR_INIT, __atomic_load_n(&g_pre_sar_mode, __ATOMIC_RELAXED)) << "not the old command's";
  prox_close();
  expect_nothing_left();
}

// The close switches the sensor off before it waits for the monitor, whose poll may be about to set a scan
// rate.
TEST_F(Prox, SensorStaysOffBehindAPollUnderWay) {
  entry("prox_diff", "0");
  entry("prox_avg", "2000");
  ASSERT_EQ(0u, prox_open());
  ASSERT_TRUE(test_clock::tick());
  entry("prox_avg", "0");
  doubles::hold_sar(true);
  ticker_ = std::thread([] { test_clock::tick(); });
  ASSERT_TRUE(doubles::wait_sar_held());
  std::thread closer(prox_close);
  EXPECT_TRUE(process::eventually([&] { return root_.read(kSensor + "prox_ctrl0") == "70"; }));
  doubles::hold_sar(false);
  closer.join();
  ticker_.join();
  EXPECT_TRUE(log_capture::has("INIT->OFF")) << "it did set a scan rate";
  EXPECT_EQ("70", root_.read(kSensor + "prox_ctrl0"));
}

}  // namespace
