// The trace capture's stream, threads and failing system calls. Filters, names and statuses stand in
// tests/transcripts/trace.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "brio/brio.h"
#include "monitors/doubles.h"

namespace {

std::string random_bytes(size_t size) {
  std::string bytes(size, '\0');
  std::mt19937 random(7);
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// The trace port is a pty pair in its default mode; the test writes what the modem would stream into its
// master.
class Trace : public MonitorTest {
 protected:
  void SetUp() override {
    MonitorTest::SetUp();
    setenv("TZ", "UTC0", 1);
    tzset();
    root_.write("/filter", "AT+TRACE=1\n");
    plug();
    count_what_is_open();
  }
  void TearDown() override {
    brio_trace_tst_stop();
    close(master_);
    MonitorTest::TearDown();
  }
  void plug() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    ASSERT_TRUE(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0);
    root_.remove("/dev/ttyACM1");
    ASSERT_EQ(0, symlink(ptsname(master_), root_.path("/dev/ttyACM1").c_str()));
  }
  int open_port() { return open(root_.path("/dev/ttyACM1").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC); }
  // A file of its own for every start.
  uint32_t start() {
    test_clock::set_wall(1772892300);
    prefix_ = "/mnt/us/" + std::to_string(++starts_);
    return brio_trace_tst_log("/filter", prefix_.c_str());
  }
  std::string captured() { return root_.read(prefix_ + "_2026_3_7_14_5_0.istp").value_or(""); }
  bool wait_captured(size_t size) {
    const std::string path = root_.path(prefix_ + "_2026_3_7_14_5_0.istp");
    struct stat info = {};
    return process::eventually(
        [&] { return stat(path.c_str(), &info) == 0 && static_cast<size_t>(info.st_size) >= size; });
  }
  void feed(const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      pollfd item{master_, POLLOUT, 0};
      ASSERT_EQ(1, poll(&item, 1, 10000)) << "nobody takes byte " << sent;
      const ssize_t count = faults::real_write(master_, bytes.data() + sent, bytes.size() - sent);
      ASSERT_GT(count, 0);
      sent += static_cast<size_t>(count);
    }
  }
  void expect_nothing_left() {
    MonitorTest::expect_nothing_left();
    const int port = open_port();
    EXPECT_EQ(0, flock(port, LOCK_EX | LOCK_NB)) << "the port is still locked";
    close(port);
  }

  int master_ = -1, starts_ = 0;
  std::string prefix_;
};

// Also when the file takes little at a time and its writes are interrupted.
TEST_F(Trace, StreamArrivesBitForBit) {
  const std::string stream = random_bytes(2 << 20);
  for (const bool little : {false, true}) {
    unsigned calls = 0;
    faults::on_write = [&](int fd, const char* data, size_t size) -> ssize_t {
      errno = EINTR;
      if (little && ++calls % 3 == 0) return -1;
      return faults::real_write(fd, data, little ? std::min<size_t>(size, 1 + calls % 400) : size);
    };
    ASSERT_EQ(0u, start());
    feed(stream.substr(0, 1000));
    ASSERT_TRUE(wait_captured(1000)) << "not raw?";
    feed(stream.substr(1000));
    ASSERT_TRUE(wait_captured(stream.size()));
    brio_trace_tst_stop();
    EXPECT_TRUE(captured() == stream);
    EXPECT_FALSE(log_capture::has("E blib:"));
    brio_trace_tst_stop();
    EXPECT_EQ(little ? 2 : 1, faults::calls("send")) << "nothing runs any more";
  }
  expect_nothing_left();
}

// The thread is held inside the write of its first block while more data waits and the stop comes.
TEST_F(Trace, StopWinsOverPendingData) {
  std::atomic<bool> inside{false}, let_go{false};
  faults::on_write = [&](int fd, const char* data, size_t size) {
    inside = true;
    process::eventually([&] { return let_go.load(); });
    return faults::real_write(fd, data, size);
  };
  ASSERT_EQ(0u, start());
  feed(random_bytes(3000));
  ASSERT_TRUE(process::eventually([&] { return inside.load(); }));
  std::thread stopper([] { brio_trace_tst_stop(); });
  EXPECT_TRUE(process::eventually([] { return faults::calls("send") > 0; }));
  let_go = true;
  stopper.join();
  EXPECT_TRUE(!captured().empty() && captured().size() <= 1023) << "one block, the rest was not touched";
  expect_nothing_left();
}

TEST_F(Trace, FullDiskIsReportedOnceAndCopyingGoesOn) {
  for (const int error : {ENOSPC, EAGAIN}) {  // any failure counts as a full disk
    std::atomic<bool> full{true};
    std::atomic<unsigned> refused{0};
    faults::on_write = [&](int fd, const char* data, size_t size) -> ssize_t {
      if (!full || size == 100) return faults::real_write(fd, data, full ? 30 : size);
      refused++;
      errno = error;
      return -1;
    };
    ASSERT_EQ(0u, start());
    feed(std::string(100, 'a'));
    ASSERT_TRUE(process::eventually([&] { return refused == 1; }));
    feed(std::string(99, 'b'));
    ASSERT_TRUE(process::eventually([&] { return refused == 2; }));
    full = false;
    feed("behind");
    ASSERT_TRUE(wait_captured(36));
    brio_trace_tst_stop();
    EXPECT_EQ(std::string(30, 'a') + "behind", captured()) << "the rest of a block is dropped";
    EXPECT_EQ(1u, log_capture::count("write error")) << "once per process";
    EXPECT_TRUE(log_capture::has("brio_writeline:bytes=30:write error: No space left on device"));
  }
  expect_nothing_left();
}

TEST_F(Trace, ThreadThatEndedByItselfIsJoinedByTheStop) {
  struct Case {
    const char* failing;  // null: the modem goes
    int error;
    std::string line;
  } cases[] = {
      {"read", EIO, "E blib:briolib/src/brio_trace:N:read:errno=5:error on read--pausing read thread"},
      {"select", ENOMEM,
       "E blib:briolib/src/brio_trace:N:select:errno=12:select failed--pausing read thread"},
      {nullptr, 0, "W blib:briolib/src/brio_trace:N:prv_log_rw_thread:log read port disconnected:"}};
  for (const Case& c : cases) {
    log_capture::clear();
    ASSERT_EQ(0u, start());
    // Interrupted calls are made again.
    faults::fail("read", EINTR);
    feed("x");
    ASSERT_TRUE(wait_captured(1));
    EXPECT_EQ(1u, log_capture::count("brio_readline:bytes =-1:error calling read()"));
    faults::fail("select", EINTR);
    feed("y");
    ASSERT_TRUE(wait_captured(2));

    if (c.failing != nullptr) faults::fail(c.failing, c.error);
    if (c.failing != nullptr) feed("zz");
    if (c.failing == nullptr) close(master_);
    ASSERT_LE(process::settled_threads(threads_), threads_);
    // For a moment behind its close the kernel answers EIO instead of the end of stream.
    const bool early = c.failing == nullptr && log_capture::has("read:errno=5:error on read");
    const std::string& line = early ? cases[0].line : c.line;
    const size_t place = line.find(":N:");
    EXPECT_EQ(0u, log_capture::find(line.substr(place + 2)).find(line.substr(0, place + 1)));
    EXPECT_EQ(descriptors_ - (c.failing == nullptr ? 1 : 0), process::descriptors());
    brio_trace_tst_stop();
    EXPECT_TRUE(log_capture::has("brio_trace_log_shutdown:errno=9:unable to write to socket pair"));
    EXPECT_FALSE(log_capture::has("error on socket pair"));
    if (c.failing != nullptr) close(master_);  // with what nobody read
    plug();
  }
  ASSERT_EQ(0u, start());
  feed("again");
  EXPECT_TRUE(wait_captured(5));
  brio_trace_tst_stop();
  expect_nothing_left();
}

// Whatever the status says afterwards is what runs.
TEST_F(Trace, StartOverARunningCaptureEndsIt) {
  ASSERT_EQ(0u, start());
  ASSERT_EQ(0u, start());
  EXPECT_LE(process::settled_threads(threads_ + 1), threads_ + 1);
  root_.remove("/filter");
  EXPECT_EQ(7u, start());
  expect_nothing_left();
}

}  // namespace
