// Registration, unsolicited results and SIM refresh on a simulated modem.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/sim_fixture.h"

namespace {

using Commands = std::vector<std::string>;

class RegistrationSim : public SimFixture {
 protected:
  static brio_atcmd_data record() {
    brio::UrcDataLock lock;
    return g_brio_lib_atcmd_data;
  }
};

TEST_F(RegistrationSim, CommandGroups) {
  open_ready();
  struct {
    uint32_t mode;
    Commands commands;
  } const cases[] = {
      {0, {"AT+COPS=3,2", "AT+CREG=2", "AT+CGREG=2", "AT+CTZR=1", "AT+GTOTAREJECT=1", "AT+GTBARS=0"}},
      {1, {"AT@GTICOM:SIO_PSVCTRL(0)", "AT@EPHY:EPHY_BAS_STATUS(1)"}},
      {2, {"AT@EPHY:EPHY_BAS_STATUS(0)", "AT@GTICOM:SIO_PSVCTRL(0)"}},
      {3, {"AT+GTBARS=1"}},
      {4, {"AT+GTBARS=0"}},
      {5, {}},
      {0xFFFFFFFF, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    modem().clear_commands();
    EXPECT_EQ(brio_atcmd_enable_urc(c.mode), 0u);
    EXPECT_EQ(modem().commands(), c.commands);
  }
  modemsim::Fault fault;
  fault.replace = true;
  fault.reply = "\r\n+CME ERROR: 3\r\n";
  modem().fault(fault);
  EXPECT_EQ(brio_atcmd_enable_urc(0), 0u) << "its results are ignored";
  for (uint32_t mode = 1; mode <= 4; mode++) EXPECT_EQ(brio_atcmd_enable_urc(mode), 4u) << mode;
}

TEST_F(RegistrationSim, OnlyTheWayUpIsGated) {
  EXPECT_EQ(brio_atcmd_enable_urc(0), 1u);
  EXPECT_EQ(brio_atcmd_enable_urc(1), 1u);
  EXPECT_EQ(log_capture::count("brio_atcmd_enable_urc::improper brio library status"), 2u);
  for (uint32_t mode = 2; mode <= 4; mode++) {
    EXPECT_EQ(brio_atcmd_enable_urc(mode), 4u) << "sent, and refused by the closed channel";
  }
  EXPECT_EQ(log_capture::count("improper brio library status"), 2u);
}

TEST_F(RegistrationSim, ReportsAreFollowed) {
  open_ready();
  modem().urc("+CREG: 5,\"1A2C\",\"01C2D3E5\",7");
  ASSERT_TRUE(log_capture::wait_for("I blib:URC::+CREG: 5,LAC,ID,7"));
  EXPECT_EQ(record().cs_reg_status, 2);
  EXPECT_EQ(record().lac, 0x1A2C);
  EXPECT_EQ(record().cell_id, 0x01C2D3E5u);
  modem().urc("+CGREG: 0");
  ASSERT_TRUE(log_capture::wait_for("I blib:URC::+CGREG: 0"));
  EXPECT_EQ(record().ps_reg_status, 0);
  EXPECT_EQ(record().lac, 0x1A2C) << "CS is registered";
  EXPECT_EQ(log_capture::count("I blib:URC::+CREG"), 1u) << "the dispatch adds no line of its own";
}

TEST_F(RegistrationSim, QueryAsksForBothDomains) {
  open_ready();
  modem().with_state([](modemsim::State& state) {
    state.cs_stat = 5;
    state.ps_stat = 5;
  });
  EXPECT_EQ(briolib_atcmd_query_reg_status(), 0u);
  EXPECT_EQ(modem().commands(), (Commands{"AT+CREG?", "AT+CGREG?"}));
  EXPECT_EQ(record().cs_reg_status, 2);
  EXPECT_EQ(record().ps_reg_status, 2);
  EXPECT_FALSE(log_capture::has("I blib:URC::+CREG"));

  // The result is that of the second question.
  modemsim::Fault bare;
  bare.command = "AT+CREG?";
  bare.replace = true;
  bare.reply = "\r\nOK\r\n";
  modem().fault(bare);
  EXPECT_EQ(briolib_atcmd_query_reg_status(), 0u);
  EXPECT_TRUE(log_capture::has("recv_func_prv_briolib_get_reg::response is invalid"));
  modem().clear_faults();
  bare.command = "AT+CGREG?";
  modem().fault(bare);
  EXPECT_EQ(briolib_atcmd_query_reg_status(), 6u);
}

TEST_F(RegistrationSim, RefreshReadsTheIccidAgain) {
  open_ready();
  set_log_mask(BRIO_LOG_DEBUG | BRIO_LOG_PARSE | BRIO_LOG_REG);
  // The file holds the digits nibble-swapped.
  modemsim::Fault answer;
  answer.command = "AT+CRSM=176,12258";
  answer.replace = true;
  answer.reply = "\r\n+CRSM: 144,0,\"989410034112018115027F\"\r\n\r\nOK\r\n";
  modem().fault(answer);
  modem().urc("+STKPCI: 0,\"D009810301010082028182\"");
  ASSERT_TRUE(modem().wait_command("AT+CRSM=176,12258,0,0,0"));
  ASSERT_TRUE(log_capture::wait_for("atcmd crsm blpkt_ret[0]"));
  sim_info_data info;
  {
    brio::StaticDataLock lock;
    briolib_get_sim_info_data(&info);
  }
  EXPECT_STREQ(info.iccid, "89490130142110185120");
  EXPECT_TRUE(log_capture::has("get crsm [+CRSM: 144,0,\"" + std::string(21, '*') + "F\"]"));
  EXPECT_FALSE(log_capture::has("9894100341"));
  EXPECT_FALSE(log_capture::has("8949013014"));
  set_log_mask(0);
}

TEST_F(RegistrationSim, OtherProactiveCommandsSendNothing) {
  open_ready();
  set_log_mask(BRIO_LOG_REG);
  modem().urc("+STKPCI:12345678901234567890123");        // 23 characters
  modem().urc("+STKPCI: 0,\"D009810301010182028182\"");  // another qualifier
  modem().urc("+STKPCI:    0,\"D0098103010100820281");   // 24 with its blanks, shorter than the pattern
  modem().urc("+CREG: 1");                               // the last one through
  ASSERT_TRUE(log_capture::wait_for("I blib:URC::+CREG: 1"));
  EXPECT_EQ(log_capture::count("Proactive command is much smaller then REFRESH: 12345678901234567890123"),
            1u);
  EXPECT_TRUE(modem().commands().empty());
  briolib_parse_stkpci(nullptr);
  EXPECT_TRUE(log_capture::has("briolib_parse_stkpci:stkpci_str is NULL:"));
  set_log_mask(0);
}

TEST_F(RegistrationSim, RefreshWithoutAnAnswerLine) {
  open_ready();
  modemsim::Fault bare;
  bare.command = "AT+CRSM";
  bare.replace = true;
  bare.reply = "\r\nOK\r\n";
  modem().fault(bare);
  char refresh[] = " 0,\"D009810301010082028182\"";
  briolib_parse_stkpci(refresh);
  EXPECT_TRUE(log_capture::has("recv_func_prv_briolib_get_crsm::response is invalid"));
}

TEST_F(RegistrationSim, RejectReportIsKept) {
  open_ready();
  modem().urc("+GTOTAREJECT: 1,5,8,310,410");
  ASSERT_TRUE(log_capture::wait_for("PROC:5 Rej Cause:8:Fatal Reject cause received"));
  ASSERT_TRUE(log_capture::wait_for("I blib:URC::+GTOTAREJECT"));
  EXPECT_EQ(record().reject_bytes[4], 8);
  EXPECT_EQ(record().reject_words[6], 310);
  EXPECT_TRUE(root().exists("/var/run/fatal_reject"));
  EXPECT_EQ(briolib_check_library_status(), 0u) << "the library keeps running";
  EXPECT_EQ(briolib_get_rej_causes(), 0u);
}

}  // namespace
