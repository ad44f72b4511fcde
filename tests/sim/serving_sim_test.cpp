// Serving network, small getters and stored messages on a simulated modem.
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

unsigned s_plmn_events = 0;

uint32_t count_plmn_event(uint32_t id, uint32_t size, const void* data) {
  EXPECT_EQ(id, static_cast<uint32_t>(BRIO_EVENT_SERVING_PLMN_CHANGED));
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(data, nullptr);
  s_plmn_events++;
  return 0;
}

class ServingSim : public SimFixture {
 protected:
  void SetUp() override {
    SimFixture::SetUp();
    open_ready();
  }

  static brio_atcmd_data record() {
    brio::UrcDataLock lock;
    return g_brio_lib_atcmd_data;
  }
  template <typename Change>
  static void change(Change apply) {
    brio::UrcDataLock lock;
    apply(g_brio_lib_atcmd_data);
  }

  void answer(const std::string& command, const std::string& lines) {
    modemsim::Fault fault;
    fault.command = command;
    fault.replace = true;
    fault.reply = lines;
    modem().clear_faults();
    modem().fault(fault);
  }
};

TEST_F(ServingSim, Operator) {
  EXPECT_EQ(briolib_update_mcc_mnc(), 0u);
  EXPECT_STREQ(record().mcc, "310");
  EXPECT_STREQ(record().mnc, "410");
  EXPECT_EQ(record().cops_mode, 0);
  answer("AT+COPS?", "\r\n+COPS: 4,2,\"26201\",7\r\n\r\nOK\r\n");
  EXPECT_EQ(briolib_update_mcc_mnc(), 0u);
  EXPECT_STREQ(record().mnc, "01");
  EXPECT_EQ(record().cops_mode, -1);
  char text[8];
  EXPECT_EQ(brio_get_mcc_mnc(text), 0u);
  EXPECT_STREQ(text, "262");
  EXPECT_STREQ(text + 4, "01");

  set_log_mask(BRIO_LOG_DEBUG);
  struct {
    const char* lines;
    const char* log;
  } const refused[] = {
      {"\r\nOK\r\n", "recv_func_prv_briolib_update_mcc_mnc::response is invalid"},
      {"\r\nERROR\r\n", "blpktstat:AT_err_string"},
      {"\r\n+COPS: 1\r\n\r\nOK\r\n", "D blib:briolib/src/brio_common:"},
      {"\r\n+COPS: 1,2,\"310410\r\n\r\nOK\r\n", "::no valid MCCMNC found +COPS: 1,2,\"310410:"},
      {"\r\n+COPS: 1,2,\"2620\",7\r\n\r\nOK\r\n", "::no valid MCCMNC found, incorrect len "},
      {"\r\n+COPS: 1,0,\"Tango\",7\r\n\r\nOK\r\n", "::no valid MCCMNC found, incorrect format "},
  };
  for (const auto& c : refused) {
    SCOPED_TRACE(c.lines);
    log_capture::clear();
    answer("AT+COPS?", c.lines);
    EXPECT_EQ(briolib_update_mcc_mnc(), 5u);
    EXPECT_TRUE(log_capture::has(c.log));
    EXPECT_STREQ(record().mcc, "262");
  }
  EXPECT_EQ(record().cops_mode, 1) << "the mode is kept also of an answer without operator";
  set_log_mask(0);
}

TEST_F(ServingSim, CellAndStates) {
  const modemsim::State state = modem().state();
  EXPECT_EQ(briolib_get_gtscinfo(), 0u);
  EXPECT_EQ(briolib_update_lte_info(), 0u);
  EXPECT_EQ(briolib_get_gtscstat(), 0u);
  EXPECT_EQ(modem().commands(), (Commands{"AT+GTSCINFO?", "AT+GTLTEINFO?", "AT+GTSCSTAT?"}));
  const brio_atcmd_data data = record();
  EXPECT_STREQ(data.plmn_text, state.plmn_text.c_str());
  EXPECT_STREQ(data.band_text, state.band_text.c_str());
  EXPECT_EQ(data.arfcn, state.arfcn);
  EXPECT_EQ(data.tac, state.tac);
  EXPECT_EQ(data.cell_id, static_cast<uint32_t>(state.cell_id));
  EXPECT_STREQ(data.mcc, "310");
  EXPECT_STREQ(data.mnc, "410");
  EXPECT_EQ(data.emm_state, state.emm_state);
  EXPECT_EQ(data.pdp_state, state.pdp_state);
  EXPECT_EQ(data.mm_state, state.mm_state);
  EXPECT_EQ(data.gmm_substate, state.gmm_substate);
  EXPECT_EQ(data.rrc_state, state.rrc_state);
}

TEST_F(ServingSim, UnusableCellAnswers) {
  struct {
    const char* command;
    uint32_t (*query)(void);
    const char* line;  // with the prefix, but nothing behind it
    uint32_t line_status;
    const char* missing_log;
  } const cases[] = {
      {"AT+GTSCINFO?", briolib_get_gtscinfo, "+GTSCINFO", 4,
       "recv_func_at_req_get_gtscinfo:at_resp is invalid:"},
      {"AT+GTLTEINFO?", briolib_update_lte_info, "+GTLTEINFO", 0,
       "briolib_update_lte_info:at_resp is invalid:"},
      {"AT+GTSCSTAT?", briolib_get_gtscstat, "+GTSCSTAT", 4, "briolib_get_gtscstat:at_resp is invalid:"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    const brio_atcmd_data before = record();
    answer(c.command, "\r\nOK\r\n");
    EXPECT_EQ(c.query(), 4u);
    EXPECT_TRUE(log_capture::has(c.missing_log));
    answer(c.command, std::string("\r\n") + c.line + "\r\n\r\nOK\r\n");
    EXPECT_EQ(c.query(), c.line_status);
    answer(c.command, "\r\nERROR\r\n");
    EXPECT_EQ(c.query(), 4u);
    const brio_atcmd_data after = record();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof(before)), 0);
  }
}

TEST_F(ServingSim, NetworkTime) {
  network_time time;
  std::memset(&time, 0x55, sizeof(time));
  EXPECT_EQ(brio_get_network_time(&time), 0u);
  network_time expected = {};
  expected.time_zone = -28;
  EXPECT_EQ(std::memcmp(&time, &expected, sizeof(time)), 0);
  EXPECT_TRUE(log_capture::has("I blib:Timezone info updated[-28]::"));
  EXPECT_EQ(brio_get_network_time(nullptr), 6u);
  for (const char* lines :
       {"\r\nOK\r\n", "\r\nERROR\r\n", "\r\n+CCLK: \"26/03/07,09:05:00\"\r\n\r\nOK\r\n"}) {
    answer("AT+CCLK?", lines);
    std::memset(&time, 0x55, sizeof(time));
    EXPECT_EQ(brio_get_network_time(&time), 5u);
    EXPECT_EQ(time.month, 0x55) << "untouched";
  }
  EXPECT_TRUE(log_capture::has("recv_func_prv_briolib_get_timezone::response is invalid"));
  EXPECT_TRUE(log_capture::has("::no valid tz info found +CCLK: \"26/03/07,09:05:00\":"));
}

TEST_F(ServingSim, DataServiceModeByAccessTechnology) {
  const uint32_t expected[] = {1, 0, 3, 2, 3, 3, 3, 5, 0};
  for (uint32_t rat = 0; rat < 256; rat++) {
    change([rat](brio_atcmd_data& data) { data.rat = static_cast<uint8_t>(rat); });
    uint32_t mode = 77;
    EXPECT_EQ(brio_get_data_service_mode(&mode), 0u);
    EXPECT_EQ(mode, rat <= 8 ? expected[rat] : 0u) << rat;
  }
  EXPECT_EQ(brio_get_data_service_mode(nullptr), 6u);
}

TEST_F(ServingSim, CopiedFields) {
  change([](brio_atcmd_data& data) {
    data.band = 1900;
    data.wan_type = 7;
    data.carrier_config = -1;
  });
  uint32_t word = 0;
  EXPECT_EQ(brio_get_band_info(&word), 0u);
  EXPECT_EQ(word, 1900u);
  EXPECT_EQ(brio_get_wan_type(&word), 0u);
  EXPECT_EQ(word, 7u);
  uint16_t carrier = 0;
  EXPECT_EQ(brio_get_carrier_id(&carrier), 0u);
  EXPECT_EQ(carrier, 0xFFFF);
  const uint32_t roaming[] = {0, 1, 2, 0};
  for (uint8_t status = 0; status < 4; status++) {
    change([status](brio_atcmd_data& data) { data.cs_reg_status = status; });
    EXPECT_EQ(brio_get_roaming_status(&word), 0u);
    EXPECT_EQ(word, roaming[status]);
  }
  EXPECT_EQ(brio_get_band_info(nullptr), 6u);
  EXPECT_EQ(brio_get_wan_type(nullptr), 6u);
  EXPECT_EQ(brio_get_carrier_id(nullptr), 6u);
  EXPECT_EQ(brio_get_mcc_mnc(nullptr), 6u);
  EXPECT_EQ(brio_get_roaming_status(nullptr), 6u);
}

TEST_F(ServingSim, EveryGetterIsGated) {
  brio_close();
  modem().clear_commands();
  uint32_t word = 77;
  uint32_t other = 77;
  uint16_t carrier = 77;
  char text[8] = "kept";
  network_time time = {};
  EXPECT_EQ(brio_get_band_info(&word), 1u);
  EXPECT_EQ(brio_get_wan_type(&word), 1u);
  EXPECT_EQ(brio_get_carrier_id(&carrier), 1u);
  EXPECT_EQ(brio_get_mcc_mnc(text), 1u);
  EXPECT_EQ(brio_get_roaming_status(&word), 1u);
  EXPECT_EQ(brio_get_data_service_mode(&word), 1u);
  EXPECT_EQ(brio_get_data_service_mode(nullptr), 6u) << "in front of the gate";
  EXPECT_EQ(brio_get_pdp_context_activation_allowed(&word, &other), 1u);
  EXPECT_EQ(brio_get_pdp_context_activation_allowed(&word, nullptr), 6u);
  EXPECT_EQ(brio_get_network_time(&time), 1u);
  EXPECT_EQ(briolib_update_mcc_mnc(), 1u);
  EXPECT_EQ(brio_clear_sms(), 1u);
  EXPECT_EQ(word, 77u);
  EXPECT_EQ(carrier, 77);
  EXPECT_STREQ(text, "kept");
  EXPECT_TRUE(modem().commands().empty());
}

TEST_F(ServingSim, PermissionRefreshesAPlaceholderOperator) {
  brio_set_callback_for_event_id(BRIO_EVENT_SERVING_PLMN_CHANGED, count_plmn_event);
  uint32_t attached = 77;
  uint32_t allowed = 77;
  for (const char* placeholder : {"FFF", "fff", "555"}) {
    SCOPED_TRACE(placeholder);
    s_plmn_events = 0;
    modem().clear_commands();
    change([placeholder](brio_atcmd_data& data) { std::strcpy(data.mcc, placeholder); });
    for (int i = 0; i < 3; i++) {
      EXPECT_EQ(brio_get_pdp_context_activation_allowed(&attached, &allowed), 0u);
      EXPECT_EQ(attached, 1u);
      EXPECT_EQ(allowed, 1u);
    }
    EXPECT_EQ(modem().commands(), (Commands{"AT+COPS?"}));
    EXPECT_EQ(s_plmn_events, 1u);
    EXPECT_STREQ(record().mcc, "310");
    EXPECT_TRUE(log_capture::has(std::string("I blib:OK to start PDP, MCC ") + placeholder +
                                 " need to be updated: 0::"));
  }
  // An operator that stays unknown is asked for and reported each time.
  s_plmn_events = 0;
  change([](brio_atcmd_data& data) { std::strcpy(data.mcc, "FFF"); });
  answer("AT+COPS?", "\r\nERROR\r\n");
  for (int i = 0; i < 2; i++) EXPECT_EQ(brio_get_pdp_context_activation_allowed(&attached, &allowed), 0u);
  EXPECT_EQ(s_plmn_events, 2u);
  EXPECT_TRUE(log_capture::has("need to be updated: 5::"));
  brio_set_callback_for_event_id(BRIO_EVENT_SERVING_PLMN_CHANGED, nullptr);
}

TEST_F(ServingSim, RegistrationIsAskedForOnceAMinute) {
  modem().with_state([](modemsim::State& state) { state.ps_stat = 0; });
  change([](brio_atcmd_data& data) { data.ps_reg_status = 3; });
  uint32_t attached = 77;
  uint32_t allowed = 77;
  auto asked = [&] {
    modem().clear_commands();
    EXPECT_EQ(brio_get_pdp_context_activation_allowed(&attached, &allowed), 0u);
    EXPECT_EQ(attached, 0u);
    EXPECT_EQ(allowed, 0u);
    return modem().commands() == Commands{"AT+CREG?", "AT+CGREG?"};
  };
  EXPECT_TRUE(asked()) << "never asked before";
  EXPECT_FALSE(asked());
  test_clock::advance(59);
  EXPECT_FALSE(asked());
  test_clock::advance(2);
  EXPECT_TRUE(asked());
  EXPECT_FALSE(asked());
  // The time outlives a close.
  brio_close();
  open_ready();
  EXPECT_FALSE(asked());
  test_clock::advance(61);
  test_clock::fail_monotonic(true);
  EXPECT_EQ(brio_get_pdp_context_activation_allowed(&attached, &allowed), 0u);
  EXPECT_EQ(allowed, 0u);
  test_clock::fail_monotonic(false);
  EXPECT_TRUE(asked()) << "an unreadable clock only put it off";
}

TEST_F(ServingSim, ClearSms) {
  EXPECT_EQ(brio_clear_sms(), 0u);
  EXPECT_EQ(modem().commands(), (Commands{"AT+CMGD=1,4"}));
  answer("AT+CMGD", "\r\n+CMS ERROR: 310\r\n");
  EXPECT_EQ(brio_clear_sms(), 5u);
  EXPECT_TRUE(log_capture::has("clearSMS::failed to clear SMS"));
}

}  // namespace
