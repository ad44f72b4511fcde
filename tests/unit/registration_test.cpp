// Registration lines: the parser, and what the library keeps, logs and raises.
#include "parse/registration.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio_common/shared_data.h"
#include "support/exact_text.h"
#include "support/log_capture.h"

namespace {

using brio::parse::kRegBand;
using brio::parse::kRegCellId;
using brio::parse::kRegLac;
using brio::parse::kRegRat;
using brio::parse::kRegRejectCause;
using brio::parse::kRegRejectType;
using brio::parse::kRegStat;
using brio::parse::Registration;

struct Case {
  const char* name;
  std::string payload;
  bool is_query;
  bool with_band;
  Registration expected;  // summary and token_count included; band_place is implied by the band tests
};

Registration parsed(uint32_t fields, int32_t stat, uint16_t lac, uint32_t cell_id, uint8_t rat,
                    const char* summary) {
  Registration line = {};
  line.fields = fields;
  line.stat = stat;
  line.lac = lac;
  line.cell_id = cell_id;
  line.rat = rat;
  std::strncpy(line.summary, summary, sizeof(line.summary) - 1);
  return line;
}

Registration rejected(Registration line, uint32_t fields, int32_t type, uint8_t cause, uint32_t band = 0) {
  line.fields |= fields;
  line.reject_type = type;
  line.reject_cause = cause;
  line.band = band;
  return line;
}

constexpr uint32_t kCell = kRegLac | kRegCellId;

TEST(RegistrationParser, Lines) {
  const Registration roaming = parsed(kRegStat | kCell | kRegRat, 5, 6699, 29545444, 7, "5,LAC,ID,7");
  const Registration home = parsed(kRegStat | kCell | kRegRat, 1, 6699, 29545444, 7, "1,LAC,ID,7");
  auto with_summary = [](Registration line, const char* summary) {
    std::memset(line.summary, 0, sizeof(line.summary));
    std::strncpy(line.summary, summary, sizeof(line.summary) - 1);
    return line;
  };
  const uint32_t kReject = kRegRejectType | kRegRejectCause;
  const std::vector<Case> cases = {
      {"unsolicited", " 5,\"1A2B\",\"01C2D3E4\",7", false, false, roaming},
      {"query answer", " 2,1,\"1A2B\",\"01C2D3E4\",7", true, false, home},
      {"query answer of mode 99", " 99,1,\"1A2B\",\"01C2D3E4\",7,104", true, true,
       rejected(home, kRegBand, 0, 0, 104)},
      {"stat only", " 0", false, false, parsed(kRegStat, 0, 0, 0, 0, "0")},
      {"query with stat only", "2,1", true, false, parsed(kRegStat, 1, 0, 0, 0, "1")},
      {"query without stat", "2", true, false, {}},
      {"nothing", "", false, false, {}},
      {"blank only", "  ", false, false, {}},
      {"no reject fields of WAN type 7", " 3,\"1A2B\",\"01C2D3E4\",7,\"0\",\"11\"", false, false,
       with_summary(rejected(parsed(kRegStat | kCell | kRegRat, 3, 6699, 29545444, 7, ""), kReject, 0, 11),
                    "3,LAC,ID,7,0,11")},
      {"band, then reject", " 3,\"1A2B\",\"01C2D3E4\",7,1900,\"0\",\"11\"", false, true,
       with_summary(rejected(parsed(kRegStat | kCell | kRegRat, 3, 6699, 29545444, 7, ""), kReject | kRegBand,
                             0, 11, 1900),
                    "3,LAC,ID,7,0,11")},
      {"unlisted band uses up its place", " 3,\"1A2B\",\"01C2D3E4\",7,3,\"1\",\"15\"", false, true,
       with_summary(rejected(parsed(kRegStat | kCell | kRegRat, 3, 6699, 29545444, 7, ""), kReject, 1, 15),
                    "3,LAC,ID,7,1,15")},
      {"empty band uses up its place", "3,\"1A2B\",\"01C2D3E4\",7,,\"1\",\"15\"", false, true,
       with_summary(rejected(parsed(kRegStat | kCell | kRegRat, 3, 6699, 29545444, 7, ""), kReject, 1, 15),
                    "3,LAC,ID,7,1,15")},
      {"empty fields hold their places", "1,,,7", false, false,
       parsed(kRegStat | kRegRat, 1, 0, 0, 7, "1,7")},
      {"empty stat", ",\"1A2B\",\"01C2D3E4\",7", false, false,
       parsed(kCell | kRegRat, 0, 6699, 29545444, 7, ",LAC,ID,7")},
      // The last character of a quoted field goes, whatever it is.
      {"missing closing quotes", "1,\"1A2B,\"01C2D3E4,2", false, false,
       parsed(kRegStat | kCell | kRegRat, 1, 0x1A2, 0x1C2D3E, 2, "1,LAC,ID,2")},
      {"one-character fields", "1,\",\",2", false, false,
       parsed(kRegStat | kCell | kRegRat, 1, 0, 0, 2, "1,LAC,ID,2")},
      {"quotes around nothing", "1,\"\",\"\",2", false, false,
       parsed(kRegStat | kCell | kRegRat, 1, 0, 0, 2, "1,LAC,ID,2")},
      {"blanks", " 1, \"1A2B\", \"01C2D3E4\", 7", false, false, home},
      {"too wide values keep their low bits", "1,\"F1A2B\",\"F01C2D3E4\",263", false, false, home},
      {"text for a stat", "x", false, false, parsed(kRegStat, 0, 0, 0, 0, "0")},
      {"fields behind the reject cause", "1,\"1A2B\",\"01C2D3E4\",7,\"0\",\"11\",8,9,10", false, false,
       with_summary(rejected(home, kReject, 0, 11), "1,LAC,ID,7,0,11")},
      {"summary cut at 32 characters", "-2147483648,\"1A2B\",\"01C2D3E4\",255,\"-2147483648\",\"200\"", false,
       false,
       with_summary(rejected(parsed(kRegStat | kCell | kRegRat, INT32_MIN, 6699, 29545444, 255, ""), kReject,
                             INT32_MIN, 200),
                    "-2147483648,LAC,ID,255,-21474836")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ExactText payload(c.payload);
    Registration line = brio::parse::parse_registration(payload.get(), c.is_query, c.with_band);
    EXPECT_EQ(line.fields, c.expected.fields);
    EXPECT_EQ(line.stat, c.expected.stat);
    EXPECT_EQ(line.lac, c.expected.lac);
    EXPECT_EQ(line.cell_id, c.expected.cell_id);
    EXPECT_EQ(line.rat, c.expected.rat);
    EXPECT_EQ(line.band, c.expected.band);
    EXPECT_EQ(line.reject_type, c.expected.reject_type);
    EXPECT_EQ(line.reject_cause, c.expected.reject_cause);
    EXPECT_STREQ(line.summary, c.expected.summary);
  }
}

TEST(RegistrationParser, EveryBand) {
  const std::vector<uint32_t> listed = {1,   2,   5,   6,   8,   101, 102, 103,  104, 105,
                                        108, 109, 112, 119, 120, 850, 900, 1800, 1900};
  size_t found = 0;
  for (uint32_t band = 0; band < 2200; band++) {
    ExactText payload("1,\"1A2B\",\"01C2D3E4\",7," + std::to_string(band));
    Registration line = brio::parse::parse_registration(payload.get(), false, true);
    if ((line.fields & kRegBand) == 0) continue;
    ASSERT_LT(found, listed.size());
    EXPECT_EQ(line.band, listed[found++]);
  }
  EXPECT_EQ(found, listed.size());
}

TEST(RegistrationParser, LongFieldsStayInTheirBuffers) {
  std::string digits(3000, '1');
  for (bool with_band : {false, true}) {
    ExactText payload(digits + ",\"" + digits + "\",\"" + digits + "\"," + digits + "," + digits + ",\"" +
                      digits + "\"," + digits);
    Registration line = brio::parse::parse_registration(payload.get(), false, with_band);
    EXPECT_EQ(line.token_count, 7u);
    EXPECT_EQ(line.lac, 0xFFFF);
    EXPECT_LE(std::strlen(line.summary), 32u);
  }
}

TEST(UsimRefresh, Pattern) {
  const std::string refresh = "0,\"D009810301010082028182\"";
  struct {
    const char* name;
    std::string text;
    bool expected;
  } const cases[] = {
      {"plain", refresh, true},
      {"leading blanks", "  " + refresh, true},
      {"unexamined positions", "xyzD0....03..010082028182", true},
      {"ends at the last position", refresh.substr(0, 25), true},
      {"one short", refresh.substr(0, 24), false},
      {"24 characters, of which blanks are skipped", "    " + refresh.substr(0, 20), false},
      {"another tag", "0,\"D109810301010082028182\"", false},
      {"another length", "0,\"D009810401010082028182\"", false},
      {"another command", "0,\"D009810301020082028182\"", false},
      {"another qualifier", "0,\"D009810301010182028182\"", false},
      {"another device tag", "0,\"D009810301010083028182\"", false},
      {"another source", "0,\"D009810301010082028282\"", false},
      {"another destination", "0,\"D009810301010082028181\"", false},
      {"blanks only", std::string(40, ' '), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ExactText text(c.text);
    EXPECT_EQ(brio::parse::is_usim_refresh(text.get()), c.expected);
  }
}

// ---- What the library keeps

struct Event {
  uint32_t id;
  uint32_t size;
  std::vector<uint32_t> words;
};
std::vector<Event> s_events;

uint32_t record_event(uint32_t id, uint32_t size, const void* data) {
  const auto* words = static_cast<const uint32_t*>(data);
  s_events.push_back({id, size, {words, words + size / sizeof(uint32_t)}});
  return 0;
}

class RegistrationState : public ::testing::Test {
 protected:
  void SetUp() override {
    log_capture::clear();
    g_brio_lib_log_mask = BRIO_LOG_REG | BRIO_LOG_DEREG;
    s_events.clear();
    std::memset(s_pdp_event, 0, sizeof(s_pdp_event));
    std::memset(s_prev_pdp_event, 0, sizeof(s_prev_pdp_event));
    brio_set_callback_for_event_id(BRIO_EVENT_PDP_ACTIVATION_ALLOWED, record_event);
    brio::UrcDataLock lock;
    briolib_init_atcmd_data(0);
  }
  void TearDown() override { brio_set_callback_for_event_id(BRIO_EVENT_PDP_ACTIVATION_ALLOWED, nullptr); }

  void creg(const std::string& payload, int is_query = 0) { parse(payload, 1, is_query); }
  void cgreg(const std::string& payload, int is_query = 0) { parse(payload, 0, is_query); }

  brio_atcmd_data& data = g_brio_lib_atcmd_data;

 private:
  static void parse(const std::string& payload, int is_cs, int is_query) {
    ExactText text(payload);
    brio::UrcDataLock lock;
    briolib_parse_reg_status(text.get(), is_cs, is_query);
  }
};

TEST_F(RegistrationState, UnsolicitedRoamingCs) {
  creg(" 5,\"1A2B\",\"01C2D3E4\",7");
  EXPECT_EQ(data.cs_reg_status, 2);
  EXPECT_EQ(data.lac, 6699);
  EXPECT_EQ(data.cell_id, 29545444u);
  EXPECT_EQ(data.rat, 7);
  EXPECT_EQ(data.rat_valid, 1);
  EXPECT_TRUE(log_capture::has("I blib:URC::+CREG: 5,LAC,ID,7"));
  EXPECT_TRUE(log_capture::has("PARSE_REG:index[1]token[ 5]"));
  EXPECT_TRUE(log_capture::has("PARSE_REG:index[4]token[7]"));
  EXPECT_TRUE(s_events.empty());
}

TEST_F(RegistrationState, QueryAnswerIgnoresTheModeAndIsNotReported) {
  creg(" 2,1,\"1A2B\",\"01C2D3E4\",7", 1);
  EXPECT_EQ(data.cs_reg_status, 1);
  EXPECT_EQ(data.lac, 6699);
  EXPECT_TRUE(log_capture::has("PARSE_REG:index[0]token[ 2]"));
  EXPECT_TRUE(log_capture::has("PARSE_REG:CS REGISTERED"));
  EXPECT_FALSE(log_capture::has("I blib:URC"));
}

TEST_F(RegistrationState, CsStates) {
  struct {
    const char* stat;
    uint8_t expected;
  } const cases[] = {{"0", 0}, {"1", 1}, {"2", 0}, {"3", 3}, {"4", 0}, {"5", 2}, {"6", 0}, {"x", 0}};
  data.ps_reg_status = 1;
  for (const auto& c : cases) {
    creg(c.stat);
    EXPECT_EQ(data.cs_reg_status, c.expected) << c.stat;
  }
  EXPECT_FALSE(log_capture::has("clearing cache"));
}

TEST_F(RegistrationState, DeniedPsIsKeptInTheCsField) {
  cgreg("1");
  s_events.clear();
  cgreg("3");
  EXPECT_EQ(data.cs_reg_status, 3);
  EXPECT_EQ(data.ps_reg_status, 1);
  ASSERT_EQ(s_events.size(), 1u);
  EXPECT_EQ(s_events[0].words, (std::vector<uint32_t>{0, 0}));
}

TEST_F(RegistrationState, OneEventPerChangeOfPs) {
  for (const char* stat : {"0", "5", "1", "1", "0", "2", "0"}) cgreg(stat);
  ASSERT_EQ(s_events.size(), 2u);
  EXPECT_EQ(s_events[0].id, static_cast<uint32_t>(BRIO_EVENT_PDP_ACTIVATION_ALLOWED));
  EXPECT_EQ(s_events[0].size, 8u);
  EXPECT_EQ(s_events[0].words, (std::vector<uint32_t>{1, 1}));
  EXPECT_EQ(s_events[1].words, (std::vector<uint32_t>{0, 0}));
  EXPECT_EQ(s_prev_pdp_event[0], 0u);
  EXPECT_EQ(s_pdp_event[0], 0u);
}

TEST_F(RegistrationState, PartialResetOnlyWhenRegisteredForNeither) {
  data.carrier_config = 202;
  creg("1,\"1A2B\",\"01C2D3E4\",7");
  cgreg("1");
  creg("0");
  EXPECT_EQ(data.lac, 6699) << "PS is still registered";
  // The fields of the line that clears are kept.
  cgreg("0,\"0001\",\"00000002\",2");
  EXPECT_EQ(log_capture::count("CS PS de-reg, clearing cache"), 1u);
  EXPECT_EQ(data.lac, 1);
  EXPECT_EQ(data.cell_id, 2u);
  EXPECT_EQ(data.rat, 2);
  EXPECT_STREQ(data.mcc, "FFF");
  EXPECT_EQ(data.carrier_config, 202);
  creg("4");
  EXPECT_EQ(data.lac, 0xFFFF);
  EXPECT_EQ(data.rat, 0xFF);
  EXPECT_EQ(data.rat_valid, 1) << "survives the partial reset";
}

TEST_F(RegistrationState, BandOfWanTypeSevenOnly) {
  data.wan_type = 7;
  creg("1,\"1A2B\",\"01C2D3E4\",7,1900,\"0\",\"11\"");
  EXPECT_EQ(data.band, 1900u);
  EXPECT_EQ(data.reject_bytes[1], 11);
  EXPECT_TRUE(log_capture::has("PARSE_REG:index[5]token[1900]"));
  EXPECT_TRUE(log_capture::has("PARSE_REG:index[5]token[\"0\"]"));
  EXPECT_TRUE(log_capture::has("PARSE_REG:CS_REJECT_TYPE[0]"));
  creg("1,\"1A2B\",\"01C2D3E4\",7,3,\"0\",\"12\"");
  EXPECT_EQ(data.band, 1900u);
  EXPECT_EQ(data.reject_bytes[1], 12);
  data.wan_type = 6;
  creg("1,\"1A2B\",\"01C2D3E4\",7,\"850\",\"13\"");
  EXPECT_EQ(data.band, 1900u);
  EXPECT_EQ(data.reject_bytes[1], 13);
}

TEST_F(RegistrationState, RejectCausesOfBothDomains) {
  creg("3,,,,\"0\",\"11\"");
  cgreg("3,,,,\"0\",\"7\"");
  EXPECT_EQ(data.reject_bytes[0], 0);
  EXPECT_EQ(data.reject_bytes[1], 11);
  EXPECT_EQ(data.reject_bytes[2], 7);
  EXPECT_EQ(data.lac, 0xFFFF) << "an empty field leaves its value";
  EXPECT_TRUE(log_capture::has("PS_REJECT_CAUSE[7]"));
  EXPECT_TRUE(log_capture::has("I blib:URC::+CGREG: 3,0,7"));
}

TEST_F(RegistrationState, NullPayload) {
  data.rat = 2;
  {
    brio::UrcDataLock lock;
    briolib_parse_reg_status(nullptr, 1, 0);
  }
  EXPECT_EQ(data.rat_valid, 1);
  EXPECT_TRUE(log_capture::has("E blib:briolib/src/brio_common:"));
  EXPECT_TRUE(log_capture::has("briolib_parse_reg_status:reg_payload is NULL:"));
  EXPECT_FALSE(log_capture::has("I blib:URC"));
  data.rat_valid = 0;
  data.rat = 0xFF;
  creg("1");
  EXPECT_EQ(data.rat_valid, 0) << "the access technology is not known";
}

}  // namespace
