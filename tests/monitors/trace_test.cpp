#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "brio/brio.h"
#include "monitors/doubles.h"
#include "support/log_capture.h"
#include "support/sim_fixture.h"
#include "support/test_clock.h"

namespace {

using Texts = std::vector<std::string>;

constexpr char kFilter[] = "/var/local/wan/debug/trace_filter.cfg";
constexpr char kPrefix[] = "/mnt/us/trace_log";
constexpr time_t kStart = 1772892300;  // 2026-03-07 14:05:00 UTC

const Texts kSwitchOff = {"1:AT+XSYSTRACE=0", "1:AT+TRACE=0"};

std::string random_bytes(size_t size) {
  std::string bytes(size, '\0');
  std::mt19937 random(7);
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// The trace port is a raw pty pair; the test writes what the modem would stream into its master.
class TraceCapture : public ::testing::Test {
 protected:
  void SetUp() override {
    test_clock::reset();
    log_capture::clear();
    doubles::reset();
    setenv("TZ", "EST5", 1);
    tzset();
    test_clock::set_wall(kStart);
    brio_set_root_dir(root_.dir().c_str());
    plug();
    root_.write(kFilter, "# everything\nAT+XSYSTRACE=1\n");
    descriptors_ = open_descriptors();
    std::thread([] {}).join();  // ThreadSanitizer starts a thread of its own beside the first one
    threads_ = thread_count();
  }
  void TearDown() override {
    brio_trace_tst_stop();
    brio_set_root_dir(nullptr);
    close(master_);
  }

  void plug() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master_, 0);
    ASSERT_EQ(grantpt(master_), 0);
    ASSERT_EQ(unlockpt(master_), 0);
    root_.remove("/dev/ttyACM1");
    ASSERT_EQ(symlink(ptsname(master_), root_.path("/dev/ttyACM1").c_str()), 0);
    int slave = open_port();
    termios settings;
    ASSERT_EQ(tcgetattr(slave, &settings), 0);
    cfmakeraw(&settings);
    ASSERT_EQ(tcsetattr(slave, TCSANOW, &settings), 0);
    close(slave);
  }
  int open_port() { return open(root_.path("/dev/ttyACM1").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC); }

  uint32_t start() { return brio_trace_tst_log(kFilter, kPrefix); }
  static std::string file_name(int second = 0) {
    return std::string(kPrefix) + "_2026_3_7_9_5_" + std::to_string(second) + ".istp";
  }
  size_t file_size(int second = 0) {
    struct stat status;
    return stat(root_.path(file_name(second)).c_str(), &status) == 0 ? static_cast<size_t>(status.st_size)
                                                                     : 0;
  }
  void feed(const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      ssize_t count = doubles::real_write(master_, bytes.data() + sent, bytes.size() - sent);
      ASSERT_GT(count, 0);
      sent += static_cast<size_t>(count);
    }
  }
  void expect_nothing_left() {
    EXPECT_TRUE(wait_thread_count(threads_));
    EXPECT_EQ(open_descriptors(), descriptors_);
    int port = open_port();
    EXPECT_EQ(flock(port, LOCK_EX | LOCK_NB), 0) << "the port is still locked";
    close(port);
  }

  DeviceRoot root_;
  int master_ = -1;
  size_t descriptors_ = 0;
  size_t threads_ = 0;
};

TEST_F(TraceCapture, StreamArrivesBitForBit) {
  g_brio_lib_log_mask = BRIO_LOG_CONFIG;
  mode_t mask = umask(022);
  ASSERT_EQ(start(), 0u);
  umask(mask);
  EXPECT_EQ(doubles::requests(), Texts{"1:AT+XSYSTRACE=1"});
  EXPECT_TRUE(log_capture::has(std::string("I blib:briolib/src/brio_trace:")));
  EXPECT_TRUE(log_capture::has(std::string("::name=\"") + kFilter + "\":file detected"));
  EXPECT_TRUE(log_capture::has(":brio_trace_tst_log:name=\"" + file_name() + "\":start to catch tst log"));
  EXPECT_TRUE(log_capture::wait_for(":prv_log_rw_thread(), nfds: "));

  struct stat status;
  ASSERT_EQ(stat(root_.path(file_name()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0444u);
  int port = open_port();
  termios settings;
  ASSERT_EQ(tcgetattr(port, &settings), 0);
  EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B921600));
  EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B921600));
  EXPECT_EQ(settings.c_cflag & (CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
  EXPECT_EQ(settings.c_cc[VMIN], 0);
  EXPECT_EQ(settings.c_cc[VTIME], 0);
  close(port);

  std::string stream = random_bytes(8 << 20);
  feed(stream);
  ASSERT_TRUE(eventually([&] { return file_size() >= stream.size(); }));
  brio_trace_tst_stop();
  EXPECT_TRUE(root_.read(file_name()) == stream);
  EXPECT_TRUE(log_capture::has(":exiting log rw thread"));
  EXPECT_EQ(doubles::requests().size(), 1u) << "stopping sends nothing";
  brio_trace_tst_stop();
  EXPECT_EQ(doubles::sends(), 1u) << "nothing runs any more";
  expect_nothing_left();
}

TEST_F(TraceCapture, StopInFullStreamTakesUnder100Milliseconds) {
  std::atomic<bool> done{false};
  std::thread feeder([&] {
    fcntl(master_, F_SETFL, O_NONBLOCK);
    std::string block = random_bytes(4096);
    while (!done) {
      if (doubles::real_write(master_, block.data(), block.size()) < 0) std::this_thread::yield();
    }
  });
  std::vector<double> latencies;
  for (int second = 0; second < 7; second++) {
    test_clock::set_wall(kStart + second);
    ASSERT_EQ(start(), 0u);
    ASSERT_TRUE(eventually([&] { return file_size(second) > 100000; }));
    auto before = std::chrono::steady_clock::now();
    brio_trace_tst_stop();
    latencies.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count());
  }
  done = true;
  feeder.join();
  std::sort(latencies.begin(), latencies.end());
  EXPECT_LT(latencies[latencies.size() / 2], 0.1);  // the median: the machine may be busy elsewhere once
  expect_nothing_left();
}

// The thread is held inside the write of its first block while more data waits and the stop comes.
TEST_F(TraceCapture, StopWinsOverPendingData) {
  std::mutex mutex;
  std::condition_variable changed;
  bool inside = false, let_go = false;
  doubles::hook_writes(".istp", [&](int fd, const void* data, size_t size) {
    std::unique_lock<std::mutex> lock(mutex);
    inside = true;
    changed.notify_all();
    changed.wait(lock, [&] { return let_go; });
    return doubles::real_write(fd, data, size);
  });
  ASSERT_EQ(start(), 0u);
  feed(random_bytes(3000));
  {
    std::unique_lock<std::mutex> lock(mutex);
    ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(10), [&] { return inside; }));
  }
  feed(random_bytes(500));
  std::thread stopper([] { brio_trace_tst_stop(); });
  ASSERT_TRUE(eventually([] { return doubles::sends() > 0; }));
  {
    std::lock_guard<std::mutex> lock(mutex);
    let_go = true;
    changed.notify_all();
  }
  stopper.join();
  EXPECT_LE(file_size(), 1023u) << "one block, the rest was not touched";
  EXPECT_GT(file_size(), 0u);
  expect_nothing_left();
}

TEST_F(TraceCapture, FilterFiles) {
  struct Case {
    std::string what;
    std::string content;
    uint32_t status;
    Texts requests;
  } cases[] = {
      {"comments only", "# AT+TRACE=1\n\n \t\n\r\n", 4, {}},
      {"empty", "", 4, {}},
      {"several, any case, trailing text, no last line end",
       "at+trace=1\r\n \tAT+XSYSTRACE=1,\"a\" rest\n#\nAT+TRACE=2",
       0,
       {"1:at+trace=1", "1:AT+XSYSTRACE=1,\"a\"", "1:AT+TRACE=2"}},
      {"invalid", "AT+TRACE=1\nAT+FOO=1\nAT+TRACE=2\n", 6, {"1:AT+TRACE=1", kSwitchOff[0], kSwitchOff[1]}},
      {"modem refuses", "AT+TRACE=bad\nAT+TRACE=2\n", 2, {"1:AT+TRACE=bad", kSwitchOff[0], kSwitchOff[1]}},
      {"modem is silent",
       "AT+TRACE=1\nAT+TRACE=slow\n",
       1,
       {"1:AT+TRACE=1", "1:AT+TRACE=slow", kSwitchOff[0], kSwitchOff[1]}},
      {"one line of 1 MiB", std::string(1 << 20, 'x'), 6, kSwitchOff},
      {"binary", random_bytes(5000), 6, kSwitchOff},
      {"NUL in a command", std::string("AT+TRACE=1\0\n", 12), 6, kSwitchOff},
      {"long comment, then a command", "#" + std::string(70000, '#') + "\nAT+TRACE=1\n", 0, {"1:AT+TRACE=1"}},
  };
  doubles::set_request_status("AT+TRACE=bad", 2);
  doubles::set_request_status("AT+TRACE=slow", 1);
  doubles::set_request_status("AT+XSYSTRACE=0", 2);  // ignored
  time_t now = kStart;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    test_clock::set_wall(++now);
    root_.write(kFilter, c.content);
    log_capture::clear();
    size_t before = doubles::requests().size();
    EXPECT_EQ(start(), c.status);
    Texts requests = doubles::requests();
    EXPECT_EQ(Texts(requests.begin() + static_cast<ptrdiff_t>(before), requests.end()), c.requests);
    EXPECT_TRUE(log_capture::has("file detected"));
    EXPECT_EQ(log_capture::has("E blib:briolib/src/brio_trace"), c.status != 0 && c.status != 4);
    EXPECT_EQ(log_capture::has("brio_send_filter_to_tst:Invalid filter format:"), c.status == 6);
    EXPECT_EQ(log_capture::has("brio_send_filter_to_tst:error sending filter:"),
              c.status == 1 || c.status == 2);
    EXPECT_EQ(thread_count(), c.status == 0 ? threads_ + 1 : threads_);
    brio_trace_tst_stop();
    EXPECT_TRUE(wait_thread_count(threads_));
  }
  expect_nothing_left();
}

TEST_F(TraceCapture, WithoutFilterTheModemsTraceIsSwitchedOff) {
  root_.remove(kFilter);
  EXPECT_EQ(start(), 7u);
  EXPECT_EQ(doubles::requests(), kSwitchOff);
  EXPECT_TRUE(log_capture::has(std::string("trace log filter file (") + kFilter +
                               ") does not exist:disable trace log"));

  EXPECT_EQ(brio_trace_tst_log(nullptr, kPrefix), 0u);
  EXPECT_EQ(doubles::requests().size(), 4u);

  root_.make_directory(kFilter);
  EXPECT_EQ(start(), 4u) << "a directory holds no command";
  root_.remove(kFilter);

  root_.write(kFilter, "AT+TRACE=1\n");
  EXPECT_EQ(brio_trace_tst_log(kFilter, nullptr), 0u);
  EXPECT_EQ(doubles::requests().back(), "1:AT+TRACE=1");

  doubles::set_library_status(1);
  EXPECT_EQ(start(), 1u);
  EXPECT_EQ(doubles::requests().size(), 5u);
  EXPECT_EQ(file_size(), 0u);
  EXPECT_FALSE(root_.exists(file_name()));
  brio_trace_tst_stop();
  EXPECT_EQ(doubles::sends(), 0u);
  expect_nothing_left();
}

TEST_F(TraceCapture, PortFailures) {
  int other = open_port();
  ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(start(), 3u);
  EXPECT_TRUE(log_capture::has("brio_read_log_from_tst:port=\"/dev/ttyACM1\":locked by other process"));
  EXPECT_FALSE(root_.exists(file_name()));
  close(other);
  expect_nothing_left();

  root_.remove("/dev/ttyACM1");
  EXPECT_EQ(start(), 3u);
  EXPECT_TRUE(log_capture::has("brio_read_log_from_tst:port=\"/dev/ttyACM1\":can't open debug port"));
}

TEST_F(TraceCapture, OthersCannotLockThePortMeanwhile) {
  ASSERT_EQ(start(), 0u);
  int other = open_port();
  EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0);
  brio_trace_tst_stop();
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  close(other);
}

TEST_F(TraceCapture, TraceFileIsAlwaysNew) {
  root_.write(file_name(), "earlier");
  EXPECT_EQ(start(), 3u);
  EXPECT_TRUE(log_capture::has("brio_read_log_from_tst:log=\"" + file_name() + "\":can't open log file"));
  EXPECT_EQ(root_.read(file_name()), "earlier");
  expect_nothing_left();

  root_.remove(file_name());
  root_.write("/var/run/target", "precious");
  ASSERT_EQ(symlink(root_.path("/var/run/target").c_str(), root_.path(file_name()).c_str()), 0);
  EXPECT_EQ(start(), 3u);
  EXPECT_EQ(root_.read("/var/run/target"), "precious");

  EXPECT_EQ(brio_trace_tst_log(kFilter, "/mnt/nowhere/trace_log"), 3u);
  expect_nothing_left();
}

TEST_F(TraceCapture, StartFailures) {
  doubles::fail_socketpair(ENFILE);
  EXPECT_EQ(start(), 4u);
  EXPECT_TRUE(log_capture::has("brio_read_log_from_tst:errno=" + std::to_string(ENFILE) +
                               ":can't create socket pair"));
  doubles::fail_socketpair(0);
  expect_nothing_left();

  test_clock::set_wall(kStart + 1);
  doubles::fail_pthread_create(EAGAIN);
  EXPECT_EQ(start(), 4u);
  EXPECT_TRUE(
      log_capture::has("brio_read_log_from_tst:err=" + std::to_string(EAGAIN) + ":cant create thread"));
  doubles::fail_pthread_create(0);
  brio_trace_tst_stop();
  EXPECT_EQ(doubles::sends(), 0u);
  expect_nothing_left();
}

TEST_F(TraceCapture, RefusesDescriptorsThatDoNotFitASet) {
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_max < FD_SETSIZE + 64) GTEST_SKIP() << "the descriptor limit is too low here";
  limit.rlim_cur = FD_SETSIZE + 64;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<int> taken;
  while (taken.empty() || taken.back() < FD_SETSIZE - 1)
    taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  doubles::hook_writes("", nullptr);
  // The filter file closes its descriptor again, so the port is the first that does not fit.
  EXPECT_EQ(start(), 3u);
  EXPECT_TRUE(log_capture::has("can't open debug port"));
  close(taken.back());
  taken.pop_back();
  EXPECT_EQ(start(), 4u) << "the port fits, the sockets do not";
  EXPECT_TRUE(log_capture::has("errno=" + std::to_string(EMFILE) + ":can't create socket pair"));
  for (int fd : taken) close(fd);
  expect_nothing_left();
}

TEST_F(TraceCapture, PartialAndInterruptedWritesLoseNothing) {
  std::atomic<unsigned> calls{0};
  doubles::hook_writes(".istp", [&](int fd, const void* data, size_t size) -> ssize_t {
    unsigned call = calls++;
    if (call % 3 == 0) {
      errno = EINTR;
      return -1;
    }
    return doubles::real_write(fd, data, std::min<size_t>(size, 1 + call % 400));
  });
  ASSERT_EQ(start(), 0u);
  std::string stream = random_bytes(100000);
  feed(stream);
  ASSERT_TRUE(eventually([&] { return file_size() >= stream.size(); }));
  brio_trace_tst_stop();
  EXPECT_TRUE(root_.read(file_name()) == stream);
  EXPECT_FALSE(log_capture::has("E blib:"));
}

TEST_F(TraceCapture, FullDiskIsReportedOnceAndCopyingGoesOn) {
  std::atomic<int> errors[2] = {{ENOSPC}, {EAGAIN}};  // any failure counts as a full disk
  for (int run = 0; run < 2; run++) {
    test_clock::set_wall(kStart + run);
    std::atomic<bool> full{true};
    std::atomic<unsigned> refused{0};
    doubles::hook_writes(".istp", [&](int fd, const void* data, size_t size) -> ssize_t {
      if (!full) return doubles::real_write(fd, data, size);
      if (size == 100) return doubles::real_write(fd, data, 30);
      refused++;
      errno = errors[run];
      return -1;
    });
    ASSERT_EQ(start(), 0u);
    feed(std::string(100, 'a'));
    ASSERT_TRUE(eventually([&] { return refused == 1; }));
    feed(std::string(99, 'b'));
    ASSERT_TRUE(eventually([&] { return refused == 2; }));
    full = false;
    feed("behind");
    ASSERT_TRUE(eventually([&] { return file_size(run) == 36; }));
    brio_trace_tst_stop();
    EXPECT_EQ(root_.read(file_name(run)), std::string(30, 'a') + "behind")
        << "the rest of the block is dropped";
    EXPECT_EQ(log_capture::count("brio_writeline:bytes=30:write error: No space left on device"), 1u);
    EXPECT_EQ(log_capture::count("write error"), 1u) << "once per process";
  }
  expect_nothing_left();
}

TEST_F(TraceCapture, DisconnectEndsTheThreadAndStopJoinsIt) {
  ASSERT_EQ(start(), 0u);
  close(master_);
  master_ = -1;
  ASSERT_TRUE(log_capture::wait_for("W blib:briolib/src/brio_trace:"));
  EXPECT_TRUE(log_capture::has(":prv_log_rw_thread:log read port disconnected:"));
  ASSERT_TRUE(wait_thread_count(threads_));
  EXPECT_EQ(open_descriptors(), descriptors_ - 1);
  brio_trace_tst_stop();
  EXPECT_TRUE(log_capture::has("brio_trace_log_shutdown:errno=9:unable to write to socket pair"));
  EXPECT_FALSE(log_capture::has("error on socket pair"));

  plug();
  test_clock::set_wall(kStart + 1);
  ASSERT_EQ(start(), 0u);
  feed("again");
  ASSERT_TRUE(eventually([&] { return file_size(1) == 5; }));
  brio_trace_tst_stop();
  expect_nothing_left();
}

TEST_F(TraceCapture, ErrorsOfTheWait) {
  ASSERT_EQ(start(), 0u);
  doubles::fail_tty_read_once(EINTR);
  feed("x");
  ASSERT_TRUE(eventually([&] { return file_size() == 1; })) << "EINTR reads again";
  EXPECT_EQ(log_capture::count("brio_readline:bytes =-1:error calling read()"), 1u);

  doubles::fail_select_once(EINTR);
  feed("y");
  ASSERT_TRUE(eventually([&] { return file_size() == 2; })) << "EINTR waits again";

  doubles::fail_tty_read_once(EIO);
  feed("z");
  ASSERT_TRUE(log_capture::wait_for(":read:errno=5:error on read--pausing read thread"));
  ASSERT_TRUE(wait_thread_count(threads_));
  brio_trace_tst_stop();

  test_clock::set_wall(kStart + 1);
  doubles::fail_select_once(ENOMEM);
  ASSERT_EQ(start(), 0u);
  ASSERT_TRUE(log_capture::wait_for(":select:errno=12:select failed--pausing read thread"));
  ASSERT_TRUE(wait_thread_count(threads_));
  brio_trace_tst_stop();
  expect_nothing_left();
}

TEST_F(TraceCapture, StopThatCannotBeSentStillEndsTheThread) {
  ASSERT_EQ(start(), 0u);
  doubles::fail_send(ENOBUFS);
  brio_trace_tst_stop();
  EXPECT_TRUE(log_capture::has("brio_trace_log_shutdown:errno=" + std::to_string(ENOBUFS) +
                               ":unable to write to socket pair"));
  EXPECT_TRUE(log_capture::has("E blib:briolib/src/brio_trace:"));
  EXPECT_TRUE(log_capture::has("brio_trace_log_shutdown:write:error on socket pair"));
  expect_nothing_left();
}

TEST_F(TraceCapture, SecondStartReplacesTheRunningCapture) {
  ASSERT_EQ(start(), 0u);
  feed("first");
  ASSERT_TRUE(eventually([&] { return file_size() == 5; }));
  test_clock::set_wall(kStart + 1);
  ASSERT_EQ(start(), 0u);
  feed("second");
  ASSERT_TRUE(eventually([&] { return file_size(1) == 6; }));
  EXPECT_EQ(file_size(), 5u);
  EXPECT_EQ(thread_count(), threads_ + 1);
  // Whatever the status says afterwards is what runs.
  root_.remove(kFilter);
  EXPECT_EQ(start(), 7u);
  expect_nothing_left();
}

TEST_F(TraceCapture, ManyCyclesLeaveNothing) {
  for (int i = 0; i < 100; i++) {
    test_clock::set_wall(kStart + i);
    ASSERT_EQ(start(), 0u);
    if (i % 2 == 0) feed("some");
    brio_trace_tst_stop();
  }
  expect_nothing_left();
}

}  // namespace
