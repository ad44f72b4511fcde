// Life of the library on a simulated modem: the open sequence, its files, its failures, closing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/sim_fixture.h"

namespace {

using Commands = std::vector<std::string>;

const Commands kOpenCommands = {"ATE0",       "AT+CFUN=1",   "AT+CGMM",          "AT+COPS=3,2", "AT+CREG=2",
                                "AT+CGREG=2", "AT+CTZR=1",   "AT+GTOTAREJECT=1", "AT+GTBARS=0", "AT+GTFDCAR?",
                                "AT+CIMI",    "AT+CGDCONT?", "AT+CIMI",          "AT+CREG?",    "AT+CGREG?"};

modemsim::Fault error_to(const std::string& command, int times, int skip = 0) {
  modemsim::Fault fault;
  fault.command = command;
  fault.times = times;
  fault.skip = skip;
  fault.replace = true;
  fault.reply = "\r\nERROR\r\n";
  return fault;
}

modemsim::Fault silence_to(const std::string& command, int times = 1) {
  modemsim::Fault fault;
  fault.command = command;
  fault.times = times;
  fault.silent = true;
  return fault;
}

class OpenTest : public SimFixture {
 protected:
  // A wait of one second that takes 3 ms.
  static constexpr double kShort = 0.003;

  void prepare(modemsim::Modem& new_modem) override {
    new_modem.observe([this](const modemsim::Traffic& traffic) {
      if (traffic.port != modemsim::Port::kQuery || traffic.to_modem) return;
      if (traffic.bytes.find("OK\r\n") == std::string::npos) return;
      if (++answers_ == scaled_answer_) test_clock::scale_waits(scale_);
    });
  }

  // Scales the waits behind the given number of "OK" answers, so that no wait before, which is answered, is
  // cut short.
  void scale_after(int answers, double scale) {
    answers_ = 0;
    scaled_answer_ = answers;
    scale_ = scale;
    if (answers == 0) test_clock::scale_waits(scale);
  }

  // The commands that an open sends between "AT+CFUN=1" and the question for the model.
  Commands replayed() {
    Commands all = modem().commands();
    Commands middle;
    bool inside = false;
    for (const std::string& command : all) {
      if (command == "AT+CGMM") break;
      if (inside) middle.push_back(command);
      if (command == "AT+CFUN=1") inside = true;
    }
    return middle;
  }

  void reopen() {
    brio_close();
    modem().clear_commands();
    modem().clear_faults();
    log_capture::clear();
    test_clock::reset();
    scaled_answer_ = -1;
  }

 private:
  std::atomic<int> answers_{0};
  std::atomic<int> scaled_answer_{-1};
  std::atomic<double> scale_{1.0};
};

TEST_F(OpenTest, CommandOrder) {
  EXPECT_EQ(briolib_check_library_status(), 1u);
  ASSERT_EQ(open(), 0u);
  EXPECT_EQ(modem().commands(), kOpenCommands);
  EXPECT_EQ(briolib_check_library_status(), 0u);
  EXPECT_EQ(brio_log_startup_status(), 0u);
  EXPECT_EQ(brio_check_for_fatal_failure(), 0u);
  EXPECT_TRUE(test_clock::sleeps().empty());
  EXPECT_EQ(g_brio_lib_atcmd_data.cs_reg_status, 1);
  EXPECT_EQ(g_brio_lib_atcmd_data.ps_reg_status, 1);
  EXPECT_EQ(g_brio_lib_atcmd_data.wan_type, 6);
  EXPECT_STREQ(g_brio_lib_atcmd_data.mcc, "FFF");
}

TEST_F(OpenTest, WanTypeSevenAsksForTheBand) {
  modem().with_state([](modemsim::State& state) { state.model = "L816-GL"; });
  ASSERT_EQ(open(), 0u);
  Commands expected = kOpenCommands;
  expected[4] = "AT+CREG=99";
  expected[5] = "AT+CGREG=99";
  EXPECT_EQ(modem().commands(), expected);
  EXPECT_EQ(g_brio_lib_atcmd_data.band, 104u);
}

TEST_F(OpenTest, SarStartsEngagedForItsCarriers) {
  struct {
    int carrier;
    const char* imsi;
    size_t expected;
  } const cases[] = {{202, "234150999999999", 1}, {216, "440101234567890", 1}, {201, "310410123456789", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.carrier);
    reopen();
    modem().with_state([&](modemsim::State& state) {
      state.carrier_id = c.carrier;
      state.imsi = c.imsi;
    });
    ASSERT_EQ(open(), 0u);
    const Commands commands = modem().commands();
    EXPECT_EQ(std::count(commands.begin(), commands.end(), "AT+BODYSARON=1"), static_cast<long>(c.expected));
    EXPECT_EQ(commands.back() == "AT+BODYSARON=1", c.expected == 1);
  }
}

TEST_F(OpenTest, SecondOpenIsRefusedAndSendsNothing) {
  open_ready();
  EXPECT_EQ(open(), 2u);
  EXPECT_TRUE(modem().commands().empty());
  EXPECT_EQ(briolib_check_library_status(), 0u);
}

TEST_F(OpenTest, CloseWithoutOpenIsHarmless) {
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(briolib_check_library_status(), 1u);
  EXPECT_EQ(open(), 0u);
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(briolib_check_library_status(), 1u);
}

// ---- Retries

TEST_F(OpenTest, EchoIsTriedThreeTimes) {
  modem().fault(error_to("ATE0", 2));
  ASSERT_EQ(open(), 0u);
  EXPECT_TRUE(log_capture::has("AT::failed to set echo, retry left[2]"));
  EXPECT_TRUE(log_capture::has("AT::failed to set echo, retry left[1]"));
  EXPECT_FALSE(log_capture::has("retry left[0]"));
  EXPECT_EQ(test_clock::sleeps(), (std::vector<unsigned>{1000, 1000}));
}

TEST_F(OpenTest, RadioIsTriedTwice) {
  modem().fault(error_to("AT+CFUN=1", 1));
  ASSERT_EQ(open(), 0u);
  EXPECT_TRUE(log_capture::has("AT::failed to set cfun1, retry left[1]"));
  EXPECT_EQ(test_clock::sleeps(), (std::vector<unsigned>{1000}));
}

TEST_F(OpenTest, GivingUpLeavesNothingBehind) {
  struct {
    const char* command;
    Commands sent;
    const char* last_log;
  } const cases[] = {
      {"ATE0", {"ATE0", "ATE0", "ATE0"}, "failed to set echo, retry left[0]"},
      {"AT+CFUN=1", {"ATE0", "AT+CFUN=1", "AT+CFUN=1"}, "failed to set cfun1, retry left[0]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    reopen();
    modem().fault(error_to(c.command, -1));
    EXPECT_EQ(open(), 5u);
    EXPECT_EQ(modem().commands(), c.sent);
    EXPECT_TRUE(log_capture::has(c.last_log));
    const size_t failures = c.sent.size() - (c.command == std::string("ATE0") ? 0 : 1);
    EXPECT_EQ(test_clock::sleeps(), std::vector<unsigned>(failures, 1000u)) << "after the last failure too";
    EXPECT_EQ(briolib_check_library_status(), 1u);
    EXPECT_TRUE(nothing_left_behind());
    modem().clear_faults();
    EXPECT_EQ(open(), 0u) << "may be tried again";
  }
}

TEST_F(OpenTest, SilentModemTimesOut) {
  test_clock::scale_waits(0.02);
  modem().fault(silence_to("ATE0", -1));
  timespec before;
  timespec after;
  brio::clock_monotonic(&before);
  EXPECT_EQ(open(), 5u);
  brio::clock_monotonic(&after);
  EXPECT_EQ(log_capture::count("AT cmd ATE0 timed out"), 3u);
  // Three waits and three pauses of one second each.
  EXPECT_GE(after.tv_sec - before.tv_sec, 5);
  EXPECT_LE(after.tv_sec - before.tv_sec, 8);
}

TEST_F(OpenTest, MissingPorts) {
  modem().unplug();
  EXPECT_EQ(open(), 4u);
  EXPECT_TRUE(log_capture::has("pktioinit::pktio failed to initialize"));
  EXPECT_EQ(briolib_check_library_status(), 1u);
  ASSERT_TRUE(modem().plug()) << modem().error();
  EXPECT_TRUE(nothing_left_behind());
  EXPECT_EQ(open(), 0u);
}

TEST_F(OpenTest, FailuresBehindTheRadioDoNotStopTheOpen) {
  for (size_t i = 2; i < kOpenCommands.size(); i++) {
    SCOPED_TRACE(kOpenCommands[i]);
    reopen();
    modem().fault(error_to(kOpenCommands[i], -1));
    EXPECT_EQ(open(), 0u);
    EXPECT_EQ(modem().commands().back(), "AT+CGREG?");
    EXPECT_EQ(briolib_check_library_status(), 0u);
  }
}

// ---- Losing the port

TEST_F(OpenTest, PortLostAtEachStep) {
  for (int i = 0; i < static_cast<int>(kOpenCommands.size()); i++) {
    SCOPED_TRACE(std::to_string(i) + " " + kOpenCommands[i]);
    reopen();
    // The request that loses its port waits for its whole time-out; 20 s take 200 ms, the second of "ATE0" 10
    // ms. A slow "ATE0" only costs a retry.
    test_clock::scale_waits(0.01);
    modemsim::Fault fault;
    fault.command = kOpenCommands[i];
    fault.skip = i == 12 ? 1 : 0;  // the second AT+CIMI
    fault.unplug = true;
    fault.times = 1;
    modem().fault(fault);
    const uint32_t status = open();
    if (i < 2) {
      EXPECT_EQ(status, 5u);
      EXPECT_EQ(briolib_check_library_status(), 1u);
    } else {
      EXPECT_EQ(status, 0u);
      EXPECT_EQ(briolib_check_library_status(), 3u) << "the loss is not forgotten";
    }
    EXPECT_EQ(brio_close(), 0u);
    EXPECT_EQ(briolib_check_library_status(), 1u);
    test_clock::reset();
    ASSERT_TRUE(modem().plug()) << modem().error();
    modem().clear_faults();
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(briolib_check_library_status(), 0u);
  }
  brio_close();
  EXPECT_TRUE(nothing_left_behind());
}

TEST_F(OpenTest, PortLostWhileOpen) {
  open_ready();
  modem().unplug();
  EXPECT_TRUE(eventually([] { return briolib_check_library_status() == 3; }));
  EXPECT_TRUE(log_capture::has("libstat_s:fatal lib status:modem indicated a failure[1][0]"));
  EXPECT_EQ(open(), 2u) << "still open";
  uint32_t mode = 77;
  EXPECT_EQ(brio_get_data_service_mode(&mode), 3u);
  EXPECT_EQ(mode, 77u);
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(briolib_check_library_status(), 1u);
  ASSERT_TRUE(modem().plug()) << modem().error();
  EXPECT_EQ(open(), 0u);
  EXPECT_EQ(briolib_check_library_status(), 0u);
}

// ---- Concurrency

TEST_F(OpenTest, StatusCheckWaitsForTheOpen) {
  modemsim::Fault slow;
  slow.command = "AT+CFUN=1";
  slow.delay = modemsim::Milliseconds(100);
  modem().fault(slow);
  uint32_t opened = 77;
  std::thread opener([&] { opened = open(); });
  EXPECT_TRUE(modem().wait_command("AT+CFUN=1"));
  EXPECT_EQ(briolib_check_library_status(), 0u);
  EXPECT_EQ(open(), 2u);
  opener.join();
  EXPECT_EQ(opened, 0u);
}

std::mutex s_gate_mutex;
std::condition_variable s_gate_changed;
bool s_gate_entered = false;
bool s_gate_released = false;

uint32_t wait_at_gate(uint32_t, uint32_t, const void*) {
  std::unique_lock<std::mutex> lock(s_gate_mutex);
  s_gate_entered = true;
  s_gate_changed.notify_all();
  s_gate_changed.wait(lock, [] { return s_gate_released; });
  return 0;
}

TEST_F(OpenTest, CallsThatMeetAClose) {
  open_ready();
  brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, wait_at_gate);
  modem().urc("+CTZV: -28,\"26/03/07\",\"09:05:00\"");
  {
    std::unique_lock<std::mutex> lock(s_gate_mutex);
    s_gate_changed.wait(lock, [] { return s_gate_entered; });
  }
  // The close joins the event thread, which the callback holds.
  std::thread closer([] { EXPECT_EQ(brio_close(), 0u); });
  EXPECT_TRUE(eventually([] { return briolib_check_library_status() == 3; }));
  EXPECT_TRUE(log_capture::has("modem indicated a failure[0][1]") ||
              log_capture::has("modem indicated a failure[1][1]"));
  EXPECT_EQ(open(), 2u);
  EXPECT_EQ(brio_close(), 0u);
  EXPECT_EQ(briolib_check_library_status(), 3u) << "the second close leaves it to the first";
  {
    std::lock_guard<std::mutex> lock(s_gate_mutex);
    s_gate_released = true;
    s_gate_changed.notify_all();
  }
  closer.join();
  EXPECT_EQ(briolib_check_library_status(), 1u);
  brio_set_callback_for_event_id(BRIO_EVENT_TIME_INFO, nullptr);
  EXPECT_EQ(open(), 0u);
}

TEST_F(OpenTest, ManyCyclesLeaveNothingBehind) {
  for (int i = 0; i < 50; i++) {
    ASSERT_EQ(open(), 0u);
    ASSERT_EQ(brio_close(), 0u);
  }
  EXPECT_TRUE(nothing_left_behind());
}

// ---- Log configuration

constexpr char kLogConfig[] = "/var/local/wan/briolib_log_config";
constexpr uint32_t kMaskBefore = BRIO_LOG_CONFIG | 0x800;

TEST_F(OpenTest, LogConfiguration) {
  struct {
    const char* name;
    std::string content;
    uint32_t mask;
  } const cases[] = {
      {"prefix", "0x40000000\n", 0x40000000},
      {"no prefix, blanks, no newline", "  \t8000  ", 0x8000},
      {"first line wins", "# mask\n\n\r\n   \n1C\n2\n", 0x1C},
      {"comments only", "# one\n  # two\n\r\n", kMaskBefore},
      {"empty", "", kMaskBefore},
      {"no number", "everything\n", 0xE},
      {"no number at all", "please\n", 0},
      {"beyond 32 bits", "123456789\n", 0x23456789},
      {"a line is cut at 31 characters", std::string(31, '#') + "4\n", 0x4},
      {"one line of 1 MiB", std::string(1 << 20, 'F'), 0xFFFFFFFF},
      {"one comment of 1 MiB", std::string(1 << 20, '#'), kMaskBefore},
      {"binary junk", std::string("\x01\x02\xFF\0\n\0\n", 7) + "12\n", 0},
      {"NUL bytes, then a number", std::string("\0\0\n", 3) + "12\n", 0x12},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    reopen();
    root().write(kLogConfig, c.content);
    set_log_mask(kMaskBefore);
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(log_mask(), c.mask);
    EXPECT_FALSE(log_capture::has("No log config file detected"));
    set_log_mask(0);
  }
  root().write(kLogConfig, "0x10\n");
  reopen();
  set_log_mask(kMaskBefore);
  ASSERT_EQ(open(), 0u);
  EXPECT_TRUE(log_capture::has("log config file: 0x10\n"));
}

TEST_F(OpenTest, LogConfigurationThatCannotBeRead) {
  set_log_mask(kMaskBefore);
  ASSERT_EQ(open(), 0u);
  EXPECT_TRUE(log_capture::has("No log config file detected"));
  EXPECT_EQ(log_mask(), kMaskBefore);

  reopen();
  root().make_directory(kLogConfig);
  ASSERT_EQ(open(), 0u);
  EXPECT_EQ(log_mask(), kMaskBefore);

  reopen();
  root().remove(kLogConfig);
  ASSERT_EQ(symlink(root().path(kLogConfig).c_str(), root().path(kLogConfig).c_str()), 0);
  ASSERT_EQ(open(), 0u);
  EXPECT_TRUE(log_capture::has("No log config file detected"));
  EXPECT_EQ(log_mask(), kMaskBefore);
  set_log_mask(0);
}

// ---- Stored manual selection

constexpr char kStoredSelection[] = "/var/run/mcsdwc.dat";

TEST_F(OpenTest, StoredSelection) {
  const std::string select = "AT+COPS=1,2,\"310410\",7";
  const std::string longest = "300 " + std::string(200, 'A');
  struct {
    const char* name;
    std::string content;
    Commands replayed;
  } const cases[] = {
      {"replayed", "300 " + select + "\n", {"AT+COPS=2", select}},
      {"no newline", "300 " + select, {"AT+COPS=2", select}},
      {"only the first line", "300 " + select + "\n300 AT+COPS=0\n", {"AT+COPS=2", select}},
      {"automatic", "300 at+cops=0\n", {}},
      {"no blank", "300" + select + "\n", {}},
      {"nothing behind the blank", "300 \n", {}},
      {"empty", "", {}},
      {"an empty first line", "\n300 " + select + "\n", {}},
      {"a line is cut at 127 characters", longest, {"AT+COPS=2", longest.substr(4, 123)}},
      {"1 MiB", "300 " + std::string(1 << 20, 'B'), {"AT+COPS=2", std::string(123, 'B')}},
      {"binary junk", std::string("\x01\xFF\0 \x02\n", 6), {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    reopen();
    root().write(kStoredSelection, c.content);
    ASSERT_EQ(open(), 0u);
    EXPECT_EQ(replayed(), c.replayed);
    EXPECT_EQ(log_capture::count("I blib:prv_brio_atcmd_mcs::set manual network select as mcs"),
              c.replayed.empty() ? 0u : 1u);
  }
  reopen();
  root().remove(kStoredSelection);
  root().make_directory(kStoredSelection);
  ASSERT_EQ(open(), 0u);
  EXPECT_TRUE(replayed().empty());
}

TEST_F(OpenTest, StoredSelectionThatFails) {
  const std::string select = "AT+COPS=1,2,\"310410\",7";
  root().write(kStoredSelection, "300 " + select + "\n");
  modem().fault(error_to("AT+COPS=2", 1));
  modem().fault(error_to("AT+COPS=1", 1));
  ASSERT_EQ(open(), 0u);
  EXPECT_EQ(replayed(), (Commands{"AT+COPS=2", select})) << "an error needs no ATE0";
  EXPECT_TRUE(log_capture::has("prv_brio_atcmd_mcs::de-registration from the network failed!"));
  EXPECT_TRUE(log_capture::has("AT::failed to set manual network select"));
  EXPECT_FALSE(log_capture::has("set manual network select as mcs timed out!"));
  EXPECT_TRUE(test_clock::sleeps().empty());
}

TEST_F(OpenTest, StoredSelectionThatTimesOut) {
  const std::string select = "AT+COPS=1,2,\"310410\",7";
  root().write(kStoredSelection, "300 " + select + "\n");
  // Behind "AT+CFUN=1" 80 s take 0.24 s and the stored 300 s take 0.9 s.
  scale_after(2, kShort);
  modem().fault(silence_to("AT+COPS=2"));
  modem().fault(silence_to("AT+COPS=1"));
  // No "ATE0" behind these is answered either: a late answer would be the next command's.
  modemsim::Fault echo = silence_to("ATE0", -1);
  echo.skip = 1;
  modem().fault(echo);
  timespec before;
  timespec after;
  brio::clock_monotonic(&before);
  ASSERT_EQ(open(), 0u);
  brio::clock_monotonic(&after);
  EXPECT_EQ(replayed(), (Commands{"AT+COPS=2", "ATE0", select, "ATE0"}));
  EXPECT_TRUE(log_capture::has("de-registration from the network failed!"));
  EXPECT_TRUE(log_capture::has("set manual network select as mcs timed out!"));
  EXPECT_TRUE(log_capture::has("AT::failed to set manual network select"));
  EXPECT_EQ(test_clock::sleeps(), (std::vector<unsigned>{1000}));
  EXPECT_GE(after.tv_sec - before.tv_sec, 380);
  EXPECT_LT(after.tv_sec - before.tv_sec, 460);
}

}  // namespace
