// Network scans against the simulated modem.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/sim_fixture.h"

namespace {

using modemsim::Fault;
using modemsim::Milliseconds;
using modemsim::Operator;
using modemsim::State;
using Commands = std::vector<std::string>;

class Scan : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    open_ready();
  }

  // Scans into a buffer of `size` bytes with a guard behind it; its text, or "untouched".
  std::string scan(uint16_t size = 4096) {
    std::vector<char> memory(size + 16u, '#');
    status_ = brio_atcmd_scan_network(memory.data(), size);
    const std::string bytes(memory.data(), memory.size());
    size_t end = bytes.find('\0');
    if (end == std::string::npos) return bytes.find_first_not_of('#') == bytes.npos ? "untouched" : "no end";
    EXPECT_LT(end, size);
    EXPECT_EQ(bytes.npos, bytes.find_first_not_of('#', end + 1));
    return bytes.substr(0, end);
  }
  void answer(const std::string& command, const std::string& reply, int times = 1) {
    Fault fault;
    fault.command = command;
    fault.replace = true;
    fault.reply = reply;
    fault.times = times;
    modem().fault(fault);
  }
  void silence(const std::string& command) {
    Fault fault;
    fault.command = command;
    fault.silent = true;
    fault.times = 1;
    modem().fault(fault);
  }
  void set_network(uint8_t rat, const char* mcc, const char* mnc) {
    briolib_lock_urc_data_mutex();
    g_brio_lib_atcmd_data.rat = rat;
    snprintf(g_brio_lib_atcmd_data.mcc, 4, "%s", mcc);
    snprintf(g_brio_lib_atcmd_data.mnc, 4, "%s", mnc);
    briolib_unlock_urc_data_mutex();
    EXPECT_EQ(0u, brio_get_current_network());
  }
  uint32_t status_ = 99;
};

TEST_F(Scan, ListsOperatorsAndMarksTheOneInUse) {
  modem().with_state([](State& state) {
    state.operators = {{1, "AT&T", "ATT", "310410", 7},
                       {1, "T-Mobile", "T-Mo", "310260", 7},
                       {3, "Barred", "B", "311480", 7},
                       {1, "", "TDG", "26201", 2}};
  });
  const std::string others = "1,310,260,7,\"\",\"T-Mobile\",\"\";1,262,01,2,\"\",\"\",\"TDG\";";
  EXPECT_EQ("1,310,410,7,\"\",\"AT&T\",\"\";" + others, scan());  // the current network was not asked for
  EXPECT_EQ(0u, status_);
  EXPECT_EQ((Commands{"AT+COPS=2", "AT+COPS=?"}), modem().commands());
  EXPECT_TRUE(log_capture::has(":MS_INFO::1.1,310,410,7,\"**&*\",\"\""));
  EXPECT_TRUE(log_capture::has(":MS_INFO::2.1,310,260,7,\"*-******\",\"\""));
  EXPECT_TRUE(log_capture::has(":MS_INFO::3.1,262,01,2,\"\",\"***\""));

  struct Case {
    uint8_t rat;
    const char* mcc;
    const char* mnc;
    size_t marked;  // place of the "2", 0xFFFF for none
  };
  const size_t kNone = 0xFFFF;
  const std::string whole = "1,310,410,7,\"\",\"AT&T\",\"\";" + others;
  const Case cases[] = {
      {7, "310", "410", 0},
      {7, "310", "260", whole.find("1,310,260")},
      {2, "262", "01", whole.find("1,262")},
      {4, "262", "01", whole.find("1,262")},
      {6, "262", "01", whole.find("1,262")},
      {3, "262", "01", kNone},
      {0, "310", "410", kNone},
      {1, "310", "410", kNone},
      {8, "310", "410", kNone},
      {255, "310", "410", kNone},
  };
  for (const auto& c : cases) {
    set_network(c.rat, c.mcc, c.mnc);
    std::string expected = whole;
    if (c.marked != kNone) expected[c.marked] = '2';
    EXPECT_EQ(expected, scan()) << int{c.rat} << c.mcc << c.mnc;
  }
}

TEST_F(Scan, FillsTheBufferToItsSizeOnly) {
  modem().with_state([](State& state) {
    state.operators = {{1, "A", "", "310410", 7}, {1, "", "B", "31026", 2}};
  });
  const std::string first = "1,310,410,7,\"\",\"A\",\"\";";
  const std::string both = first + "1,310,26,2,\"\",\"\",\"B\";";
  set_network(7, "310", "410");
  briolib_log_set_log_mask(BRIO_LOG_DEBUG);
  for (uint16_t size = 0; size <= both.size() + 2; size++) {
    std::string expected = size > both.size() ? both : size > first.size() ? first : "untouched";
    if (expected[0] == '1') expected[0] = '2';
    log_capture::clear();
    EXPECT_EQ(expected, scan(size)) << size;
    EXPECT_EQ(0u, status_) << size;
    EXPECT_EQ(size > both.size() ? 0u : 1u,
              log_capture::count(":prv_briolib_ms_fill_buffer::Scan Buffer Full"));
    const std::string filled = log_capture::find(":Filled Scan Buffer ");
    EXPECT_EQ(expected == "untouched" ? "" : expected, filled.substr(filled.find("Buffer ") + 7));
  }
}

TEST_F(Scan, FortyOperatorsGiveThirtyOne) {
  std::string expected;
  modem().with_state([&expected](State& state) {
    for (int i = 0; i < 40; i++) {
      Operator op{1, "Op, (" + std::to_string(i) + ") \"x\"", "s", std::to_string(310100 + i), i % 8};
      state.operators.push_back(op);
      if (i < 31) {
        expected += "1,310," + std::to_string(100 + i) + "," + std::to_string(i % 8) + ",\"\",\"" +
                    op.long_name + "\",\"\";";
      }
    }
  });
  EXPECT_EQ(expected, scan());
  EXPECT_EQ(0u, status_);
  EXPECT_TRUE(log_capture::has(":prv_briolib_ms_parse_results::Number of carrier entries exceeds maximum"));
  EXPECT_EQ(1u, log_capture::count("ERR[13]:"));
  EXPECT_TRUE(log_capture::has(
      ":prv_briolib_ms_display_err_info:Cur Scan Entries:1-310-131-7-\"**, (31) \"*\"\"-\"\":"));
  EXPECT_TRUE(log_capture::has(":MS_INFO::31.1,310,130,6,"));
  EXPECT_TRUE(log_capture::has(":MS_INFO::32.NULL,NULL,NULL,NULL,NULL,NULL"));
}

TEST_F(Scan, FaultsAreReportedMaskedAndSkipped) {
  answer("AT+COPS=?",
         "\r\n+COPS: (1,\"Secret\",\"Sc\",\"3104100\",7),(1,\"Other\",\"o\",\"310260\",7),(x)\r\n\r\nOK\r\n");
  EXPECT_EQ("1,310,260,7,\"\",\"Other\",\"\";", scan());
  EXPECT_EQ(0u, status_);
  EXPECT_TRUE(log_capture::has(
      ":prv_briolib_ms_display_err_info:ERR_TOK:3104100 AT_RSP:+****: (1,\"******\",\"**\",\"3104100\",7),"));
  EXPECT_TRUE(log_capture::has(" ERR[7]:"));
  EXPECT_TRUE(log_capture::has(":Cur Scan Entries:1-NULL-NULL-NULL-\"******\"-\"\":"));
  EXPECT_TRUE(log_capture::has(":prv_briolib_ms_display_err_info:ERR_TOK:* "));
  EXPECT_TRUE(log_capture::has(":Cur Scan Entries:NULL-NULL-NULL-NULL-NULL-NULL:"));
  EXPECT_FALSE(log_capture::has("Secret"));
}

TEST_F(Scan, NothingFoundIsAFailure) {
  for (const char* reply : {"\r\n+COPS: ,,(0,1,2,3,4),(0,1,2)\r\n\r\nOK\r\n", "\r\n+COPS:\r\n\r\nOK\r\n",
                            "\r\n+COPS: (3,\"A\",\"\",\"310410\",7)\r\n\r\nOK\r\n"}) {
    log_capture::clear();
    answer("AT+COPS=?", reply);
    EXPECT_EQ("untouched", scan()) << reply;
    EXPECT_EQ(4u, status_) << reply;
    EXPECT_EQ(1u, log_capture::count("::No Valid carriers found")) << reply;
    EXPECT_EQ(0u, log_capture::count("ERR[")) << reply;
  }
  answer("AT+COPS=?", "\r\nOK\r\n");
  EXPECT_EQ("untouched", scan());
  EXPECT_EQ(4u, status_);
  EXPECT_TRUE(log_capture::has(":recv_func_prv_briolib_parse_scan_results::response is invalid"));
}

TEST_F(Scan, TornAnswersGiveWholeOperatorsOrAnError) {
  const std::string line =
      "+COPS: (2,\"AT&T\",\"ATT\",\"310410\",7),(1,\"a, (b) \"c\" é\",\"\",\"26201\",2),,(0-4),(0-2)";
  const std::string first = "2,310,410,7,\"\",\"AT&T\",\"\";";
  const std::string both = first + "1,262,01,2,\"\",\"a, (b) \"c\" é\",\"\";";
  const size_t first_end = line.find("),(") + 1;
  const size_t second_end = line.find("),,") + 1;
  for (size_t length = strlen("+COPS"); length <= line.size(); length++) {
    answer("AT+COPS=?", "\r\n" + line.substr(0, length) + "\r\n\r\nOK\r\n");
    const std::string expected = length >= second_end ? both : length >= first_end ? first : "untouched";
    EXPECT_EQ(expected, scan()) << length;
    EXPECT_EQ(length >= first_end ? 0u : 4u, status_) << length;
  }
}

TEST_F(Scan, RefusedDeregistrationEndsIt) {
  answer("AT+COPS=2", "\r\nERROR\r\n");
  EXPECT_EQ("untouched", scan());
  EXPECT_EQ(4u, status_);
  EXPECT_EQ((Commands{"AT+COPS=2"}), modem().commands());
}

TEST_F(Scan, SilentDeregistrationDoesNotEndIt) {
  modem().with_state([](State& state) { state.operators = {{1, "A", "", "310410", 7}}; });
  silence("AT+COPS=2");
  silence("ATE0");
  test_clock::scale_waits(0.005);  // 80 s in 0.4 s, 300 s in 1.5 s
  EXPECT_EQ("1,310,410,7,\"\",\"A\",\"\";", scan());
  EXPECT_EQ(0u, status_);
  EXPECT_EQ((Commands{"AT+COPS=2", "ATE0", "AT+COPS=?"}), modem().commands());
  EXPECT_EQ((std::vector<unsigned>{1000}), test_clock::sleeps());
}

TEST_F(Scan, SilentScanIsATimeOut) {
  silence("AT+COPS=?");
  test_clock::scale_waits(0.005);
  EXPECT_EQ("untouched", scan());
  EXPECT_EQ(5u, status_);
  EXPECT_EQ((Commands{"AT+COPS=2", "AT+COPS=?", "ATE0"}), modem().commands());
  EXPECT_TRUE(test_clock::sleeps().empty());
}

TEST_F(Scan, AbortFromAnotherThreadReleasesIt) {
  modem().with_state([](State& state) { state.scan_time = Milliseconds(60000); });
  std::thread host([this] { EXPECT_EQ("untouched", scan()); });
  ASSERT_TRUE(modem().wait_command("AT+COPS=?"));
  EXPECT_EQ(8u, brio_abort_manual_nw_scan());
  host.join();
  EXPECT_EQ(8u, status_);
  EXPECT_EQ(0u, brio_atcmd_scan_abort());
  EXPECT_EQ("^", modem().commands().back());
  EXPECT_EQ(0u, brio_atcmd_set_auto_mode());
  EXPECT_EQ("AT+COPS=0", modem().commands().back());
}

TEST_F(Scan, NullBufferAndClosedLibrary) {
  EXPECT_EQ(6u, brio_atcmd_scan_network(nullptr, 100));
  EXPECT_EQ(Commands{}, modem().commands());
  close_library();
  log_capture::clear();
  modem().clear_commands();
  EXPECT_EQ("untouched", scan());
  EXPECT_EQ(1u, status_);
  EXPECT_EQ(1u, brio_atcmd_scan_abort());
  EXPECT_EQ(1u, brio_atcmd_set_auto_mode());
  EXPECT_EQ(3u, log_capture::lines().size());
  for (const char* name : {"brio_atcmd_scan_network", "brio_atcmd_scan_abort", "brio_atcmd_set_auto_mode"}) {
    EXPECT_TRUE(log_capture::has(std::string(":") + name + "::improper brio library status"));
  }
  EXPECT_EQ(1u, brio_abort_manual_nw_scan());
  EXPECT_EQ(1u, brio_get_current_network());
  EXPECT_EQ(3u, log_capture::lines().size());
  EXPECT_EQ(Commands{}, modem().commands());
}

}  // namespace
