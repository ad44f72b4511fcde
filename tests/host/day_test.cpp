// A host's day on the simulated modem: what it polls, what the modem reports meanwhile, and what the log
// shows.
#include <cstdlib>
#include <thread>

#include "host_fixture.h"

namespace {

using modemsim::Fault;
using modemsim::State;

// Raw line traces print what came; everything else is on.
constexpr uint32_t kAllButRawTraces = ~(BRIO_LOG_PORT | BRIO_LOG_AT_DETAIL | BRIO_LOG_URC);

class DayTest : public HostFixture {
 protected:
  State initial_state() override {
    State state;
    state.operators = {{1, "T-Mobile", "TMO", "310260", 7}, {2, "AT&T", "AT&T", "310410", 7}};
    return state;
  }
  uint32_t bars() {
    uint32_t value = 77;
    EXPECT_EQ(wabs_get_bars(&value), WABS_STATUS_OK);
    return value;
  }
  uint32_t service_mode() {
    uint32_t value = 77;
    EXPECT_EQ(wabs_get_data_service_mode(&value), WABS_STATUS_OK);
    return value;
  }
  uint32_t roaming() {
    uint32_t value = 77;
    EXPECT_EQ(wabs_get_roaming_status(&value), WABS_STATUS_OK);
    return value;
  }
  int32_t offset() {
    time_t utc = 0;
    int32_t value = 77;
    EXPECT_EQ(wabs_get_module_time(&utc, &value), WABS_STATUS_OK);
    EXPECT_EQ(utc, static_cast<time_t>(-1));  // the modem's answer is read for its zone
    return value;
  }
  std::string text(uint32_t (*query)(char*, uint32_t)) {
    char buffer[64] = "";
    EXPECT_EQ(query(buffer, sizeof(buffer)), WABS_STATUS_OK);
    return buffer;
  }
  // "mcc-mnc", "-" for what was left alone.
  std::string plmn(uint32_t (*query)(uint32_t*, uint32_t*)) {
    uint32_t mcc = 0xFFFF;
    uint32_t mnc = 0xFFFF;
    EXPECT_EQ(query(&mcc, &mnc), WABS_STATUS_OK);
    return (mcc == 0xFFFF ? "" : std::to_string(mcc)) + "-" + (mnc == 0xFFFF ? "" : std::to_string(mnc));
  }
};

TEST_F(DayTest, PolledValues) {
  open_module();
  const State state = modem().state();
  EXPECT_EQ(text(wabs_get_imsi), state.imsi);
  EXPECT_EQ(text(wabs_get_radio_cert_param2), state.imsi);
  EXPECT_EQ(text(wabs_get_radio_cert_param1), state.iccid);
  EXPECT_EQ(text(wabs_get_radio_serial_number), state.imei);
  EXPECT_EQ(text(wabs_get_realm), state.imei);
  EXPECT_EQ(text(wabs_get_firmware_version), state.firmware);
  EXPECT_TRUE(modem().commands().empty());  // all read at open

  // Right after open the serving network is not known; asking for bars refreshes it.
  EXPECT_EQ(plmn(wabs_get_mcc_mnc), "-");
  EXPECT_EQ(plmn(wabs_get_mcc_mnc), "0-0");
  EXPECT_EQ(bars(), 4u);
  EXPECT_EQ(plmn(wabs_get_mcc_mnc), "310-410");
  EXPECT_EQ(root().read("/var/local/wan/mcc"), "310");
  EXPECT_EQ(plmn(wabs_get_hplmn_mcc_mnc), "310-410");
  EXPECT_EQ(service_mode(), 4u);
  EXPECT_EQ(roaming(), 0u);
  EXPECT_EQ(offset(), -28 * 900);  // no zone since the network changed: asked for

  for (uint32_t mode : {0u, 1u}) {
    char page[8192];
    EXPECT_EQ(wabs_get_log_string(page, sizeof(page), mode), 0u);
    EXPECT_NE(std::string(page).find("2  ******** MODEM ********"), std::string::npos);
    EXPECT_EQ(std::string(page).find(state.imei) != std::string::npos, mode == 1);
  }
  EXPECT_EQ(wabs_exit_611_logging(), 0u);

  char found[512];
  EXPECT_EQ(wabs_do_manual_nw_scan(found, sizeof(found)), WABS_STATUS_OK);
  EXPECT_NE(std::string(found).find("310,260"), std::string::npos);
  EXPECT_EQ(wabs_get_current_network(), WABS_STATUS_OK);
  EXPECT_EQ(wabs_set_auto_mode(), WABS_STATUS_OK);
  EXPECT_EQ(wabs_send_abort_cmd(), WABS_STATUS_OK);
}

TEST_F(DayTest, ReportsReachTheHost) {
  open_module();
  EXPECT_EQ(bars(), 4u);
  modem().update([](State& state) { state.cs_stat = state.ps_stat = 5; });
  EXPECT_TRUE(eventually([&] { return roaming() == 1; }));
  modem().update([](State& state) {
    state.rat = 2;
    state.cs_stat = state.ps_stat = 1;
  });
  EXPECT_TRUE(eventually([&] { return roaming() == 0 && service_mode() == 1; }));
  modem().update([](State& state) { state.cs_stat = state.ps_stat = 0; });
  EXPECT_TRUE(eventually([&] { return roaming() == 8; }));
  EXPECT_EQ(bars(), WABS_BARS_NOT_ATTACHED);
  EXPECT_TRUE(log_capture::wait_for("D brio:pdp_activation_allowed changed attached=0 allowed=0 ("));
  modem().update([](State& state) { state.cs_stat = state.ps_stat = 1; });
  EXPECT_TRUE(log_capture::wait_for("D brio:pdp_activation_allowed changed attached=1 allowed=1 ("));

  modem().urc("+CTZV: 8,\"26/03/07,09:05:00\"");
  EXPECT_TRUE(log_capture::wait_for("D brio:TIME ZONE FROM EVENT: 8 (prv_brio_event_time_info:brio_module:"));
  EXPECT_EQ(offset(), 7200);
}

// While the bars are low the modem reports them; the reader in front switches that off and is served what is
// held.
TEST_F(DayTest, LowBarsAndTheReader) {
  modem().with_state([](State& state) { state.bars = 1; });
  open_module();
  EXPECT_EQ(bars(), 1u);
  EXPECT_EQ(asked("AT+GTBARS=1"), 1u);
  modem().update([](State& state) { state.bars = 0; });
  EXPECT_TRUE(log_capture::wait_for("D brio:bars changed 0 (prv_bars_callback:brio_module:"));
  EXPECT_EQ(bars(), 1u);  // never none while attached
  modem().clear_commands();
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp", "com.quarto.shelf.viewer");
  EXPECT_EQ(bars(), 1u);
  EXPECT_EQ(asked("AT+GTBARS=0"), 1u);
  test_clock::advance(100);
  EXPECT_EQ(bars(), 1u);
  EXPECT_EQ(asked("AT+GTBARS?"), 0u);
  NipcStandinRemoveProperty("com.quarto.appmgrd", "activeApp");
  EXPECT_EQ(bars(), 1u);
  EXPECT_EQ(asked("AT+GTBARS?"), 1u);
  EXPECT_EQ(NipcStandinUnfreedStrings(), 0u);
}

TEST_F(DayTest, OpensAndPollsWithoutTheIpcService) {
  NipcStandinFailOpen(1);
  open_module();
  EXPECT_EQ(bars(), 4u);
  EXPECT_TRUE(log_capture::has("E brio:get:param=com.quarto.appmgrd,error="));
  EXPECT_EQ(wabs_close(), 0u);
}

TEST_F(DayTest, ScanIsAbortedFromAnotherThread) {
  open_module();
  modem().with_state([](State& state) { state.scan_time = modemsim::Milliseconds(60000); });
  char buffer[512] = "";
  uint32_t result = 77;
  std::thread scan([&] { result = wabs_do_manual_nw_scan(buffer, sizeof(buffer)); });
  EXPECT_TRUE(modem().wait_command("AT+COPS=?"));
  EXPECT_EQ(wabs_abort_manual_nw_scan(), WABS_STATUS_SCAN_ABORTED);
  scan.join();
  EXPECT_EQ(result, WABS_STATUS_SCAN_ABORTED);
  EXPECT_EQ(wabs_send_abort_cmd(), WABS_STATUS_OK);
  // The scan had left the network.
  EXPECT_TRUE(eventually([&] { return bars() == WABS_BARS_NOT_ATTACHED; }));
  EXPECT_EQ(wabs_set_auto_mode(), WABS_STATUS_OK);
  EXPECT_TRUE(eventually([&] { return bars() == 4; }));
}

class IdentityTest : public DayTest {
 protected:
  // A carrier that does not fit the SIM: the whole correction is logged too.
  State initial_state() override {
    State state = DayTest::initial_state();
    state.carrier_id = 205;
    state.imsi = "310410772839465";  // digits that nothing else has
    return state;
  }

  // Digits of the identities as they stand and as the SIM stores them, but for the network's own at the
  // front.
  static void expect_masked(const State& state) {
    std::vector<std::string> identities = {state.imsi, state.iccid};
    for (std::string swapped : {state.iccid, "9" + state.imsi}) {
      for (size_t i = 0; i + 1 < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
      identities.push_back(swapped);
    }
    constexpr size_t kWindow = 8;  // longer than any MCC and MNC
    for (const auto& line : log_capture::lines()) {
      for (const std::string& identity : identities) {
        for (size_t at = 0; at + kWindow <= identity.size(); at++) {
          EXPECT_EQ(line.text.find(identity.substr(at, kWindow)), std::string::npos) << line.text;
        }
      }
    }
  }
};

TEST_F(IdentityTest, LogOfADayShowsNoSubscriber) {
  const State state = modem().state();
  char mask[16];
  snprintf(mask, sizeof(mask), "0x%08X\n", kAllButRawTraces);
  root().write("/var/local/wan/briolib_log_config", mask);
  wabs_set_log_mask(0xFFFFFFFFu);
  ASSERT_EQ(wabs_open(), WABS_STATUS_OK);
  EXPECT_EQ(g_brio_lib_log_mask, kAllButRawTraces);

  for (auto query : {wabs_get_imsi, wabs_get_radio_cert_param1, wabs_get_radio_cert_param2, wabs_get_realm,
                     wabs_get_radio_serial_number, wabs_get_firmware_version}) {
    text(query);
  }
  bars();
  plmn(wabs_get_mcc_mnc);
  plmn(wabs_get_hplmn_mcc_mnc);
  service_mode();
  roaming();
  offset();
  char page[8192];
  for (uint32_t mode : {0u, 1u, 1u, 1u}) EXPECT_EQ(wabs_get_log_string(page, sizeof(page), mode), 0u);
  EXPECT_EQ(wabs_exit_611_logging(), 0u);
  EXPECT_EQ(wabs_do_manual_nw_scan(page, sizeof(page)), WABS_STATUS_OK);
  EXPECT_EQ(wabs_set_auto_mode(), WABS_STATUS_OK);

  modem().update([](State& changed) {
    changed.bars = 1;
    changed.cs_stat = changed.ps_stat = 5;
  });
  for (const char* line : {"+CTZV: 8,\"26/03/07,09:05:00\"", "+CIEV: 9,\"26/03/07,09:05:00\",8,0",
                           "+GTBARS: 1,2,3,7", "+GTOTAREJECT: 1,7,310,410",
                           "+STKPCI: 0,\"D009810301010A82028182\"", "+JUNK: 1", "+GTSIMSTATUS: 3,0"}) {
    modem().urc(line);
  }
  EXPECT_TRUE(log_capture::wait_for("D brio:TIME ZONE FROM EVENT: 8 (", 2));
  EXPECT_EQ(brio_carrier_selection(), 0u);
  root().remove("/var/local/wan/static_info");
  EXPECT_EQ(brio_get_sim_static_info(1), 0u);

  test_clock::cap_waits(0.1);  // a request whose answer is not recognised times out
  // Answers that cannot be used, and those that arrive when nobody waits for them.
  for (const char* command : {"AT+CIMI", "AT+CCID", "AT+CRSM"}) {
    for (const std::string& answer : {state.imsi, state.iccid, "+CIMI " + state.imsi, "+CCID " + state.iccid,
                                      "+CIMI: \"" + state.imsi, "+CRSM: 144,0," + state.iccid}) {
      Fault fault;
      fault.command = command;
      fault.reply = "\r\n" + answer + "\r\n\r\nOK\r\n";
      fault.replace = true;
      modem().clear_faults();
      modem().fault(fault);
      sim_identity block;
      brio_get_sim_info(&block);
      brio_carrier_selection();
      brio_get_sim_static_info(1);
    }
  }
  test_clock::cap_waits(60);
  modem().clear_faults();
  modem().urc("+CCID: " + state.iccid);
  modem().urc("+CIMI: " + state.imsi);
  modem().urc("+CRSM: 144,0,\"" + state.iccid + "\"");
  modem().raw(modemsim::Port::kQuery, "\r\n" + state.imsi + "\r\n");
  modem().urc("+CTZV: 12,\"26/03/07,09:05:00\"");
  EXPECT_TRUE(log_capture::wait_for("D brio:TIME ZONE FROM EVENT: 12 ("));
  EXPECT_EQ(bars(), 1u);

  modem().unplug();
  EXPECT_TRUE(eventually([] { return brio_log_startup_status() == BRIO_STATUS_FATAL; }));
  EXPECT_EQ(wabs_close(), 0u);

  // The identities did pass through the log: masked, by the lines that carry them.
  EXPECT_TRUE(log_capture::has("D brio:iccid=********************"));
  EXPECT_GT(log_capture::lines().size(), 300u);
  expect_masked(state);
}

}  // namespace
