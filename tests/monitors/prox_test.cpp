#include "brio/prox.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "brio/brio.h"
#include "brio/wabs.h"
#include "monitors/doubles.h"
#include "support/log_capture.h"
#include "support/sim_fixture.h"
#include "support/test_clock.h"

namespace {

using Texts = std::vector<std::string>;
using Commands = std::vector<uint32_t>;

const std::string kSensor = "/sys/devices/virtual/proximity/proximity0/";

int32_t sar_mode() {
  return __atomic_load_n(&g_pre_sar_mode, __ATOMIC_RELAXED);
}

std::string hexadecimal(int value) {
  char text[16];
  snprintf(text, sizeof(text), "%x\n", value);
  return text;
}

// A sensor directory with a healthy sensor, nothing near, on a device of carrier 202.
class ProxMonitor : public ::testing::Test {
 protected:
  void SetUp() override {
    test_clock::reset();
    test_clock::manual_select(true);
    log_capture::clear();
    doubles::reset();
    doubles::set_carrier(202);
    brio_set_root_dir(root_.dir().c_str());
    wabs_set_log_mask(WABS_LOG_VALUE | WABS_LOG_NOTICE | WABS_LOG_ERROR);
    for (const char* name : {"prox_ctrl0", "sensor_sel"}) entry(name, "");
    sensor(0, 2000);
    entry("prox_offset", "e74\n");  // 3700
    entry("prox_use", "2710\n");    // 10000
    descriptors_ = open_descriptors();
    std::thread([] {}).join();  // ThreadSanitizer starts a thread of its own beside the first one
    threads_ = thread_count();
  }
  void TearDown() override { brio_set_root_dir(nullptr); }

  void entry(const std::string& name, const std::string& text) { root_.write(kSensor + name, text); }
  void drop(const std::string& name) { root_.remove(kSensor + name); }
  void sensor(int diff, int average) {
    entry("prox_diff", hexadecimal(diff & 0x1FFF));
    entry("prox_avg", hexadecimal(average));
  }
  // Every write fails with ENOSPC.
  void break_writes(const std::string& name) {
    drop(name);
    ASSERT_EQ(symlink("/dev/full", root_.path(kSensor + name).c_str()), 0);
  }
  void mend(const std::string& name) {
    drop(name);
    entry(name, "");
  }
  void poll(int times = 1) {
    for (int i = 0; i < times; i++) ASSERT_TRUE(test_clock::tick());
  }
  static size_t polls() {
    Texts writes = doubles::sensor_writes();
    return static_cast<size_t>(std::count(writes.begin(), writes.end(), "sensor_sel=1"));
  }
  static Texts control_writes() {
    Texts texts;
    for (const std::string& text : doubles::sensor_writes()) {
      if (text.compare(0, 11, "prox_ctrl0=") == 0) texts.push_back(text.substr(11));
    }
    return texts;
  }
  void expect_nothing_left() {
    EXPECT_TRUE(wait_thread_count(threads_));
    EXPECT_EQ(open_descriptors(), descriptors_);
  }

  DeviceRoot root_;
  size_t descriptors_ = 0;
  size_t threads_ = 0;
};

TEST_F(ProxMonitor, OneHour) {
  timespec before;
  clock_gettime(CLOCK_MONOTONIC, &before);
  ASSERT_EQ(prox_open(), 0u);
  EXPECT_EQ(sar_mode(), BRIO_SAR_INIT);
  EXPECT_EQ(log_capture::count("I proxlib:prox init::prox sensor is enabled with scan cycle 0x77"), 1u);
  EXPECT_EQ(log_capture::count("D proxlib:opened (prox_open:prox:"), 1u);
  double seconds = 0;

  // INIT: the first minute. A drop of the average by exactly 1000 is not enough.
  poll(10);
  sensor(43, 1000);
  poll();
  EXPECT_EQ(sar_mode(), BRIO_SAR_INIT);
  EXPECT_EQ(control_writes(), Texts{"77"});
  sensor(43, 2001);
  poll();
  sensor(43, 1000);
  poll();
  seconds += 13 * 5;
  EXPECT_EQ(sar_mode(), BRIO_SAR_OFF);
  EXPECT_EQ(doubles::sar_commands(), Commands{0});
  EXPECT_TRUE(log_capture::has("I proxlib:Diff[43]curAvg[1000]prevAvg[2001]SAR[OFF]INIT->OFF::"));
  EXPECT_EQ(control_writes(), (Texts{"77", "c7"}));

  // A command that fails is tried again at every poll.
  doubles::set_sar_status(4);
  sensor(44, 1000);
  poll(3);
  EXPECT_EQ(sar_mode(), BRIO_SAR_OFF);
  EXPECT_EQ(doubles::sar_commands(), (Commands{0, 1, 1, 1}));
  EXPECT_EQ(log_capture::count("I proxlib:::brio_rc [4]"), 3u);
  doubles::set_sar_status(0);
  poll(2);
  seconds += 5 * 6;
  EXPECT_EQ(sar_mode(), BRIO_SAR_ON);
  EXPECT_EQ(doubles::sar_commands(), (Commands{0, 1, 1, 1, 1}));
  EXPECT_EQ(log_capture::count("I proxlib:SAR set to [1]::"), 1u);
  EXPECT_EQ(log_capture::count("I proxlib:Diff[44]Th[43]SAR[ON]SAR detected::"), 1u);

  // A failing sensor skips polls: first the entry is gone, then it cannot be read, then cannot be written.
  EXPECT_TRUE(test_clock::sleeps().empty());
  sensor(0, 1000);
  drop("prox_diff");
  poll();
  EXPECT_TRUE(log_capture::has("E proxlib:sys entry:name=prox_diff, errno=2:can't open"));
  sensor(0, 1000);
  drop("prox_avg");
  root_.make_directory(kSensor + "prox_avg");
  poll();
  EXPECT_TRUE(log_capture::has("E proxlib:sys entry:name=prox_avg, errno=21:can't read"));
  EXPECT_EQ(test_clock::sleeps(), (std::vector<unsigned>{300, 300, 300}));
  drop("prox_avg");
  sensor(0, 1000);
  break_writes("sensor_sel");
  poll();
  EXPECT_TRUE(log_capture::has("E proxlib:sys entry:name=sensor_sel,errno=28:can't write the sys entry"));
  mend("sensor_sel");
  seconds += 3 * 6 + test_clock::sleeps().size() * 0.3;
  EXPECT_EQ(sar_mode(), BRIO_SAR_ON);
  poll();
  seconds += 6;
  EXPECT_EQ(sar_mode(), BRIO_SAR_OFF);
  EXPECT_EQ(log_capture::count("I proxlib:Diff[0]Th[43]SAR[OFF]SAR released::"), 1u);

  // The rest of the hour: somebody comes and goes, a minute each.
  Commands expected = doubles::sar_commands();
  bool near = false;
  while (seconds < 3600) {
    near = !near;
    sensor(near ? 4095 : -4096, 1000);
    poll(10);
    seconds += 60;
    expected.push_back(near ? 1 : 0);
    ASSERT_EQ(sar_mode(), near ? BRIO_SAR_ON : BRIO_SAR_OFF);
  }
  EXPECT_EQ(doubles::sar_commands(), expected);
  EXPECT_EQ(log_capture::count("2min timer"), 0u) << "slow polls are not counted";
  EXPECT_EQ(log_capture::count("D proxlib:Offset[3700]Useful[10000]SAR[INIT] (prv_log_readings:prox:"), 1u);
  EXPECT_EQ(doubles::carrier_questions(), 1u);

  prox_close();
  EXPECT_EQ(control_writes(), (Texts{"77", "c7", "70"}));
  EXPECT_TRUE(log_capture::has("I proxlib:Monitor thread::Graceful thread exit"));
  EXPECT_TRUE(log_capture::has("I proxlib:prox_close::Thread join completed successfully"));
  EXPECT_TRUE(log_capture::has("D proxlib:closed successfully (prox_close:prox:"));
  expect_nothing_left();
}

TEST_F(ProxMonitor, BadCalibrationDisablesControlForTheProcess) {
  entry("prox_offset", "e75\n");  // 3701
  sensor(100, 2000);
  ASSERT_EQ(prox_open(), 0u);
  drop("prox_use");
  poll();
  EXPECT_EQ(log_capture::count("Disabling SAR"), 0u) << "not examined before both could be read";
  entry("prox_use", "0");
  poll(3);
  EXPECT_EQ(log_capture::count(
                "I proxlib:Offset[3701]Useful[0]OffsetTh[3700]UsefulTh[10000]SAR[INIT]::Disabling SAR"),
            1u);
  EXPECT_EQ(polls(), 4u) << "the sensor is read all the same";
  EXPECT_EQ(log_capture::count("D proxlib:Diff["), 1u);
  EXPECT_EQ(sar_mode(), BRIO_SAR_INIT);
  prox_close();

  entry("prox_offset", "0");
  ASSERT_EQ(prox_open(), 0u);
  poll(600);
  EXPECT_EQ(sar_mode(), BRIO_SAR_INIT);
  EXPECT_TRUE(doubles::sar_commands().empty());
  EXPECT_EQ(log_capture::count("D proxlib:Offset["), 1u) << "calibration is not read again";
  prox_close();
  expect_nothing_left();
}

TEST_F(ProxMonitor, InitTurnsOnWithoutCommandAndSlowsDown) {
  sensor(44, 2000);
  ASSERT_EQ(prox_open(), 0u);
  poll();
  EXPECT_EQ(sar_mode(), BRIO_SAR_ON);
  EXPECT_TRUE(doubles::sar_commands().empty());
  EXPECT_TRUE(log_capture::has("I proxlib:Diff[44]curAvg[2000]prevAvg[0]AvgTx[1000]SAR[ON]INIT->ON::"));
  EXPECT_EQ(control_writes(), (Texts{"77", "c7"}));
  sensor(43, 2000);
  poll();
  EXPECT_EQ(doubles::sar_commands(), Commands{0});
  prox_close();
}

TEST_F(ProxMonitor, TimerSlowsDownOnThe25thPollAndOnTheFirstOfTheNextRun) {
  ASSERT_EQ(prox_open(), 0u);
  poll(24);
  EXPECT_EQ(control_writes(), Texts{"77"});
  break_writes("prox_ctrl0");
  poll();
  EXPECT_EQ(log_capture::count("I proxlib:::2min timer expired, now using slower scan rate"), 1u);
  EXPECT_EQ(log_capture::count("E proxlib:reg_write:status=4:failed to enable prox"), 1u);
  EXPECT_EQ(polls(), 25u) << "the poll goes on";
  mend("prox_ctrl0");
  poll(30);
  EXPECT_EQ(log_capture::count("2min timer"), 1u);
  prox_close();

  ASSERT_EQ(prox_open(), 0u);
  poll();
  EXPECT_EQ(log_capture::count("2min timer"), 2u);
  EXPECT_EQ(control_writes(), (Texts{"77", "70", "77", "c7"}));

  // Leaving INIT switches again, and says so when that fails; the mode has changed all the same.
  drop("prox_ctrl0");
  sensor(44, 2000);
  poll();
  EXPECT_TRUE(log_capture::has("E proxlib:reg_write:status=3:failed to change scan period"));
  EXPECT_EQ(sar_mode(), BRIO_SAR_ON);
  mend("prox_ctrl0");
  prox_close();
  expect_nothing_left();
}

TEST_F(ProxMonitor, CommandsAreSentForSarCarriersOnly) {
  struct Step {
    uint16_t carrier;
    uint32_t status;
    bool asked, sent;
  } steps[] = {
      {202, 1, true, false},  // the question fails: still unknown
      {0xFFFF, 0, true, false},
      {216, 0, true, true},
      {201, 0, false, true},  // known by now
  };
  sensor(44, 2000);
  ASSERT_EQ(prox_open(), 0u);
  poll();
  bool near = true;
  for (const Step& step : steps) {
    doubles::set_carrier(step.carrier, step.status);
    unsigned asked = doubles::carrier_questions();
    size_t sent = doubles::sar_commands().size();
    near = !near;
    sensor(near ? 44 : 43, 2000);
    poll();
    EXPECT_EQ(sar_mode(), near ? BRIO_SAR_ON : BRIO_SAR_OFF) << step.carrier;
    EXPECT_EQ(doubles::carrier_questions() - asked, step.asked ? 1u : 0u) << step.carrier;
    EXPECT_EQ(doubles::sar_commands().size() - sent, step.sent ? 1u : 0u) << step.carrier;
  }
  EXPECT_EQ(log_capture::count("SAR released::"), 2u) << "also where nothing was sent";
  prox_close();
}

TEST_F(ProxMonitor, NoCommandOnOtherCarriers) {
  doubles::set_carrier(201);
  sensor(44, 2000);
  ASSERT_EQ(prox_open(), 0u);
  poll();
  sensor(43, 2000);
  poll();
  sensor(44, 2000);
  poll();
  EXPECT_EQ(sar_mode(), BRIO_SAR_ON);
  EXPECT_TRUE(doubles::sar_commands().empty());
  EXPECT_EQ(doubles::carrier_questions(), 1u);
  prox_close();
}

TEST_F(ProxMonitor, SensorTexts) {
  struct Case {
    std::string text;
    int diff;
    int error;  // when it cannot be read
  } cases[] = {{"2b", 43, 0},
               {"2B\n", 43, 0},
               {"0x2c\n", 44, 0},
               {"  7\n", 7, 0},
               {"1fff", -1, 0},
               {"1000\n", -4096, 0},
               {"0000fff", 4095, 0},
               {"0000fffff", 4095, 0},
               {"5 junk", 5, 0},
               {"", 0, ENODATA},
               {"\n", 0, EINVAL},
               {"zz\n", 0, EINVAL},
               {std::string("\0002", 2), 0, EINVAL}};
  ASSERT_EQ(prox_open(), 0u);
  for (const Case& c : cases) {
    entry("prox_diff", c.text);
    log_capture::clear();
    poll();
    SCOPED_TRACE(c.text);
    if (c.error == 0) {
      EXPECT_TRUE(log_capture::has("D proxlib:Diff[" + std::to_string(c.diff) + "]Cur_avg[2000]"));
    } else {
      EXPECT_FALSE(log_capture::has("D proxlib:Diff["));
      EXPECT_TRUE(log_capture::has("E proxlib:sys entry:name=prox_diff, errno=" + std::to_string(c.error) +
                                   ":can't read"));
    }
  }
  EXPECT_EQ(test_clock::sleeps().size(), 3u) << "only the empty entry is read again";
  prox_close();
}

TEST_F(ProxMonitor, OpenFailures) {
  drop("prox_ctrl0");
  EXPECT_EQ(prox_open(), 3u);
  EXPECT_TRUE(log_capture::has("E proxlib:reg_write:status=3:failed to enable prox"));
  EXPECT_EQ(log_capture::count("name=prox_ctrl0, errno=2:can't open"), 2u) << "enabled, then disabled";

  break_writes("prox_ctrl0");
  EXPECT_EQ(prox_open(), 3u);
  EXPECT_TRUE(log_capture::has("E proxlib:reg_write:status=4:failed to enable prox"));
  EXPECT_EQ(test_clock::sleeps(), (std::vector<unsigned>{300, 300, 300, 300, 300, 300}));
  mend("prox_ctrl0");

  doubles::fail_socketpair(ENFILE);
  EXPECT_EQ(prox_open(), 5u);
  doubles::fail_socketpair(0);
  EXPECT_TRUE(
      log_capture::has("E proxlib:socketpair:errno=" + std::to_string(ENFILE) + ":can't create socket pair"));

  doubles::fail_pthread_create(EAGAIN);
  EXPECT_EQ(prox_open(), 3u);
  doubles::fail_pthread_create(0);
  EXPECT_TRUE(
      log_capture::has("E proxlib:pthread:status=" + std::to_string(EAGAIN) + ":can't create thread"));

  EXPECT_EQ(control_writes(), (Texts{"77", "70", "77", "70"}));
  expect_nothing_left();
}

TEST_F(ProxMonitor, RefusesDescriptorsThatDoNotFitASet) {
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max < FD_SETSIZE + 64) GTEST_SKIP() << "the descriptor limit is too low here";
  limit.rlim_cur = FD_SETSIZE + 64;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<int> taken;
  // Leaves room for one entry of the sensor below the limit, none for two sockets.
  while (taken.empty() || taken.back() < FD_SETSIZE - 1)
    taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  close(taken.back());
  taken.pop_back();
  EXPECT_EQ(prox_open(), 5u);
  EXPECT_TRUE(
      log_capture::has("E proxlib:socketpair:errno=" + std::to_string(EMFILE) + ":can't create socket pair"));
  for (int fd : taken) close(fd);
  expect_nothing_left();
}

TEST_F(ProxMonitor, CloseAfterTheThreadEndedWithAnError) {
  struct Case {
    bool exception;
    std::string line;
  } cases[] = {{false, "E proxlib:select:errno=5:failed--pausing read thread"},
               {true, "E proxlib:selerr::err on read s_sockets[0]--pausing read thread"}};
  for (const Case& c : cases) {
    log_capture::clear();
    ASSERT_EQ(prox_open(), 0u);
    test_clock::fail_select(EINTR);
    poll();
    EXPECT_FALSE(log_capture::has("Error thread exit")) << "EINTR repeats the wait";
    if (c.exception) {
      test_clock::except_select();
    } else {
      test_clock::fail_select(EIO);
    }
    ASSERT_TRUE(log_capture::wait_for("E proxlib:Monitor thread::Error thread exit"));
    EXPECT_TRUE(log_capture::has(c.line));
    ASSERT_TRUE(wait_thread_count(threads_)) << "the thread closed the sockets on its way out";
    EXPECT_EQ(open_descriptors(), descriptors_);
    prox_close();
    EXPECT_TRUE(log_capture::has("E proxlib:sockpair:errno=9:can't access s_sockets[1]"));
    EXPECT_TRUE(log_capture::has("E proxlib:prox_close:socket FD closed already:calling thread join"));
    EXPECT_TRUE(log_capture::has("I proxlib:prox_close::Thread join completed successfully"));
  }
  expect_nothing_left();
}

// The sensor cannot be disabled while the monitor sends a command: the close returns at once, the thread
// comes back later and must not close what got its numbers meanwhile.
TEST_F(ProxMonitor, CloseAfterAFailedDisableLeavesForeignDescriptorsAlone) {
  sensor(44, 2000);
  ASSERT_EQ(prox_open(), 0u);
  poll();
  doubles::hold_sar(true);
  sensor(43, 2000);
  std::thread ticker([] { test_clock::tick(); });  // returns when the next wait begins
  ASSERT_TRUE(doubles::wait_sar_held());
  drop("prox_ctrl0");
  prox_close();
  EXPECT_TRUE(log_capture::has("E proxlib:reg_write:status=3:failed to disable prox"));
  EXPECT_TRUE(log_capture::has("I proxlib:closing lib::proxlib was NOT closed properly"));
  EXPECT_FALSE(log_capture::has("Thread join"));
  EXPECT_EQ(thread_count(), threads_ + 2) << "it still sends, and the ticker waits";

  std::vector<int> mine;
  for (int i = 0; i < 8; i++) mine.push_back(open("/dev/null", O_RDWR | O_CLOEXEC));
  doubles::hold_sar(false);
  ASSERT_TRUE(log_capture::wait_for("I proxlib:Monitor thread::Graceful thread exit"));
  ticker.join();
  ASSERT_TRUE(wait_thread_count(threads_)) << "it ends by itself";
  for (int fd : mine) EXPECT_EQ(close(fd), 0) << "somebody closed descriptor " << fd;
  EXPECT_EQ(open_descriptors(), descriptors_);

  // The thread is joined by the next close, as is one that ended by itself.
  mend("prox_ctrl0");
  prox_close();
  EXPECT_TRUE(log_capture::has("I proxlib:prox_close::Thread join completed successfully"));
  log_capture::clear();
  prox_close();
  EXPECT_FALSE(log_capture::has("Thread join")) << "there is none any more";
}

TEST_F(ProxMonitor, CloseAfterAFailedDisableWakesTheWaitingThread) {
  ASSERT_EQ(prox_open(), 0u);
  poll();
  drop("prox_ctrl0");
  prox_close();
  ASSERT_TRUE(log_capture::wait_for("I proxlib:Monitor thread::Graceful thread exit"));
  ASSERT_TRUE(wait_thread_count(threads_));
  EXPECT_EQ(open_descriptors(), descriptors_);
  mend("prox_ctrl0");
  ASSERT_EQ(prox_open(), 0u);
  poll();
  prox_close();
  expect_nothing_left();
}

TEST_F(ProxMonitor, OpenWaitsForTheThreadThatCouldNotBeJoined) {
  sensor(44, 2000);
  ASSERT_EQ(prox_open(), 0u);
  poll();
  doubles::hold_sar(true);
  sensor(43, 2000);
  std::thread ticker([] { test_clock::tick(); });
  ASSERT_TRUE(doubles::wait_sar_held());
  doubles::fail_send(EIO);
  prox_close();
  doubles::fail_send(0);
  EXPECT_TRUE(log_capture::has("E proxlib:sockpair:errno=5:can't access s_sockets[1]"));
  EXPECT_TRUE(log_capture::has("I proxlib:closing lib::proxlib was NOT closed properly"));

  log_capture::clear();
  std::thread opener([] { EXPECT_EQ(prox_open(), 0u); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(log_capture::has("prox sensor is enabled")) << "never two monitors at a time";
  doubles::hold_sar(false);
  opener.join();
  ticker.join();
  EXPECT_EQ(sar_mode(), BRIO_SAR_INIT) << "the new run's, not the old command's";
  poll();
  prox_close();
  expect_nothing_left();
}

TEST_F(ProxMonitor, OpenOverARunningMonitorAndManyCyclesLeaveNothing) {
  for (int i = 0; i < 50; i++) {
    ASSERT_EQ(prox_open(), 0u);
    if (i % 5 == 0) continue;  // the next open ends it
    if (i % 2 == 0) poll();
    prox_close();
  }
  expect_nothing_left();
}

TEST_F(ProxMonitor, LinesFollowTheModuleMask) {
  struct Case {
    uint32_t mask;
    bool debug, notice, error;
  } cases[] = {{0, false, false, false},
               {WABS_LOG_VALUE, true, false, false},
               {WABS_LOG_NOTICE, false, true, false},
               {WABS_LOG_ERROR, false, false, true}};
  for (const Case& c : cases) {
    wabs_set_log_mask(c.mask);
    log_capture::clear();
    ASSERT_EQ(prox_open(), 0u);
    drop("prox_diff");
    poll();
    sensor(0, 2000);
    poll();
    prox_close();
    EXPECT_EQ(log_capture::has("D proxlib:"), c.debug) << c.mask;
    EXPECT_EQ(log_capture::has("I proxlib:"), c.notice) << c.mask;
    EXPECT_EQ(log_capture::has("E proxlib:"), c.error) << c.mask;
    for (const log_capture::Line& line : log_capture::lines()) {
      EXPECT_EQ(line.priority, line.text[0] == 'D' ? 7 : line.text[0] == 'I' ? 5 : 3) << line.text;
    }
  }
}

}  // namespace
