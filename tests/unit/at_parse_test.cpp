#include <gtest/gtest.h>
#include <syslog.h>

#include <cstring>
#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "support/exact_text.h"
#include "support/log_capture.h"

namespace {

constexpr uint32_t kRawTraces = BRIO_LOG_PORT | BRIO_LOG_AT_DETAIL | BRIO_LOG_URC;

struct Event {
  uint32_t id;
  uint32_t size;
  std::string data;
};
std::vector<Event> s_events;

uint32_t record_event(uint32_t id, uint32_t size, const void* data) {
  size_t bytes = id == BRIO_EVENT_TIME_INFO ? sizeof(network_time) : size;
  s_events.push_back({id, size, std::string(static_cast<const char*>(data), data != nullptr ? bytes : 0)});
  return 0;
}

class AtParse : public ::testing::Test {
 protected:
  void SetUp() override {
    briolib_log_set_log_mask(0);
    at_parse_init();
    briolib_lock_urc_data_mutex();
    briolib_init_atcmd_data(0);
    briolib_unlock_urc_data_mutex();
    for (uint32_t id = 0; id < BRIO_EVENT_COUNT; id++) brio_set_callback_for_event_id(id, record_event);
    s_events.clear();
    log_capture::clear();
  }

  static uint32_t parse(const std::string& line, void* argument_a = nullptr, void* argument_b = nullptr) {
    ExactText text(line);
    return at_parse(text.get(), argument_a, argument_b);
  }
  // An answer to the SIM file read `command`.
  static uint32_t crsm(const std::string& command, const std::string& line) {
    ExactText text(command);
    return parse(line, text.get());
  }
  static sim_info_data sim_info() {
    sim_info_data info;
    briolib_lock_static_data_mutex();
    briolib_get_sim_info_data(&info);
    briolib_unlock_static_data_mutex();
    return info;
  }
  static sim_plmn_data sim_plmn() {
    sim_plmn_data plmn;
    briolib_lock_static_data_mutex();
    briolib_get_sim_plmn_data(&plmn);
    briolib_unlock_static_data_mutex();
    return plmn;
  }
};

TEST_F(AtParse, MapIsSortedAndLogged) {
  briolib_log_set_log_mask(BRIO_LOG_DISPATCH);
  log_capture::clear();
  at_parse_init();
  const char* names[] = {"BASURC", "CCID", "CGREG",  "CIEV",        "CMT",         "CMTI",  "CREG",
                         "CRSM",   "CTZV", "GTBARS", "GTOTAREJECT", "GTSIMSTATUS", "STKPCI"};
  auto lines = log_capture::lines();
  ASSERT_EQ(std::size(names), lines.size());
  for (size_t i = 0; i < lines.size(); i++) {
    std::string end = ":prefix_to_parser map[" + std::to_string(i) + "]: " + names[i] + "\n";
    EXPECT_EQ(lines[i].text.size() - end.size(), lines[i].text.rfind(end)) << lines[i].text;
  }
}

TEST_F(AtParse, FindsTheParserOrSaysWhyNot) {
  struct Case {
    const char* line;
    uint32_t result;
    const char* log;  // part of the line it writes at warning or information priority; null for none
  };
  const Case cases[] = {
      {"RING", 4, ":line doesn't start with + skip parseRING:\n"},
      {"", 4, ":line doesn't start with + skip parse:\n"},
      {"+", 0, nullptr},
      {"+::", 0, nullptr},
      {"+XYZ: 1", 4, ":No URC Callback func avail XYZ:\n"},
      {"+CRE: 1", 4, ":No URC Callback func avail CRE:\n"},
      {"+CREGX: 1", 4, ":No URC Callback func avail CREGX:\n"},
      {"+creg: 1", 4, ":No URC Callback func avail creg:\n"},
      {"+ CREG: 1", 4, ":No URC Callback func avail  CREG:\n"},
      {"+AAA: 1", 4, ":No URC Callback func avail AAA:\n"},
      {"+ZZZ: 1", 4, ":No URC Callback func avail ZZZ:\n"},
      {"+CMTI", 0, "I blib:URC::+CMTI: \n"},
      {"+CMTI: \"SM\",3", 0, "I blib:URC::+CMTI:  \"SM\",3\n"},
      {"+:CMT:,24", 0, "I blib:URC::+CMT: ,24\n"},
      {"+CMT:::", 0, "I blib:URC::+CMT: ::\n"},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    EXPECT_EQ(c.result, parse(c.line)) << c.line;
    EXPECT_EQ(c.log != nullptr ? 1u : 0u, log_capture::lines().size()) << c.line;
    if (c.log != nullptr) {
      EXPECT_TRUE(log_capture::has(c.log)) << c.line;
      EXPECT_EQ(c.result == 0 ? LOG_INFO : LOG_WARNING, log_capture::lines()[0].priority);
    }
  }
  EXPECT_EQ(4u, at_parse(nullptr, nullptr, nullptr));
}

TEST_F(AtParse, RegistrationLinesKeepTheirSelectorAndAreNotEchoed) {
  EXPECT_EQ(0u, parse("+CREG: 5,\"1A2B\",\"01C2D3E4\",7"));
  EXPECT_EQ(2, g_brio_lib_atcmd_data.cs_reg_status);
  EXPECT_EQ(1u, log_capture::lines().size());
  EXPECT_TRUE(log_capture::has("I blib:URC::+CREG: 5,LAC,ID,7"));
  log_capture::clear();
  void* is_query = reinterpret_cast<void*>(uintptr_t{1});
  EXPECT_EQ(0u, parse("+CGREG: 2,1,\"1A2B\",\"01C2D3E4\",7", nullptr, is_query));
  EXPECT_EQ(1, g_brio_lib_atcmd_data.ps_reg_status);
  EXPECT_EQ(0u, log_capture::lines().size());
}

TEST_F(AtParse, EveryRowReachesItsParser) {
  EXPECT_EQ(0u, parse("+GTBARS: 7,3,61,-9"));
  EXPECT_EQ(3, g_brio_lib_atcmd_data.bars);
  EXPECT_EQ(61u, g_brio_lib_atcmd_data.signal_a);
  EXPECT_EQ(static_cast<uint32_t>(-9), g_brio_lib_atcmd_data.signal_b);
  ASSERT_EQ(1u, s_events.size());
  EXPECT_EQ(static_cast<uint32_t>(BRIO_EVENT_BARS_CHANGED), s_events[0].id);

  EXPECT_EQ(0u, parse("+GTOTAREJECT: 0,4,31,310,410"));
  EXPECT_EQ(31, g_brio_lib_atcmd_data.reject_bytes[3]);
  EXPECT_EQ(0u, parse("+BASURC: 320,-160,1"));
  EXPECT_EQ(20, g_brio_lib_atcmd_data.bas_value_a);
  EXPECT_EQ(1, g_brio_lib_atcmd_data.curr_lte_ant);
  log_capture::clear();
  EXPECT_EQ(0u, parse("+STKPCI: 0,\"D009\""));
  EXPECT_TRUE(log_capture::has("I blib:URC::+STKPCI:"));
}

TEST_F(AtParse, CardStatusGoesToTheCallersRecord) {
  sim_card_status record = {0, 15};
  EXPECT_EQ(0u, parse("+GTSIMSTATUS: 3,0", nullptr, &record));
  EXPECT_EQ(3u, record.card_status);
  EXPECT_EQ(0u, record.lock_status);
  record = {7, 15};
  EXPECT_EQ(0u, parse("+GTSIMSTATUS: 2", nullptr, &record));
  EXPECT_EQ(2u, record.card_status);
  EXPECT_EQ(15u, record.lock_status);
  record = {7, 15};
  EXPECT_EQ(0u, parse("+GTSIMSTATUS: ,4", nullptr, &record));
  EXPECT_EQ(7u, record.card_status);
  EXPECT_EQ(4u, record.lock_status);
  const char* error = ":prv_at_parse_gtsimstatus:line_ptr is invalid:\n";
  EXPECT_FALSE(log_capture::has(error));
  EXPECT_EQ(0u, parse("+GTSIMSTATUS: 3,0"));
  EXPECT_EQ(0u, parse("+GTSIMSTATUS:", nullptr, &record));
  EXPECT_EQ(0u, parse("+GTSIMSTATUS: ", nullptr, &record));
  EXPECT_EQ(3u, log_capture::count(error));
  EXPECT_EQ(7u, record.card_status);
}

TEST_F(AtParse, TimeIsStoredAndRaisedOnlyWhenComplete) {
  briolib_log_set_log_mask(BRIO_LOG_DEBUG);
  for (const char* line : {"+CTZV: -28", "+CTZV: 8,\"26/03,09:05:00+00000\"", "+CTZV:", "+CTZV: ",
                           "+CIEV: 2,5", "+CIEV: 9,\"26/03/07,9:05:00\",8,1", "+CIEV:"}) {
    EXPECT_EQ(0u, parse(line)) << line;
  }
  EXPECT_TRUE(s_events.empty());
  EXPECT_EQ(0u, g_brio_lib_atcmd_data.time_info[0]);
  EXPECT_TRUE(log_capture::has(":prv_at_parse_ctzv NO TIME INFO: \n"));
  EXPECT_TRUE(log_capture::has("E blib:briolib/src/at_parse:"));
  EXPECT_TRUE(log_capture::has(":prv_at_parse_ctzv:  line_ptr invalid:\n"));
  EXPECT_TRUE(log_capture::has(":prv_at_parse_ctzv skip parsing due to invalid len str =  \n"));
  EXPECT_TRUE(log_capture::has(":prv_at_parse_ciev:  line_ptr=  invalid:\n"));
  EXPECT_TRUE(log_capture::has(
      ":prv_at_parse_ciev skip parsing due to invalid len str = \"26/03/07,9:05:00\",8,1\n"));

  const network_time expected[] = {{3, 7, 9, 5, 0, 0xFF, 26, -28, -1}, {7, 31, 23, 59, 58, 0xFF, 26, 8, 1}};
  EXPECT_EQ(0u, parse("+CTZV: -28,\"26/03/07,09:05:00\""));
  EXPECT_EQ(0u, parse("+CIEV: 9,\"26/07/31,23:59:58\",8,1"));
  ASSERT_EQ(2u, s_events.size());
  for (size_t i = 0; i < 2; i++) {
    EXPECT_EQ(static_cast<uint32_t>(BRIO_EVENT_TIME_INFO), s_events[i].id);
    EXPECT_EQ(4u, s_events[i].size);
    EXPECT_EQ(0, memcmp(&expected[i], s_events[i].data.data(), sizeof(network_time))) << i;
  }
  EXPECT_EQ(0, memcmp(&expected[1], g_brio_lib_atcmd_data.time_info, sizeof(network_time)));
  for (const char* text :
       {":CTZV TimeZone string = -28\n", ":year: 26\n", ":month: 3\n", ":day: 7\n", ":hour: 9\n",
        ":minute: 5\n", ":second: 0\n", ":time string: 09:05:00\"\n", ":date: 26/07/31, year: 26\n",
        ":time string = 23:59:58\"\n", ":timezone string = 8\n", ":dst string = 1\n",
        ":time_info date = 26/7/31\n", ":time_info time = 23:59:58\n", ":time_info timezone = 8\n",
        ":time_info dst = 1\n"}) {
    EXPECT_TRUE(log_capture::has(text)) << text;
  }
}

TEST_F(AtParse, LocationFilesAreBoundedTexts) {
  const std::string digits(60, 'A');
  struct Case {
    const char* command;
    size_t length;
    const char* (*field)(const sim_info_data&);
  };
  const Case cases[] = {
      {"AT+CRSM=176,28643,0,0,18", 36, [](const sim_info_data& info) { return info.epsloci; }},
      {"AT+CRSM=176,28531,0,0,14", 28, [](const sim_info_data& info) { return info.psloci; }},
      {"AT+CRSM=176,28542,0,0,11", 22, [](const sim_info_data& info) { return info.loci; }},
  };
  for (const auto& c : cases) {
    for (size_t length : {size_t{60}, c.length + 1, c.length, c.length - 1, size_t{1}}) {
      std::string data = digits.substr(0, length);
      EXPECT_EQ(0u, crsm(c.command, "+CRSM: 144,0,\"" + data + "\""));
      EXPECT_EQ(data.substr(0, c.length), c.field(sim_info())) << c.command << " " << length;
    }
  }
}

TEST_F(AtParse, ListsAreReplacedWholeAndCountsAreNotCapped) {
  struct Case {
    const char* command;
    uint16_t count;  // decoded entries of the answer below
    size_t capacity;
    const plmn_entry* (*list)(const sim_plmn_data&);
    uint16_t (*stored)(const sim_plmn_data&);
  };
  const Case cases[] = {
      {"AT+CRSM=176,28512,0,0,0", 270, 260, [](const sim_plmn_data& d) { return d.uplmn; },
       [](const sim_plmn_data& d) { return d.uplmn_count; }},
      {"AT+CRSM=176,28513,0,0,0", 270, 260, [](const sim_plmn_data& d) { return d.oplmn; },
       [](const sim_plmn_data& d) { return d.oplmn_count; }},
      {"AT+CRSM=176,28514,0,0,0", 270, 10, [](const sim_plmn_data& d) { return d.hplmn; },
       [](const sim_plmn_data& d) { return d.hplmn_count; }},
      {"AT+CRSM=176,28539,0,0,0", 270, 40, [](const sim_plmn_data& d) { return d.fplmn; },
       [](const sim_plmn_data& d) { return d.fplmn_count; }},
      {"AT+CRSM=176,28633,0,0,0", 270, 10, [](const sim_plmn_data& d) { return d.ehplmn; },
       [](const sim_plmn_data& d) { return d.ehplmn_count; }},
  };
  std::string data;
  for (int i = 0; i < 270; i++) data += "1300624000";
  for (const auto& c : cases) {
    const sim_plmn_data before = sim_plmn();
    EXPECT_EQ(0u, crsm(c.command, "+CRSM: 144,0,\"" + data + "\""));
    sim_plmn_data after = sim_plmn();
    EXPECT_EQ(c.count, c.stored(after)) << c.command;
    for (size_t i = 0; i < c.capacity; i++) {
      EXPECT_STREQ("310", c.list(after)[i].mcc);
      EXPECT_STREQ("260", c.list(after)[i].mnc);
    }
    // One entry replaces all of them, and nothing but this list has changed.
    EXPECT_EQ(0u, crsm(c.command, "+CRSM: 144,0,\"62F2100080\""));
    after = sim_plmn();
    EXPECT_EQ(1, c.stored(after));
    EXPECT_STREQ("262", c.list(after)[0].mcc);
    EXPECT_STREQ("", c.list(after)[1].mcc);
    EXPECT_STREQ("", c.list(after)[c.capacity - 1].mcc);
    EXPECT_EQ(0, memcmp(before.home_mcc, after.home_mcc, 8));
    // A refused answer leaves it alone.
    EXPECT_EQ(0u, crsm(c.command, "+CRSM: 106,130"));
    EXPECT_EQ(1, c.stored(sim_plmn()));
  }
  sim_plmn_data all = sim_plmn();
  EXPECT_EQ(1, all.uplmn_count);
  EXPECT_EQ(1, all.ehplmn_count);
}

TEST_F(AtParse, FileAnswersThatCannotBeUsedAreReported) {
  struct Case {
    const char* command;
    const char* line;
    const char* log;
  };
  const Case cases[] = {
      {"", "+CRSM: 144,0,\"AA\"", ":prv_at_parse_crsm:command_data or line_ptr is invalid:\n"},
      {"AT+CRSM=176,28542,0,0,11", "+CRSM:", ":prv_at_parse_crsm:command_data or line_ptr is invalid:\n"},
      {"AT+CRSM=176,28542,0,0,11", "+CRSM: 144", ":prv_at_parse_crsm:sw1 or sw2 null:\n"},
      {"AT+CRSM=176,28542,0,0,11", "+CRSM: 146,0,\"AA\"", ":prv_at_parse_crsm:sw1 and sw2 error:\n"},
      {"AT+CRSM=176,28542,0,0,11", "+CRSM: 144,0", ":prv_at_parse_crsm:no  at the end of the string:\n"},
      {"AT+CRSM=176,28540,0,0,11", "+CRSM: 144,0,\"AA\"",
       ":prv_at_parse_crsm:unhandled command_data = AT+CRSM=176,28540,0,0,11:\n"},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    EXPECT_EQ(0u, crsm(c.command, c.line));
    EXPECT_TRUE(log_capture::has(c.log)) << c.line;
  }
  log_capture::clear();
  EXPECT_EQ(0u, parse("+CRSM: 144,0,\"AA\""));
  EXPECT_TRUE(log_capture::has(cases[0].log));
}

TEST_F(AtParse, IccidIsStoredAndNeverLogged) {
  briolib_log_set_log_mask(~kRawTraces);
  log_capture::clear();
  EXPECT_EQ(0u, parse("+CCID: 89014103211118510720"));
  EXPECT_STREQ("89014103211118510720", sim_info().iccid);
  EXPECT_EQ(0u, crsm("AT+CRSM=176,12258,0,0,0", "+CRSM: 144,0,\"981014301211811570F3\""));
  EXPECT_STREQ("8901410321111851073", std::string(sim_info().iccid).substr(0, 19).c_str());
  // Lines that no parser takes, or that hold the number where it does not belong.
  EXPECT_EQ(4u, parse("89014103211118510720"));
  EXPECT_EQ(4u, parse("+CIMI: 310410123456789"));
  EXPECT_EQ(4u, parse("+89014103211118510720: 1"));
  EXPECT_EQ(0u, parse("+CRSM: 144,0,\"98101430121181157002\""));
  EXPECT_EQ(0u, crsm("AT+CRSM=176,12258,0,0,0", "+CRSM: 98101430121181157002"));
  EXPECT_EQ(0u, parse("+CCID: 8901"));
  EXPECT_STREQ("8901", sim_info().iccid);
  EXPECT_GT(log_capture::lines().size(), 15u);
  for (const auto& line : log_capture::lines()) {
    for (const char* part : {"8901", "9810", "31041"}) {
      EXPECT_EQ(std::string::npos, line.text.find(part)) << line.text;
    }
  }
  EXPECT_TRUE(log_capture::has("I blib:URC::+CCID:  ********************\n"));
  EXPECT_TRUE(log_capture::has(":at_parse input:+CCID: ********************\n"));
  EXPECT_TRUE(log_capture::has(":crsm, sw1[144] sw2[0]\n"));
  EXPECT_TRUE(log_capture::has(":sim_info_data.iccid =  *******************\n"));
}

TEST_F(AtParse, EventsReachTheirOwnCallbackOnly) {
  EXPECT_EQ(6u, brio_set_callback_for_event_id(10, record_event));
  EXPECT_EQ(6u, brio_set_callback_for_event_id(0xFFFFFFFFu, record_event));
  EXPECT_EQ(0u, brio_set_callback_for_event_id(4, nullptr));
  int32_t value = 3;
  briolib_exec_event_callback(4, sizeof(value), &value);
  briolib_exec_event_callback(10, sizeof(value), &value);
  EXPECT_TRUE(s_events.empty());
  EXPECT_TRUE(log_capture::lines().empty());
  briolib_exec_event_callback(5, 0, nullptr);
  briolib_exec_event_callback(0, sizeof(value), &value);
  ASSERT_EQ(2u, s_events.size());
  EXPECT_EQ(5u, s_events[0].id);
  EXPECT_EQ(0u, s_events[0].size);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(&value), 4), s_events[1].data);
  briolib_exec_event_callback(0, 4, nullptr);
  EXPECT_EQ(2u, s_events.size());
  EXPECT_TRUE(log_capture::has(":bdparexec:id=0:bad param when executing event callback\n"));
}

}  // namespace
