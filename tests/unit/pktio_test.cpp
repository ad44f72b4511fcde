// The read thread and the sending of commands on real ttys, without the packet layer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>

#include "base/log.h"
#include "brio/brio_at.h"
#include "brio_pktio.h"
#include "faults.h"
#include "support/pty_modem.h"

namespace {

using namespace std::string_literals;
using faults::Call;
using Lines = std::vector<std::string>;

constexpr char kQueryPort[] = "/dev/ttyACM2";
constexpr char kUrcPort[] = "/dev/ttyACM3";

// Our own descriptors of the file behind `path`.
std::vector<int> descriptors_of(const std::string& path) {
  std::vector<int> found;
  struct stat wanted;
  if (stat(path.c_str(), &wanted) != 0) return found;
  for (int fd = 0; fd < 4096; fd++) {
    struct stat got;
    if (fstat(fd, &got) == 0 && got.st_ino == wanted.st_ino && got.st_dev == wanted.st_dev)
      found.push_back(fd);
  }
  return found;
}

class Pktio : public ::testing::Test {
 protected:
  void SetUp() override {
    test_clock::reset();
    log_capture::clear();
    faults::reset();
    pktio_set_shutdown_callback([](void* context) { static_cast<Pktio*>(context)->thread_ended(); }, this);
  }
  void TearDown() override {
    pktio_shutdown();
    pktio_set_shutdown_callback(nullptr, nullptr);
    faults::reset();
    test_clock::reset();
  }

  void start() {
    long selects = faults::calls(Call::kSelect);
    ASSERT_EQ(pktio_init(kQueryPort, take_packet, this), 0u);
    ASSERT_TRUE(eventually([selects] { return faults::calls(Call::kSelect) > selects; }));
    urc_port_ = descriptors_of(modem_.root().path(kUrcPort)).at(0);
  }

  // Writes in pieces; the read thread has taken one up before the next is written.
  static void feed(int fd, const std::string& bytes, size_t chunk) {
    for (size_t at = 0; at < bytes.size(); at += chunk) {
      long selects = faults::calls(Call::kSelect);
      ASSERT_TRUE(write_all(fd, bytes.substr(at, chunk)));
      ASSERT_TRUE(eventually([selects] { return faults::calls(Call::kSelect) > selects; }));
    }
  }
  void feed_query(const std::string& bytes) { feed(modem_.query(), bytes, bytes.size()); }
  void feed_urc(const std::string& bytes) { feed(modem_.urc(), bytes, bytes.size()); }

  bool send(uint32_t type, const char* prefix, const char* command = "AT") {
    return pktio_at_send_cmd(command, type, prefix) == 0;
  }
  // Sends a command, feeds the answer, and gives what was delivered: "status|final|line|line".
  std::string answer(uint32_t type, const char* prefix, const std::string& bytes, size_t chunk) {
    size_t before = answers().size();
    EXPECT_TRUE(send(type, prefix));
    feed(modem_.query(), bytes, chunk);
    eventually([&] { return answers().size() > before; });
    pktio_reset_command();
    Lines all = answers();
    return all.size() == before + 1 ? all.back() : "deliveries: " + std::to_string(all.size() - before);
  }

  Lines answers() {
    std::lock_guard<std::mutex> lock(mutex_);
    return answers_;
  }
  Lines urcs() {
    std::lock_guard<std::mutex> lock(mutex_);
    return urcs_;
  }

  static void take_packet(uint32_t kind, void* data, void* context) {
    Pktio* self = static_cast<Pktio*>(context);
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (kind == 1) {
      self->urcs_.push_back(static_cast<const char*>(data));
      return;
    }
    const ATResponse* response = static_cast<const ATResponse*>(data);
    std::string text = std::to_string(response->status) + "|" + response->final_response;
    for (const ATLine* line = response->intermediates; line != nullptr; line = line->next) {
      text += std::string("|") + line->line;
    }
    self->answers_.push_back(text);
  }
  void thread_ended() {
    open_at_end_ = fcntl(urc_port_, F_GETFD) != -1;
    ends_++;
  }

  PtyModem modem_;
  std::atomic<int> ends_{0};
  std::atomic<bool> open_at_end_{false};  // the library's URC port when the shutdown callback ran

 private:
  std::atomic<int> urc_port_{-1};  // the library's descriptor
  std::mutex mutex_;               // guards answers_ and urcs_
  Lines answers_;
  Lines urcs_;
};

}  // namespace

TEST_F(Pktio, PortsAreRawBlockingAndCloseOnExec) {
  start();
  for (const char* port : {kQueryPort, kUrcPort}) {
    std::vector<int> found = descriptors_of(modem_.root().path(port));
    ASSERT_EQ(found.size(), 1u) << port;
    EXPECT_EQ(fcntl(found[0], F_GETFL) & (O_NONBLOCK | O_ACCMODE), O_RDWR) << port;
    EXPECT_EQ(fcntl(found[0], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << port;
    termios settings;
    ASSERT_EQ(tcgetattr(found[0], &settings), 0);
    EXPECT_EQ(cfgetispeed(&settings), static_cast<speed_t>(B921600));
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B921600));
    EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG), 0u);
    EXPECT_EQ(settings.c_cflag & (CLOCAL | CREAD | CS8), static_cast<tcflag_t>(CLOCAL | CREAD | CS8));
    EXPECT_EQ(settings.c_cc[VMIN], 0);
    EXPECT_EQ(settings.c_cc[VTIME], 0);
  }
}

TEST_F(Pktio, FailedInitLeavesNothingBehind) {
  const size_t descriptors = open_descriptors();
  const struct {
    const char* name;
    const char* query_port;
    void (*prepare)(const PtyModem& modem);
    const char* line;
  } cases[] = {
      {"query port missing", "/dev/none", [](const PtyModem&) {},
       "open:device: /dev/none, errno: 2:can't open device"},
      {"no query port named", nullptr, [](const PtyModem&) {}, "can't open device"},
      {"socket pair", kQueryPort, [](const PtyModem&) { faults::fail(Call::kSocketpair, EMFILE); },
       "socketpair:errno=24:can't create socket pair"},
      {"thread", kQueryPort, [](const PtyModem&) { faults::fail(Call::kThread, EAGAIN); },
       "create_th:err=11:cant create thread"},
      {"URC port missing", kQueryPort, [](const PtyModem& modem) { modem.root().remove(kUrcPort); },
       "open:device=/dev/ttyACM2,errno=2:cant open device"},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    c.prepare(modem_);
    EXPECT_EQ(pktio_init(c.query_port, take_packet, this), 1u) << c.name;
    EXPECT_TRUE(log_capture::has(c.line)) << c.name;
    EXPECT_EQ(open_descriptors(), descriptors) << c.name;
    EXPECT_EQ(pktio_at_send_cmd("AT", NO_RESULT, nullptr), 1u) << c.name;
    pktio_shutdown();
  }
  EXPECT_EQ(ends_, 0);
}

TEST_F(Pktio, DescriptorsBeyondSelectAreRefused) {
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max < 4096 ? limit.rlim_max : 4096;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur < FD_SETSIZE + 8) GTEST_SKIP() << "the system allows too few descriptors";
  std::vector<int> taken;
  while (taken.empty() || taken.back() < FD_SETSIZE - 1) taken.push_back(dup(0));
  // With 0 to 3 free places below the limit the query port, the URC port or the socket pair is too large.
  for (int free_places = 0; free_places <= 3; free_places++) {
    const size_t descriptors = open_descriptors();
    log_capture::clear();
    EXPECT_EQ(pktio_init(kQueryPort, take_packet, this), 1u) << free_places;
    const char* line = free_places < 2 ? "descriptor too large for select" : "can't create socket pair";
    EXPECT_EQ(log_capture::count(line), 1u) << free_places;
    EXPECT_EQ(open_descriptors(), descriptors) << free_places;
    close(taken.back());
    taken.pop_back();
  }
  start();
  feed_urc("+CREG: 1\r\n");
  EXPECT_EQ(urcs(), Lines{"+CREG: 1"});
  for (int fd : taken) close(fd);
}

TEST_F(Pktio, SameAnswersAtEveryChunkSize) {
  start();
  const struct {
    uint32_t type;
    const char* prefix;
    std::string bytes;
    const char* delivered;
  } cases[] = {
      {SINGLELINE, "+GTBARS", "\r\n+GTBARS: 1,2\r\n\r\nOK\r\n", "0|OK|+GTBARS: 1,2"},
      {MULTILINE, "+X", "+X: 1\r\n+X: 2\r+X: 3\nOK\r\n", "0|OK|+X: 1|+X: 2|+X: 3"},
      {NUMERIC, nullptr, "\r\n\r\n310410123456789\r\n\r\nOK\r\n", "0|OK|310410123456789"},
      {MULTILINE_NO_PREFIX, nullptr, "a\r\n\r\nb\r\n+CME ERROR: 10\r\n", "1|+CME ERROR: 10|b|a"},
      {NO_RESULT, nullptr, "\r\0\nCONN\0ECT\r\n"s, "0|CONNECT"},
  };
  for (const auto& c : cases) {
    for (size_t chunk = 1; chunk <= c.bytes.size(); chunk++) {
      ASSERT_EQ(answer(c.type, c.prefix, c.bytes, chunk), c.delivered) << "pieces of " << chunk;
    }
  }
  EXPECT_EQ(modem_.received().substr(0, 6), "AT\rAT\r");
}

TEST_F(Pktio, SameReportsAtEveryChunkSize) {
  start();
  const std::string bytes = "\r\n+CREG: 1,\"1A2B\"\r\n\r\n+GTBARS: 3\r\n\n+STKPCI: 2\r> ";
  Lines expected;
  for (size_t chunk = 1; chunk <= bytes.size(); chunk++) {
    feed(modem_.urc(), bytes, chunk);
    for (const char* line : {"+CREG: 1,\"1A2B\"", "+GTBARS: 3", "+STKPCI: 2", "> "}) expected.push_back(line);
    ASSERT_TRUE(eventually([&] { return urcs().size() >= expected.size(); })) << "pieces of " << chunk;
    ASSERT_EQ(urcs(), expected) << "pieces of " << chunk;
  }
}

TEST_F(Pktio, LinesWithoutACommandAreDiscarded) {
  start();
  feed_query("OK\r\n");
  EXPECT_TRUE(log_capture::wait_for("prv_read_thread:NO_COMMAND:cleaning up!"));
  // A late answer in two pieces, the request gone in between: nothing of it reaches the next command.
  ASSERT_TRUE(send(SINGLELINE, "+A"));
  feed_query("+A: 1\r\n");
  pktio_reset_command();
  feed_query("OK\r\n+A: 2\r\n");
  EXPECT_TRUE(log_capture::wait_for("NO_COMMAND:cleaning up!", 2));
  EXPECT_EQ(answers(), Lines{});
  EXPECT_EQ(answer(SINGLELINE, "+B", "+B: 1\r\nOK\r\n", 99), "0|OK|+B: 1");
}

TEST_F(Pktio, LinesOfAnEarlierCommandNeverJoinAnAnswer) {
  start();
  ASSERT_TRUE(send(MULTILINE, "+X"));
  feed_query("+X: 1\r\n");
  pktio_reset_command();
  // Its final line is missing, and nothing came while no command waited.
  EXPECT_EQ(answer(MULTILINE, "+X", "+X: 2\r\nOK\r\n", 99), "0|OK|+X: 2");
}

TEST_F(Pktio, ViolationsDiscardEverythingBuffered) {
  start();
  const struct {
    uint32_t type;
    const char* prefix;
    const char* bytes;
  } cases[] = {
      {SINGLELINE, "+GTBARS", "+COPS: 0\r\nOK\r\n+G"},
      {SINGLELINE, "+GTBARS", "+GTBARS: 1\r\n+GTBARS: 2\r\nOK\r\n"},
      {NUMERIC, nullptr, "1\r\n2\r\nOK\r\n"},
      {MULTILINE, "+X", "+X: 1\r\nnoise\r\nOK\r\n"},
  };
  size_t cleaned = 0;
  for (const auto& c : cases) {
    ASSERT_TRUE(send(c.type, c.prefix));
    feed_query(c.bytes);
    EXPECT_TRUE(log_capture::wait_for("process_line:ERROR:cleaning up!", ++cleaned)) << c.bytes;
    EXPECT_EQ(answers().size(), cleaned - 1) << c.bytes;
    EXPECT_EQ(answer(SINGLELINE, "+GTBARS", "+GTBARS: 7\r\nOK\r\n", 99), "0|OK|+GTBARS: 7") << c.bytes;
  }
}

TEST_F(Pktio, BasAnswerJumpsToItsFinal) {
  start();
  // The text between the first line and the final is skipped when it comes in the same read.
  EXPECT_EQ(answer(SINGLELINE, "+BAS", "+BAS: 1,2\r\nx: 1\r\ny\r\nOK\r\n", 99), "0|OK|+BAS: 1,2");
  EXPECT_EQ(answer(SINGLELINE, "+BAS", "+BAS: 1,2\r\nnoise\r\nERROR\r\n", 99), "1|ERROR|+BAS: 1,2");
  // An "OK" wins over an "ERROR" in front of it.
  EXPECT_EQ(answer(SINGLELINE, "+BAS", "+BAS: 1,2\r\nERROR\r\nOK\r\n", 99), "0|OK|+BAS: 1,2");
  // Neither: the next line is judged as any other.
  ASSERT_TRUE(send(SINGLELINE, "+BAS"));
  feed_query("+BAS: 1,2\r\nnoise\r\n");
  EXPECT_TRUE(log_capture::wait_for("process_line:ERROR:cleaning up!"));
  // The jump belongs to this prefix only.
  ASSERT_TRUE(send(SINGLELINE, "+BASE"));
  feed_query("+BASE: 1\r\nnoise\r\nOK\r\n");
  EXPECT_TRUE(log_capture::wait_for("process_line:ERROR:cleaning up!", 2));
}

TEST_F(Pktio, BytesBehindTheFinalLineOfAReadAreDropped) {
  start();
  EXPECT_EQ(answer(NO_RESULT, nullptr, "OK\r\n+X: 1\r\n+Y", 99), "0|OK");
  EXPECT_EQ(answer(SINGLELINE, "+X", "+X: 2\r\nOK\r\n", 99), "0|OK|+X: 2");
}

TEST_F(Pktio, NothingBehindThePromptIsLookedAt) {
  start();
  ASSERT_TRUE(send(MULTILINE_NO_PREFIX, nullptr));
  // The first read leaves complete lines in the buffer behind the place where the prompt will end.
  feed_query("first\r\nsecond\r\nthird\r\n");
  feed_query("> ");
  feed_query("OK\r\n");
  ASSERT_TRUE(eventually([&] { return answers().size() == 1; }));
  EXPECT_EQ(answers()[0], "0|OK|first|second|third|> ");
}

TEST_F(Pktio, OversizedLinesAreDroppedOnBothPorts) {
  start();
  const std::string full(BRIO_LINE_DATA_MAX, 'a');
  ASSERT_TRUE(send(MULTILINE_NO_PREFIX, nullptr));
  feed_query(full);
  feed_urc(full);
  feed_query("tail\r\n");
  feed_urc("tail\r\n");
  EXPECT_TRUE(log_capture::wait_for("Input line exceeded buffer", 2));
  // The longest line that fits, its end included.
  const std::string longest(BRIO_LINE_DATA_MAX - 1, 'b');
  feed_query(longest + "\r");
  feed_urc(longest + "\r");
  feed_query("\nOK\r\n");
  feed_urc("\n+CREG: 1\r\n");
  ASSERT_TRUE(eventually([&] { return answers().size() == 1 && urcs().size() == 3; }));
  EXPECT_EQ(answers()[0], "0|OK|tail|" + longest);
  EXPECT_EQ(urcs(), (Lines{"tail", longest, "+CREG: 1"}));
}

TEST_F(Pktio, CommandIsWrittenWholeWithOneCarriageReturn) {
  start();
  const std::string longest(511, 'x');
  for (const std::string& command : {std::string("AT+GTBARS?"), std::string(), longest, longest + "yy"}) {
    long writes = faults::calls(Call::kWrite);
    ASSERT_TRUE(send(NO_RESULT, nullptr, command.c_str()));
    EXPECT_EQ(faults::calls(Call::kWrite), writes + 1);
    std::string expected = command.substr(0, 511) + "\r";
    std::string got;
    eventually([&] { return (got += modem_.received()).size() >= expected.size(); });
    EXPECT_EQ(got, expected);
  }
  int port = descriptors_of(modem_.root().path(kQueryPort)).at(0);
  EXPECT_EQ(fcntl(port, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(Pktio, FailedAndShortWritesAreReported) {
  EXPECT_FALSE(send(NO_RESULT, nullptr, "AT+CLOSED"));
  EXPECT_TRUE(log_capture::has("AT:Unable to send command AT+CLOSED err Bad file descriptor:"));
  start();
  faults::fail(Call::kWrite, EINTR, 0, 3);
  EXPECT_TRUE(send(NO_RESULT, nullptr)) << "interrupted writes are repeated";
  faults::fail(Call::kWrite, 0);
  EXPECT_FALSE(send(NO_RESULT, nullptr, "AT+SHORT"));
  EXPECT_TRUE(log_capture::has("Unable to send command AT+SHORT err "));
  faults::fail(Call::kWrite, ENODEV);
  EXPECT_FALSE(send(NO_RESULT, nullptr, "AT+GONE"));
  EXPECT_TRUE(log_capture::has("Unable to send command AT+GONE err No such device:"));
  EXPECT_EQ(pktio_at_send_cmd(nullptr, NO_RESULT, nullptr), 1u);
}

TEST_F(Pktio, ModemThatStopsReadingHoldsNeitherWriterNorClose) {
  start();
  test_clock::scale_waits(0.001);
  const std::string command(500, 'x');
  // The first refusal may be a short write; when a write finds no room at all, its wait ends by itself.
  ASSERT_TRUE(eventually([&] {
    send(NO_RESULT, nullptr, command.c_str());
    return log_capture::has("err Connection timed out:");
  }));

  test_clock::scale_waits(1);
  long writes = faults::calls(Call::kWrite);
  std::atomic<bool> refused{false};
  std::thread writer([&] { refused = !send(NO_RESULT, nullptr, command.c_str()); });
  ASSERT_TRUE(eventually([&] { return faults::calls(Call::kWrite) > writes; }));
  auto begin = std::chrono::steady_clock::now();
  pktio_shutdown();
  writer.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_TRUE(refused);
  EXPECT_TRUE(descriptors_of(modem_.root().path(kQueryPort)).empty());
}

TEST_F(Pktio, StopEndsTheThreadOnceAndASecondShutdownIsHarmless) {
  start();
  pktio_shutdown();
  EXPECT_EQ(ends_, 1);
  EXPECT_TRUE(open_at_end_) << "the ports are closed after the callback";
  EXPECT_TRUE(descriptors_of(modem_.root().path(kUrcPort)).empty());
  pktio_shutdown();
  EXPECT_EQ(ends_, 1);
  EXPECT_EQ(log_capture::lines().size(), 0u);
}

TEST_F(Pktio, FailedStopStillEndsTheThread) {
  start();
  faults::fail(Call::kSend, ENOBUFS);
  pktio_shutdown();
  EXPECT_EQ(ends_, 1);
  EXPECT_TRUE(log_capture::has("W blib:"));
  EXPECT_TRUE(log_capture::has("socketpair:errno=105:unable to write to socket pair"));
  EXPECT_TRUE(log_capture::has("socketpair:write:error on socket pair"));
  EXPECT_TRUE(descriptors_of(modem_.root().path(kQueryPort)).empty());
}

TEST_F(Pktio, LostPortEndsTheThreadWithAPartialLineHeld) {
  const size_t descriptors = open_descriptors() - 4;  // without the modem's two ends and its pipe
  start();
  ASSERT_TRUE(send(MULTILINE, "+X"));
  feed_query("+X: 1\r\n+X: ");
  feed_urc("+CRE");
  modem_.unplug();
  ASSERT_TRUE(eventually([&] { return ends_ == 1; }));
  EXPECT_EQ(log_capture::count("pausing read thread"), 1u);
  EXPECT_TRUE(eventually([&] { return open_descriptors() == descriptors; }));
  EXPECT_FALSE(send(NO_RESULT, nullptr));
  pktio_shutdown();
  EXPECT_TRUE(log_capture::has("errno=9:unable to write to socket pair"));
  EXPECT_FALSE(log_capture::has("error on socket pair"));
  EXPECT_EQ(ends_, 1);
}

TEST_F(Pktio, SelectFailureEndsTheThreadAndAnInterruptedSelectDoesNot) {
  start();
  faults::fail(Call::kSelect, EINTR, 0, 2);
  feed_urc("+CREG: 1\r\n");
  feed_urc("+CREG: 2\r\n");
  EXPECT_EQ(urcs().size(), 2u);
  faults::fail(Call::kSelect, EBADF);
  feed_urc("+CREG: 3\r\n");
  EXPECT_TRUE(log_capture::wait_for("select:errno=9:select failed--pausing read thread"));
  EXPECT_TRUE(eventually([&] { return ends_ == 1; }));
}

TEST_F(Pktio, NewInitStartsFresh) {
  start();
  ASSERT_TRUE(send(MULTILINE_NO_PREFIX, nullptr));
  feed_query("old\r\nhalf");
  feed_urc("+HALF");
  // No shutdown in between: the earlier thread is ended first.
  start();
  EXPECT_EQ(ends_, 1);
  feed_query("OK\r\n");
  EXPECT_TRUE(log_capture::wait_for("NO_COMMAND:cleaning up!"));
  feed_urc("+CREG: 1\r\n");
  EXPECT_EQ(answer(MULTILINE_NO_PREFIX, nullptr, "new\r\nOK\r\n", 99), "0|OK|new");
  EXPECT_EQ(urcs(), Lines{"+CREG: 1"});
}

TEST_F(Pktio, ManyCyclesAndConcurrentShutdownsLeakNothing) {
  start();
  pktio_shutdown();
  const size_t descriptors = open_descriptors();
  const size_t threads = thread_count();
  for (int i = 0; i < 200; i++) {
    ASSERT_EQ(pktio_init(kQueryPort, take_packet, this), 0u);
    ASSERT_TRUE(send(NO_RESULT, nullptr));
    std::thread other([] { pktio_shutdown(); });
    if (i % 2 == 0) pktio_shutdown();
    other.join();
    ASSERT_EQ(ends_, i + 2);
    ASSERT_EQ(open_descriptors(), descriptors);
  }
  EXPECT_TRUE(eventually([&] { return thread_count() <= threads; }));
  EXPECT_EQ(modem_.received().size(), 200u * 3u);
}

TEST_F(Pktio, DebugLinesFollowTheirBits) {
  const struct {
    uint32_t bit;
    std::vector<const char*> lines;
  } cases[] = {
      {BRIO_LOG_PORT,
       {"pktio_init QRY fd:", "pktio_init URC fd:", "prv_read_thread(),nfds:", "atcmd request:AT",
        "exiting read thread"}},
      {BRIO_LOG_SELECT, {"entered select", "exited select num_fds[1]"}},
      {BRIO_LOG_AT_DETAIL,
       {"AT data[", "AT resp[+X: 1", "adding [+X: 1] to loc", "line[O][", "leftover buf str[O]",
        "Non empty buffer at the beginning: O", "leftover buffer len=1",
        "moved the partial line to starting of at_buf_p=O", "Advanced read_p after partial line=", "Free[",
        "saving incomplete URC len[2] Str[+Z]"}},
      {BRIO_LOG_FINAL, {"final response[OK]", "final response[ERROR]"}},
      {BRIO_LOG_URC,
       {"s_pktio_urc_p[", "URC: +CREG: 1", "leftover string[+C]", "saving incomplete URC[+CREG]"}},
  };
  for (const auto& c : cases) {
    brio::relaxed_store(g_brio_lib_log_mask, c.bit);
    start();
    ASSERT_TRUE(send(SINGLELINE, "+X"));
    feed_query("+X: 1\r\nO");
    feed_query("K\r\n");
    feed_query("ERROR\r\n");
    feed_query("+Z");
    feed_urc("+CREG: 1\r\n+C");
    feed_urc("REG");
    pktio_shutdown();
    for (const auto& other : cases) {
      for (const char* line : other.lines) {
        EXPECT_EQ(log_capture::has(line), other.bit == c.bit) << line << " with bit " << c.bit;
      }
    }
    log_capture::clear();
  }
  brio::relaxed_store(g_brio_lib_log_mask, 0u);
}
