// Answers about the serving network.
#include "parse/serving.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "brio/briolib.h"
#include "parse/manual_selection.h"
#include "support/exact_text.h"

namespace {

using namespace brio::parse;

TEST(CopsParser, Answers) {
  struct {
    const char* name;
    const char* line;
    CopsResult result;
    int mode;
    const char* mcc;
    const char* mnc;
  } const cases[] = {
      {"three-digit MNC", "+COPS: 0,2,\"310410\",7", CopsResult::kOk, 0, "310", "410"},
      {"two-digit MNC", "+COPS: 1,2,\"26201\",7", CopsResult::kOk, 1, "262", "01"},
      {"mode 4", "+COPS: 4,2,\"26201\",7", CopsResult::kOk, -1, "262", "01"},
      {"mode beyond every width", "+COPS: 4294967296,2,\"26201\"", CopsResult::kOk, -1, "262", "01"},
      {"blanks in the mode", "+COPS:  1 ,2,\"26201\",7", CopsResult::kOk, 1, "262", "01"},
      {"mode is no number", "+COPS: x,2,\"26201\",7", CopsResult::kOk, 0, "262", "01"},
      {"operator named", "+COPS: 0,0,\"Telekom\",7", CopsResult::kBadLength, 0, "", ""},
      {"five letters", "+COPS: 0,0,\"Tango\",7", CopsResult::kBadFormat, 0, "", ""},
      {"one digit, then letters", "+COPS: 0,0,\"3 UKK\",7", CopsResult::kBadFormat, 0, "", ""},
      {"four digits", "+COPS: 0,2,\"2620\",7", CopsResult::kBadLength, 0, "", ""},
      {"seven digits", "+COPS: 0,2,\"3104100\",7", CopsResult::kBadLength, 0, "", ""},
      {"nothing quoted", "+COPS: 0,2,\"\",7", CopsResult::kBadLength, 0, "", ""},
      {"not registered", "+COPS: 0", CopsResult::kNoOperator, 0, "", ""},
      {"quote left open", "+COPS: 1,2,\"310410", CopsResult::kNoClosingQuote, 1, "", ""},
      {"closing quote behind 30 characters", "+COPS: 1,2,\"An operator's very long name\",7",
       CopsResult::kNoClosingQuote, 1, "", ""},
      {"quote in front of the first comma", "+COPS: \"310410\"", CopsResult::kNoOperator, 0, "", ""},
      {"no colon", "+COPS", CopsResult::kNoMode, 0, "", ""},
      {"nothing behind the colon", "+COPS:", CopsResult::kNoMode, 0, "", ""},
      {"nothing", "", CopsResult::kNoMode, 0, "", ""},
      {"a blank behind the colon", "+COPS: ", CopsResult::kNoOperator, 0, "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ExactText line(c.line);
    CopsAnswer answer = parse_cops(line.get());
    EXPECT_EQ(static_cast<int>(answer.result), static_cast<int>(c.result));
    EXPECT_EQ(answer.mode, c.mode);
    EXPECT_STREQ(answer.mcc, c.mcc);
    EXPECT_STREQ(answer.mnc, c.mnc);
  }
}

TEST(LteInfoParser, FieldsStopAtTheFirstMissingOne) {
  ExactText whole(" 3,1,2,310,410,2F01,1C2D3E4");
  LteInfo info = parse_lte_info(whole.get());
  EXPECT_EQ(info.fields, 0x7Fu);
  EXPECT_EQ(info.emm_state, 3);
  EXPECT_EQ(info.emm_substate, 1);
  EXPECT_EQ(info.rrc_state, 2);
  EXPECT_STREQ(info.mcc, "310");
  EXPECT_STREQ(info.mnc, "410");
  EXPECT_EQ(info.tac, 0x2F01);
  EXPECT_EQ(info.cell_id, 0x1C2D3E4u);

  struct {
    const char* text;
    uint32_t fields;
  } const cases[] = {
      {"", 0},
      {"3", kLteEmmState},
      {"3,1,1,310", kLteEmmState | kLteEmmSubstate | kLteRrcState | kLteMcc},
      {"3,,1,,410", kLteEmmState | kLteRrcState | kLteMnc},
      {"3,1,1,310,410,2F01,1C2D3E4,9,9", 0x7F},
  };
  for (const auto& c : cases) {
    ExactText text(c.text);
    EXPECT_EQ(parse_lte_info(text.get()).fields, c.fields) << c.text;
  }
  ExactText wide("259,1,1,310999,410999,1FFFF,0x1C2D3E4");
  info = parse_lte_info(wide.get());
  EXPECT_EQ(info.emm_state, 3);
  EXPECT_STREQ(info.mcc, "310");
  EXPECT_STREQ(info.mnc, "410");
  EXPECT_EQ(info.tac, 0xFFFF);
  EXPECT_EQ(info.cell_id, 0x1C2D3E4u);
}

TEST(ServingCellParser, FieldsByRat) {
  const uint32_t kAlways = kCellRat | kCellPlmn | kCellBand | kCellArfcn;
  const uint32_t kPacket = kCellNmo | kCellLac | kCellRac;
  struct {
    const char* rat;
    uint32_t fields;
  } const cases[] = {
      {"0", kAlways},
      {"1", kAlways | kCellLac},
      {"2", kAlways | kPacket},
      {"7", kAlways | kPacket},
      {"8", kAlways | kCellTac},
      {"9", kAlways},
      {"", kAlways & ~kCellRat},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rat);
    ExactText text(std::string(" 0,") + c.rat + ",1,310410,2,0,LTE_BAND_4, 0x2F01,0X0a,0x1694,5,6");
    ServingCell cell = parse_serving_cell(text.get());
    EXPECT_EQ(cell.fields, c.fields);
    EXPECT_STREQ(cell.plmn_text, "310410");
    EXPECT_STREQ(cell.band_text, "LTE_BAND_4");
    EXPECT_EQ(cell.arfcn, 0x1694);
    EXPECT_EQ(cell.lac, (c.fields & kCellLac) != 0 ? 0x2F01 : 0);
    EXPECT_EQ(cell.tac, (c.fields & kCellTac) != 0 ? 0x2F01 : 0);
    EXPECT_EQ(cell.rac, (c.fields & kCellRac) != 0 ? 0x0A : 0);
    EXPECT_EQ(cell.nmo, (c.fields & kCellNmo) != 0 ? 2 : 0);
  }
}

TEST(ServingCellParser, ShortEmptyAndLong) {
  ExactText one("0");
  EXPECT_EQ(parse_serving_cell(one.get()).fields, 0u);
  ExactText empties("0,2,,,,,,,,,,");
  EXPECT_EQ(parse_serving_cell(empties.get()).fields, kCellRat);
  ExactText prefix_only("0,2,,,,,,0x,0,0xZ");
  ServingCell cell = parse_serving_cell(prefix_only.get());
  EXPECT_EQ(cell.lac, 0);
  EXPECT_EQ(cell.rac, 0);
  EXPECT_EQ(cell.arfcn, 0);
  const std::string text(500, 'B');
  ExactText wide("0,8,," + text + ",,," + text + ",0x12F01,,");
  cell = parse_serving_cell(wide.get());
  EXPECT_EQ(std::string(cell.plmn_text), text.substr(0, 9));
  EXPECT_EQ(std::string(cell.band_text), text.substr(0, 29));
  EXPECT_EQ(cell.tac, 0x2F01);
}

TEST(ProtocolStateParser, Fields) {
  ExactText whole(" 1,13,2,3,7,4,99");
  ProtocolStates states = parse_protocol_states(whole.get());
  EXPECT_EQ(states.fields, 0x3Fu);
  const uint8_t expected[] = {1, 13, 2, 3, 7, 4};
  EXPECT_EQ(std::memcmp(states.state, expected, sizeof(expected)), 0);
  ExactText gaps("1,,2");
  EXPECT_EQ(parse_protocol_states(gaps.get()).fields, 0x5u);
  ExactText nothing("");
  EXPECT_EQ(parse_protocol_states(nothing.get()).fields, 0u);
}

TEST(ClockParser, Zone) {
  struct {
    const char* line;
    bool found;
    int zone;
  } const cases[] = {
      {"+CCLK: \"26/03/07,09:05:00-28\"", true, -28},
      {"+CCLK: \"26/03/07,09:05:00+08\"", true, 8},
      {"+CCLK: \"26/03/07,09:05:00+0\"", true, 0},
      {"+CCLK: \"26/03/07,09:05:00\"", false, 0},
      {"\"26/03/07,09:05:00-28\"", true, -28},
      // A minus in front does not hide the zone's plus.
      {"+CCLK: \"-26/03/07,09:05:00+04\"", true, 4},
      {"+CCLK", false, 0},
      {"", false, 0},
      // The sign stands behind the characters that are looked at.
      {"+CCLK: \"2026/03/07,09:05:00.000000+04\"", false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    ExactText line(c.line);
    int32_t zone = 0;
    EXPECT_EQ(parse_clock_zone(line.get(), &zone), c.found);
    EXPECT_EQ(zone, c.zone);
  }
}

TEST(Plmn, BothWays) {
  struct {
    uint8_t bytes[3];
    const char* mcc;
    const char* mnc;
  } const cases[] = {
      {{0x13, 0x00, 0x14}, "310", "410"},
      {{0x13, 0xF0, 0x14}, "310", "41"},
      {{0x62, 0xF2, 0x10}, "262", "01"},
  };
  for (const auto& c : cases) {
    char mcc[4];
    char mnc[4];
    EXPECT_EQ(briolib_plmn_get_mcc_mnc(c.bytes, mcc, mnc), 0u);
    EXPECT_STREQ(mcc, c.mcc);
    EXPECT_STREQ(mnc, c.mnc);
    uint8_t bytes[3];
    ExactText short_mcc(c.mcc);
    ExactText short_mnc(c.mnc);
    EXPECT_EQ(briolib_mccmnc_to_plmn(short_mcc.get(), short_mnc.get(), bytes), 0u);
    EXPECT_EQ(std::memcmp(bytes, c.bytes, 3), 0) << c.mcc << c.mnc;
  }
  char mcc[4];
  char mnc[4];
  const uint8_t unknown[3] = {0xFF, 0xFF, 0xFF};
  EXPECT_EQ(briolib_plmn_get_mcc_mnc(unknown, mcc, mnc), 0u);
  EXPECT_STREQ(mcc, "fff");
  EXPECT_STREQ(mnc, "fff");
  uint8_t bytes[3];
  ExactText nothing("");
  EXPECT_EQ(briolib_mccmnc_to_plmn(nothing.get(), nothing.get(), bytes), 0u);
  EXPECT_EQ(std::memcmp(bytes, unknown, 3), 0);
  EXPECT_EQ(briolib_plmn_get_mcc_mnc(nullptr, mcc, mnc), 6u);
  EXPECT_EQ(briolib_plmn_get_mcc_mnc(unknown, nullptr, mnc), 6u);
  EXPECT_EQ(briolib_plmn_get_mcc_mnc(unknown, mcc, nullptr), 6u);
}

TEST(ManualSelectionParser, Lines) {
  struct {
    const char* line;
    bool replay;
    int timeout;
    const char* command;
  } const cases[] = {
      {"300 AT+COPS=1,2,\"310410\",7\n", true, 300, "AT+COPS=1,2,\"310410\",7"},
      {"300 AT+COPS=1,2,\"310410\"\ntrailing", true, 300, "AT+COPS=1,2,\"310410\""},
      {"60 AT+COPS=4,0,\"Big Cell\"", true, 60, "AT+COPS=4,0,\"Big Cell\""},
      {"junk AT", true, 0, "AT"},
      {"-5 AT", true, 0, "AT"},
      {"300 at+cops=0", false, 0, nullptr},
      {"300 AT+COPS=0,2\n", false, 0, nullptr},
      {"300AT+COPS=1\n", false, 0, nullptr},
      {"300 \n", false, 0, nullptr},
      {"300 ", false, 0, nullptr},
      {"", false, 0, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    ExactText line(c.line);
    ManualSelection selection = {};
    ASSERT_EQ(parse_manual_selection(line.get(), &selection), c.replay);
    if (!c.replay) continue;
    EXPECT_EQ(selection.timeout_seconds, c.timeout);
    EXPECT_STREQ(selection.command, c.command);
  }
}

}  // namespace
