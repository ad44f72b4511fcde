// Visits of the diagnostic page on a simulated modem: what is asked when, what ends a page early.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/brio_module.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "brio_common/shared_data.h"
#include "support/sim_fixture.h"

namespace {

constexpr uint32_t kMasked = 0;
constexpr uint32_t kFull = 1;
constexpr char kBasOn[] = "AT@EPHY:EPHY_BAS_STATUS(1)";
constexpr char kBasOff[] = "AT@EPHY:EPHY_BAS_STATUS(0)";
constexpr char kBasAsk[] = "AT@EPHY:EPHY_BAS_STATUS(2)";
constexpr char kReadEpsloci[] = "AT+CRSM=176,28643,0,0,18";

struct PageResult {
  std::string text;
  uint32_t size;
};

class PageVisit : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    gBrioModuleLogMask = 0xFFFFFFFF;
    open_ready();
  }

  PageResult page(uint32_t mode = kFull, uint32_t capacity = 8192) {
    std::vector<char> buffer(capacity + 1, '\x5A');
    buffer[capacity] = '\0';
    uint32_t size = capacity;
    EXPECT_EQ(0u, brio_module_get_log_string(buffer.data(), &size, mode));
    return {buffer.data(), size};
  }

  size_t sent(const std::string& command) {
    size_t count = 0;
    for (const std::string& line : modem().commands()) count += line == command;
    return count;
  }

  void share(const std::function<void(brio_atcmd_data&)>& change) {
    brio::UrcDataLock lock;
    change(g_brio_lib_atcmd_data);
  }

  // Ends the visit and lets the next call build a page.
  void leave() {
    EXPECT_EQ(0u, brio_module_exit_logging());
    page();
  }
};

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(PageVisit, ShowsWhatTheModemSaid) {
  modem_info info;
  ASSERT_EQ(0u, brio_get_modem_info(&info));
  uint32_t sim_status;
  ASSERT_EQ(0u, brio_get_wn3_sim_status(&sim_status));
  uint32_t bars;
  ASSERT_EQ(0u, brio_get_bars(&bars, 0));
  ASSERT_EQ(0u, briolib_update_mcc_mnc());
  root().write("/proc/net/dev", "wwan0: 1500 1 0 0 0 0 0 0 2600 1 0 0 0 0 0 0\n");
  // The ICCID is read with the first page's static information, so the second one shows it.
  EXPECT_TRUE(has(page(kFull).text, "2.3  SIM ICCID:   \n"));
  test_clock::advance(1);
  const PageResult full = page(kFull);
  EXPECT_EQ(full.text.size(), full.size);
  const modemsim::State state = modem().state();
  for (const std::string& part : {
           "2.1  Firmware Version:  " + state.firmware + " \n",
           std::string("2.2  Library Version:   S30J38 \n"),
           "2.3  SIM ICCID:  " + state.iccid + " \n",
           std::string("2.4  Carrier ID:  201 \n2.5  SIM status:  SIM_STATUS_OK (11) \n"),
           std::string("2.6  WAN type:  Kestrel (6) \n"),
           "2.7  IMEI:  " + state.imei + " \n",
           std::string("3.1 CS Reg Status: REGISTERED, HOME NETWORK (1) \n"),
           std::string("4.1 Mode: AUTOMATIC \n4.2 MCC-MNC: 310-410 \n4.3 RAT: LTE (7) \n"),
           std::string("4.4 Band: LTE_BAND_4 \n4.5 Cell ID: 0x1C2D3E4 \n4.5 TAC: 12033 \n"),
           std::string("5.3 RSRP: -81 \n"),
           std::string("6.1 EMM State: EMM_REGISTERED (3) \n"),
           std::string("IP address: not connected\nDest ip address: not connected\n"
                       "RX Bytes: 1500           TX Bytes: 2600     \n"
                       "RX Rate(B/s): 0           TX Rate(B/s): 0       \n"),
           "******** PLMN ********\n" + *root().read("/var/local/wan/static_info"),
       }) {
    EXPECT_TRUE(has(full.text, part)) << part << " is not in\n" << full.text;
  }

  const PageResult masked = page(kMasked);
  EXPECT_EQ(masked.text.size(), masked.size);
  EXPECT_FALSE(has(masked.text, state.iccid));
  EXPECT_FALSE(has(masked.text, state.imei));
  EXPECT_TRUE(has(masked.text, "4.2 310410\n4.3 7 \n4.4 XXX_XXXX_4 \n5  **"));
  EXPECT_TRUE(has(page(2).text, "4.4 XXX_XXXX_4 \n"));
}

TEST_F(PageVisit, ReadsStaticInfoOncePerVisit) {
  page();
  EXPECT_EQ(1u, sent(kReadEpsloci));
  page();
  page(kMasked);
  EXPECT_EQ(1u, sent(kReadEpsloci));
  leave();
  EXPECT_EQ(1u, sent(kReadEpsloci));
  page();
  EXPECT_EQ(2u, sent(kReadEpsloci));
}

TEST_F(PageVisit, CallAfterExitOnlyTakesNote) {
  page();
  EXPECT_EQ(0u, brio_module_exit_logging());
  EXPECT_TRUE(log_capture::has("D def:exiting 611 page.... (brio_module_exit_logging:log_611:"));
  modem().clear_commands();
  char buffer[] = "untouched";
  uint32_t size = sizeof(buffer);
  EXPECT_EQ(0u, brio_module_get_log_string(buffer, &size, kFull));
  EXPECT_STREQ("untouched", buffer);
  EXPECT_EQ(sizeof(buffer), size);
  EXPECT_TRUE(modem().commands().empty());
  EXPECT_TRUE(log_capture::has(
      "D def:Not setting bas status as cycle is exited (brio_module_get_log_string:log_611:"));
  EXPECT_TRUE(has(page().text, "2  ******** MODEM"));
  // Two exits in a row count as one.
  brio_module_exit_logging();
  leave();
  EXPECT_TRUE(has(page().text, "2  ******** MODEM"));
}

TEST_F(PageVisit, EveryThirdSnapshotAsksForTheServingCell) {
  atcmd_snapshot snapshot;
  for (size_t call = 0; call < 7; call++) {
    EXPECT_EQ(0u, briolib_get_atcmd_snapshot(&snapshot, 0));
    EXPECT_EQ(call / 3 + 1, sent("AT+GTSCINFO?"));
    EXPECT_EQ(call / 3 + 1, sent("AT+GTLTEINFO?"));
    // A call without refresh does not count.
    EXPECT_EQ(0u, briolib_get_atcmd_snapshot(&snapshot, 1));
  }
  EXPECT_EQ(0u, sent("AT+GTSCSTAT?"));
  EXPECT_EQ(0u, sent(kBasAsk));
  EXPECT_EQ(6u, briolib_get_atcmd_snapshot(nullptr, 0));
}

TEST_F(PageVisit, RefreshAsksWhatFitsTheRat) {
  struct Case {
    uint8_t rat;
    uint8_t bas_flag;
    uint8_t ps_status;
    std::vector<std::string> commands;
  };
  const Case cases[] = {
      {7, 0, 1, {"AT+GTSCINFO?", "AT+GTLTEINFO?"}},
      {7, 1, 0, {"AT+GTSCINFO?", "AT+GTLTEINFO?"}},
      {7, 1, 1, {"AT+GTSCINFO?", "AT+GTLTEINFO?", kBasAsk}},
      {7, 1, 2, {"AT+GTSCINFO?", "AT+GTLTEINFO?", kBasAsk}},
      {7, 1, 3, {"AT+GTSCINFO?", "AT+GTLTEINFO?"}},
      {7, 2, 1, {"AT+GTSCINFO?", "AT+GTLTEINFO?"}},
      {0, 1, 1, {"AT+GTSCINFO?", "AT+GTSCSTAT?"}},
      {254, 1, 1, {"AT+GTSCINFO?", "AT+GTSCSTAT?"}},
      {255, 1, 1, {"AT+GTSCINFO?"}},
  };
  atcmd_snapshot snapshot;
  for (const Case& c : cases) {
    share([&](brio_atcmd_data& data) {
      data.rat = c.rat;
      data.bas_query_flag = c.bas_flag;
      data.ps_reg_status = c.ps_status;
    });
    modem().clear_commands();
    for (int call = 0; call < 3; call++) EXPECT_EQ(0u, briolib_get_atcmd_snapshot(&snapshot, 0));
    EXPECT_EQ(c.commands, modem().commands()) << int{c.rat} << int{c.bas_flag} << int{c.ps_status};
  }
}

TEST_F(PageVisit, RefreshThatFailsLeavesTheOlderValues) {
  atcmd_snapshot snapshot;
  ASSERT_EQ(0u, briolib_get_atcmd_snapshot(&snapshot, 0));
  modemsim::Fault error;
  error.command = "AT+GT";
  error.replace = true;
  error.reply = "\r\nERROR\r\n";
  modem().fault(error);
  modem().with_state([](modemsim::State& state) { state.tac = 1; });
  for (int call = 0; call < 3; call++) ASSERT_EQ(0u, briolib_get_atcmd_snapshot(&snapshot, 0));
  EXPECT_EQ(2u, sent("AT+GTLTEINFO?"));
  EXPECT_EQ(0x2F01, snapshot.tac);
  EXPECT_STREQ("LTE_BAND_4", snapshot.band_text);
}

TEST_F(PageVisit, SnapshotCopiesTheWholeRecord) {
  share([](brio_atcmd_data& data) {
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&data);
    for (size_t i = 0; i < sizeof(data); i++) bytes[i] = static_cast<uint8_t>(i + 1);
    strcpy(data.mcc, "310");
    strcpy(data.mnc, "410");
    strcpy(data.plmn_text, "310410");
    strcpy(data.band_text, "LTE_BAND_4");
    data.cops_mode = -1;
    brio::g_sim_status = NO_SIM;
  });
  brio_atcmd_data data;
  share([&](brio_atcmd_data& shared) { data = shared; });
  atcmd_snapshot s;
  ASSERT_EQ(0u, briolib_get_atcmd_snapshot(&s, 1));
  EXPECT_EQ(data.cs_reg_status, s.cs_reg_status);
  EXPECT_EQ(data.ps_reg_status, s.ps_reg_status);
  EXPECT_EQ(data.lac, s.lac);
  EXPECT_EQ(data.cell_id, s.cell_id);
  EXPECT_EQ(data.rat, s.rat);
  EXPECT_EQ(data.rac, s.rac);
  EXPECT_STREQ(data.mcc, s.mcc);
  EXPECT_STREQ(data.mnc, s.mnc);
  EXPECT_STREQ(data.plmn_text, s.plmn_text);
  EXPECT_STREQ(data.band_text, s.band_text);
  EXPECT_EQ(data.arfcn, s.arfcn);
  EXPECT_EQ(0, memcmp(data.reject_bytes, s.reject_bytes, sizeof(s.reject_bytes)));
  EXPECT_EQ(0, memcmp(data.reject_words, s.reject_words, sizeof(s.reject_words)));
  EXPECT_EQ(data.signal_a, static_cast<uint32_t>(s.signal_a));
  EXPECT_EQ(data.signal_b, static_cast<uint32_t>(s.signal_b));
  EXPECT_EQ(data.bars, s.bars);
  EXPECT_EQ(data.pdp_state, s.pdp_state);
  EXPECT_EQ(data.mm_state, s.mm_state);
  EXPECT_EQ(data.mm_substate, s.mm_substate);
  EXPECT_EQ(data.gmm_state, s.gmm_state);
  EXPECT_EQ(data.gmm_substate, s.gmm_substate);
  EXPECT_EQ(data.rrc_state, s.rrc_state);
  EXPECT_EQ(data.nmo, s.nmo);
  EXPECT_EQ(data.rat_valid, s.rat_valid);
  EXPECT_EQ(data.spare_state, s.spare_state);
  EXPECT_EQ(data.carrier_config, s.carrier_config);
  EXPECT_EQ(data.curr_lte_ant, s.curr_lte_ant);
  EXPECT_EQ(data.bas_value_a, static_cast<uint16_t>(s.bas_value_a));
  EXPECT_EQ(data.bas_value_b, static_cast<uint16_t>(s.bas_value_b));
  EXPECT_EQ(data.emm_state, s.emm_state);
  EXPECT_EQ(data.emm_substate, s.emm_substate);
  EXPECT_EQ(data.tac, s.tac);
  EXPECT_EQ(data.bas_query_flag, s.bas_query_flag);
  EXPECT_EQ(data.wan_type, s.wan_type);
  EXPECT_EQ(data.band, s.band);
  EXPECT_EQ(NO_SIM, s.sim_status);
  EXPECT_EQ(0u, s.snapshot_mode);
  EXPECT_STREQ(" ", s.imei);
  // An unknown selection mode is looked up in the stored selection; a known one is not.
  root().write("/var/run/mcsdwc.dat", "300 AT+COPS=0\n");
  ASSERT_EQ(0u, briolib_get_atcmd_snapshot(&s, 1));
  EXPECT_EQ(1u, s.snapshot_mode);
  share([](brio_atcmd_data& shared) { shared.cops_mode = 0; });
  ASSERT_EQ(0u, briolib_get_atcmd_snapshot(&s, 1));
  EXPECT_EQ(0u, s.snapshot_mode);
}

TEST_F(PageVisit, SwitchesBasReportsOnOnceAndOffAtTheEnd) {
  share([](brio_atcmd_data& data) { data.bas_query_flag = 1; });
  EXPECT_TRUE(has(page().text, "5.3 RSRP main: 20 RSRP div: 18 \n"));
  page();
  EXPECT_EQ(1u, sent(kBasOn));
  EXPECT_EQ(1u, g_611_urc_on);
  EXPECT_TRUE(modem().state().bas_reports);
  leave();
  EXPECT_EQ(1u, sent(kBasOff));
  EXPECT_EQ(0u, g_611_urc_on);
  EXPECT_FALSE(modem().state().bas_reports);
  // Nothing to switch off.
  leave();
  EXPECT_EQ(1u, sent(kBasOff));
}

TEST_F(PageVisit, BasReportsThatCannotBeSwitchedOnAreTriedAgain) {
  share([](brio_atcmd_data& data) { data.bas_query_flag = 1; });
  modemsim::Fault error;
  error.command = kBasOn;
  error.times = 1;
  error.replace = true;
  error.reply = "\r\nERROR\r\n";
  modem().fault(error);
  EXPECT_TRUE(has(page().text, "******** PLMN ********\n"));
  EXPECT_EQ(0u, g_611_urc_on);
  page();
  EXPECT_EQ(2u, sent(kBasOn));
  EXPECT_EQ(1u, g_611_urc_on);
}

TEST_F(PageVisit, BasReportsNeedLteAndTheFlag) {
  page();
  share([](brio_atcmd_data& data) {
    data.bas_query_flag = 1;
    data.rat = 2;
  });
  page();
  EXPECT_EQ(0u, sent(kBasOn));
  // Reports that were switched on stay on when the visit ends off LTE: the next visit on LTE finds them on.
  share([](brio_atcmd_data& data) { data.rat = 7; });
  page();
  share([](brio_atcmd_data& data) { data.rat = 2; });
  leave();
  EXPECT_EQ(0u, sent(kBasOff));
  EXPECT_EQ(1u, g_611_urc_on);
}

TEST_F(PageVisit, NullBufferEndsThePageBehindTheReports) {
  share([](brio_atcmd_data& data) { data.bas_query_flag = 1; });
  uint32_t size = 100;
  EXPECT_EQ(0u, brio_module_get_log_string(nullptr, &size, kFull));
  EXPECT_EQ(0u, size);
  EXPECT_EQ(1u, sent(kBasOn));
  EXPECT_EQ(0u, sent(kReadEpsloci));
  EXPECT_TRUE(log_capture::has("E brio:611:Exiting due to error in prv_brio_get611_display \n:Bad Param"));
  char buffer[4] = "abc";
  EXPECT_EQ(0u, brio_module_get_log_string(buffer, nullptr, kFull));
  EXPECT_STREQ("abc", buffer);
}

TEST_F(PageVisit, FullPageAsksForNothingMore) {
  const PageResult little = page(kFull, 100);
  EXPECT_EQ(100u, little.size);
  EXPECT_EQ(99u, little.text.size());
  EXPECT_EQ(0u, page(kFull, 0).size);
  EXPECT_EQ(0u, sent(kReadEpsloci));
  page();
  EXPECT_EQ(1u, sent(kReadEpsloci));
}

TEST_F(PageVisit, WithoutSnapshotTheRoomBehindTheLineIsStoredNegated) {
  const std::string line = "Unable to get snapshot. status=1\n";
  brio_close();
  log_capture::clear();
  for (uint32_t capacity = 0; capacity < line.size() + 10; capacity++) {
    const PageResult result = page(kFull, capacity);
    const bool fits = capacity > line.size();
    EXPECT_EQ(fits ? 0 - (capacity - static_cast<uint32_t>(line.size())) : 0, result.size) << capacity;
    EXPECT_EQ(capacity > 0 ? line.substr(0, capacity - 1) : "", result.text) << capacity;
  }
  EXPECT_TRUE(log_capture::has("E brio:611:briolib_get_atcmd_snapshot error: 1 \n:"));
  uint32_t size = 50;
  EXPECT_EQ(0u, brio_module_get_log_string(nullptr, &size, kFull));
  EXPECT_EQ(0u - 50, size);

  // The end of a visit without snapshot keeps the flag of the static information, and ends the visit.
  gBrioModuleLogMask = ~WABS_LOG_ERROR;
  log_capture::clear();
  leave();
  page();
  EXPECT_FALSE(log_capture::has("E brio:"));
}

TEST_F(PageVisit, ModemLostWhileThePageIsBuilt) {
  modemsim::Fault lost;
  lost.command = "AT+GTLTEINFO?";
  lost.unplug = true;
  modem().fault(lost);
  test_clock::scale_waits(0.001);
  const std::string text = page().text;
  EXPECT_TRUE(has(text, "2  ******** MODEM"));
  const std::string heading = "******** PLMN ********\n";
  EXPECT_EQ(heading, text.substr(text.size() - heading.size()));
  EXPECT_TRUE(
      log_capture::has("E brio:611:Exiting due to error in getting SIM static info, brio status: 3 \n:"));
  EXPECT_TRUE(log_capture::has("E brio:611:Exiting due to error in prv_brio_get611_display \n: "));
}

TEST_F(PageVisit, StaticInfoFileThatIsMissing) {
  root().remove("/var/local/wan/static_info");
  modemsim::Fault error;
  error.command = kReadEpsloci;
  error.replace = true;
  error.reply = "\r\nERROR\r\n";
  modem().fault(error);
  const PageResult result = page();
  EXPECT_EQ(result.text.size(), result.size);
  EXPECT_EQ(result.text.size(), result.text.find("******** PLMN ********\n") + 23);
  EXPECT_TRUE(log_capture::has("E brio:611:no static info found \n:Bad Param"));
}

TEST_F(PageVisit, RatesBetweenPages) {
  const std::string tail = " 1 0 0 0 0 0 0 ";
  const std::string end = " 1 0 0 0 0 0 0\n";
  root().write("/proc/net/dev", "wwan0: 1000" + tail + "500" + end);
  EXPECT_TRUE(has(page().text, "RX Rate(B/s): -1          TX Rate(B/s): -1      \n"));
  EXPECT_FALSE(log_capture::has("D brio:now="));
  root().write("/proc/net/dev", "wwan0: 10001000" + tail + "5000500" + end);
  test_clock::advance(10000);
  // 10,000 s and the few milliseconds that the test took.
  const std::string text = page().text;
  EXPECT_TRUE(has(text, "RX Rate(B/s): 1000 ") || has(text, "RX Rate(B/s): 999 ")) << text;
  EXPECT_TRUE(has(text, "TX Rate(B/s): 500 ") || has(text, "TX Rate(B/s): 499 ")) << text;
  EXPECT_TRUE(log_capture::has("D brio:now="));
  const std::string line = log_capture::find("D brio:now=");
  unsigned long long now = 0, last = 0, diff = 0;
  char place[100] = "";
  EXPECT_EQ(4, sscanf(line.c_str(), "D brio:now=%llu,last=%llu,diff=%llu (%99s", &now, &last, &diff, place));
  EXPECT_EQ(now - last, diff);
  EXPECT_GE(diff, 10000000u);
  EXPECT_EQ(0u, std::string(place).find("brio_module_update_ppp:log_611:")) << line;
  EXPECT_TRUE(has(line, "\n (brio_module_update_ppp"));

  // A clock that cannot be read forgets the sample.
  test_clock::fail_monotonic(true);
  page();
  test_clock::fail_monotonic(false);
  EXPECT_TRUE(has(log_capture::find("E brio:monotime:err="), ":can't get monotonic time"));
  EXPECT_TRUE(has(page().text, "RX Rate(B/s): -1          TX Rate(B/s): -1      \n"));
}

TEST_F(PageVisit, DebugLinesNeedTheirBits) {
  gBrioModuleLogMask = ~(WABS_LOG_FLOW | WABS_LOG_VALUE);
  page();
  leave();
  page();
  EXPECT_FALSE(log_capture::has("D def:"));
  EXPECT_FALSE(log_capture::has("D brio:now="));
}

}  // namespace
