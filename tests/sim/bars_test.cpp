// Signal bars against the simulated modem: polls, reports switched on and off, modes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/sim_fixture.h"

namespace {

using modemsim::Fault;
using modemsim::State;
using Commands = std::vector<std::string>;

class Bars : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    open_ready();
  }
  uint32_t get(int32_t mode = 0) {
    uint32_t bars = 99;
    status_ = brio_get_bars(&bars, mode);
    return bars;
  }
  // Commands since the last call.
  Commands sent() {
    Commands commands = modem().commands();
    modem().clear_commands();
    return commands;
  }
  void set_bars(int bars) {
    modem().with_state([bars](State& state) { state.bars = bars; });
  }
  // The same with the modem's report of it, if it is switched on; waits until the library has taken it.
  void report_bars(int bars) {
    size_t seen = log_capture::count("I blib:URC::+GTBARS:");
    modem().update([bars](State& state) { state.bars = bars; });
    ASSERT_TRUE(log_capture::wait_for("I blib:URC::+GTBARS:", seen + 1));
  }
  uint32_t status_ = 99;
};

TEST_F(Bars, PollsAtMostOnceInNinetyOneSeconds) {
  EXPECT_EQ(4u, get());
  EXPECT_EQ((Commands{"AT+GTBARS?"}), sent());
  set_bars(3);
  EXPECT_EQ(4u, get());
  test_clock::advance(89);
  EXPECT_EQ(4u, get());
  EXPECT_EQ(Commands{}, sent());
  test_clock::advance(2);
  EXPECT_EQ(3u, get());
  EXPECT_EQ((Commands{"AT+GTBARS?"}), sent());
  test_clock::advance(-95);  // a difference in either direction counts
  set_bars(2);
  EXPECT_EQ(2u, get());
  EXPECT_EQ((Commands{"AT+GTBARS?"}), sent());
  test_clock::advance(100);
  test_clock::fail_monotonic(true);
  EXPECT_EQ(2u, get());
  EXPECT_EQ(Commands{}, sent());
  test_clock::fail_monotonic(false);
}

TEST_F(Bars, LowSignalSwitchesReportsOnAndPollsOff) {
  set_bars(1);
  EXPECT_EQ(1u, get());
  EXPECT_EQ((Commands{"AT+GTBARS?", "AT+GTBARS=1"}), sent());
  report_bars(0);
  test_clock::advance(200);
  EXPECT_EQ(0u, get());
  EXPECT_EQ(Commands{}, sent());
  report_bars(2);
  EXPECT_EQ(2u, get());
  EXPECT_EQ((Commands{"AT+GTBARS=0"}), sent());
  EXPECT_EQ(2u, get());  // polls again, since the last poll is long ago
  EXPECT_EQ((Commands{"AT+GTBARS?"}), sent());
}

TEST_F(Bars, FailedSwitchIsTriedAgain) {
  Fault fault;
  fault.command = "AT+GTBARS=";
  fault.replace = true;
  fault.reply = "\r\nERROR\r\n";
  fault.times = 1;
  set_bars(0);
  modem().fault(fault);
  EXPECT_EQ(0u, get());
  EXPECT_EQ(0u, status_);
  EXPECT_EQ(0u, get());
  EXPECT_EQ((Commands{"AT+GTBARS?", "AT+GTBARS=1", "AT+GTBARS=1"}), sent());
  report_bars(3);
  modem().fault(fault);
  EXPECT_EQ(3u, get());
  EXPECT_EQ(3u, get());
  EXPECT_EQ((Commands{"AT+GTBARS=0", "AT+GTBARS=0"}), sent());
}

TEST_F(Bars, ReadingModeServesTheHeldValueAndEndsReports) {
  set_bars(1);
  EXPECT_EQ(1u, get(1));  // nothing is held yet: a poll and the switch
  EXPECT_EQ((Commands{"AT+GTBARS?", "AT+GTBARS=1"}), sent());
  EXPECT_EQ(1u, get(2));
  EXPECT_EQ(Commands{}, sent());
  briolib_log_set_log_mask(BRIO_LOG_DEBUG);
  EXPECT_EQ(1u, get(1));
  briolib_log_set_log_mask(0);
  EXPECT_EQ((Commands{"AT+GTBARS=0"}), sent());
  EXPECT_TRUE(log_capture::has(":Reading mode,reporting: bars[1]\n"));
  test_clock::advance(500);
  EXPECT_EQ(1u, get(1));
  EXPECT_EQ(1u, get(2));
  EXPECT_EQ(Commands{}, sent());
}

TEST_F(Bars, UnknownValueIsKeptForPlainReadsOnly) {
  EXPECT_EQ(4u, get());
  modem().urc("+GTBARS: 7,255,99,99");
  ASSERT_TRUE(log_capture::wait_for("I blib:URC::+GTBARS:"));
  EXPECT_EQ(255u, get(2));
  EXPECT_EQ(0u, get(0));
}

TEST_F(Bars, UnknownPollIsNotHeld) {
  set_bars(255);
  EXPECT_EQ(0u, get());
  EXPECT_EQ(0u, get());
  EXPECT_EQ((Commands{"AT+GTBARS?", "AT+GTBARS?"}), sent());
  EXPECT_EQ(255, g_brio_lib_atcmd_data.bars);
}

TEST_F(Bars, PolledFiguresAreCutToEightBits) {
  modem().with_state([](State& state) {
    state.rssi = -70;
    state.ecno = -1;
  });
  EXPECT_EQ(4u, get());
  EXPECT_EQ(186u, g_brio_lib_atcmd_data.signal_a);
  EXPECT_EQ(255u, g_brio_lib_atcmd_data.signal_b);
}

TEST_F(Bars, UnusablePollsChangeNothing) {
  EXPECT_EQ(4u, get());
  const char* answers[] = {"\r\nERROR\r\n", "\r\nOK\r\n", "\r\n+GTBARS\r\n\r\nOK\r\n",
                           "\r\n+CME ERROR: 4\r\n"};
  for (const char* answer : answers) {
    Fault fault;
    fault.command = "AT+GTBARS?";
    fault.replace = true;
    fault.reply = answer;
    fault.times = 1;
    modem().fault(fault);
    test_clock::advance(100);
    log_capture::clear();
    EXPECT_EQ(99u, get()) << answer;
    EXPECT_EQ(7u, status_) << answer;
    EXPECT_TRUE(log_capture::has(":brio_get_bars:failed to get signal bars ret 7:\n")) << answer;
    EXPECT_EQ(4, g_brio_lib_atcmd_data.bars);
  }
  EXPECT_EQ(6u, brio_get_bars(nullptr, 0));
  EXPECT_TRUE(log_capture::has("ret 6:\n"));
}

TEST_F(Bars, LosingTheNetworkInvalidatesTheHeldValue) {
  EXPECT_EQ(4u, get());
  modem().urc("+CREG: 0");
  modem().urc("+CGREG: 0");
  ASSERT_TRUE(log_capture::wait_for("I blib:URC::+CGREG: 0"));
  set_bars(2);
  modem().clear_commands();
  EXPECT_EQ(2u, get(2));  // a plain read polls too while nothing is held
  EXPECT_EQ((Commands{"AT+GTBARS?"}), sent());
}

TEST_F(Bars, PeriodIsCheckedAndNothingElse) {
  const uint32_t refused[] = {1, 2, 256, 0xFFFFFFFFu};
  for (uint32_t period : refused) EXPECT_EQ(6u, brio_set_bars_update_period(period)) << period;
  EXPECT_EQ(0u, log_capture::count("NOT SUPPORTED IN BRIOLIB"));
  const uint32_t accepted[] = {0, 3, 60, 255};
  for (uint32_t period : accepted) EXPECT_EQ(0u, brio_set_bars_update_period(period)) << period;
  EXPECT_EQ(4u, log_capture::count(":brio_set_bars_update_period:ERR: NOT SUPPORTED IN BRIOLIB:\n"));
  EXPECT_EQ(0u, brio_set_bars_table(nullptr));
  close_library();
  EXPECT_EQ(6u, brio_set_bars_update_period(2));
  EXPECT_EQ(1u, brio_set_bars_update_period(60));
  EXPECT_EQ(1u, (get(), status_));
}

}  // namespace
