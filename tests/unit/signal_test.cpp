// Bars and antenna reports: the parsers, and what the reports leave in the shared record.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "parse/bars.h"
#include "support/exact_text.h"
#include "support/log_capture.h"

namespace {

std::vector<int32_t> s_bars_events;

uint32_t record_bars(uint32_t, uint32_t size, const void* data) {
  EXPECT_EQ(4u, size);
  s_bars_events.push_back(*static_cast<const int32_t*>(data));
  return 0;
}

class SharedRecord : public ::testing::Test {
 protected:
  void SetUp() override {
    briolib_lock_urc_data_mutex();
    briolib_init_atcmd_data(0);
    brio_set_callback_for_event_id(BRIO_EVENT_BARS_CHANGED, record_bars);
    log_capture::clear();
  }
  void TearDown() override { briolib_unlock_urc_data_mutex(); }
};
class BarsReport : public SharedRecord {};
class BasReport : public SharedRecord {};

TEST(BarsAnswer, FillsLeadingFieldsOnly) {
  struct Case {
    const char* line;
    uint32_t fields;
    int32_t mode, rat, bars, rssi, ecno;
  };
  const Case cases[] = {
      {"+GTBARS: 0,7,4,60,30", 0x1F, 0, 7, 4, 60, 30},
      {"+GTBARS: 0,7,4,-70,-12", 0x1F, 0, 7, 4, -70, -12},
      {"+GTBARS: 1, 7 , 255,99,255,13", 0x1F, 0, 7, 255, 99, 255},
      {"+GTBARS: 1,7,3", 0x07, 0, 7, 3, 0, 0},
      {"+GTBARS: 1, ,3,,9", 0x15, 0, 0, 3, 0, 9},
      {"+GTBARS:", 0x01, 0, 0, 0, 0, 0},
      {"+GTBARS: 0,x,y,z,", 0x0F, 0, 0, 0, 0, 0},
  };
  for (const auto& c : cases) {
    ExactText text(c.line);
    brio::parse::BarsReport report = brio::parse::parse_bars_answer(text.get());
    EXPECT_EQ(c.fields, report.fields) << c.line;
    EXPECT_EQ(c.mode, report.mode) << c.line;
    EXPECT_EQ(c.rat, report.rat) << c.line;
    EXPECT_EQ(c.bars, report.bars) << c.line;
    EXPECT_EQ(c.rssi, report.rssi) << c.line;
    EXPECT_EQ(c.ecno, report.ecno) << c.line;
  }
}

TEST_F(BarsReport, StoresSignedValuesAndRaisesChangesOnly) {
  struct Case {
    const char* payload;
    uint8_t bars;
    int32_t rssi;
    int32_t ecno;
    std::vector<int32_t> events;
  };
  const Case cases[] = {
      {" 7,3,-70,-12", 3, -70, -12, {3}},
      {" 7,3,-71,-13", 3, -71, -13, {}},
      {" 7,0,60,30", 0, 60, 30, {0}},
      {" 7,1,,31", 1, 60, 31, {1}},
      {" 7,2,40  ", 2, 40, 31, {2}},
      {" 7,256,41,5", 0, 41, 5, {0}},  // 8 bits are kept
      {" 7,255,41,5", 255, 41, 5, {255}},
      {"       7", 255, 41, 5, {}},
      {" 7,4,1,", 255, 41, 5, {}},  // seven characters are none of it
      {"", 255, 41, 5, {}},
  };
  for (const auto& c : cases) {
    s_bars_events.clear();
    ExactText text(c.payload);
    briolib_parse_gtbars(text.get());
    EXPECT_EQ(c.bars, g_brio_lib_atcmd_data.bars) << c.payload;
    EXPECT_EQ(c.rssi, static_cast<int32_t>(g_brio_lib_atcmd_data.signal_a)) << c.payload;
    EXPECT_EQ(c.ecno, static_cast<int32_t>(g_brio_lib_atcmd_data.signal_b)) << c.payload;
    EXPECT_EQ(c.events, s_bars_events) << c.payload;
  }
  briolib_parse_gtbars(nullptr);
  EXPECT_EQ(3u, log_capture::count(":briolib_parse_gtbars:URC payload is invalid:\n"));
}

TEST_F(BasReport, SwapsAnswersAndReportsByTheirOwnRule) {
  struct Case {
    const char* text;
    bool is_answer;
    int value_a;
    int value_b;
    uint8_t antenna;
  };
  const Case cases[] = {
      {"+BAS: 320,-160,1", true, -10, 20, 1},  {" 320,-160,1", false, 20, -10, 1},
      {"+BAS: 320,-160,0", true, 20, -10, 0},  {" 320,-160,0", false, -10, 20, 0},
      {"+BAS: 31,-31,2", true, 1, -1, 2},      {" 15,-15,2", false, 0, 0, 2},
      {"+BAS:320,-160,1,9", true, -10, 20, 1}, {"320,-160,0", true, 20, -10, 0},
      {"+BAS: 320", true, 20, -1, 255},        {" ,48,2", false, -1, 3, 2},
  };
  for (const auto& c : cases) {
    briolib_init_atcmd_data(0);
    bas_status record = {0xFFFF, 0xFFFF, 255};
    ExactText text(c.text);
    briolib_parse_bas_status(text.get(), c.is_answer ? &record : nullptr);
    const brio_atcmd_data& data = g_brio_lib_atcmd_data;
    EXPECT_EQ(c.value_a, static_cast<int16_t>(data.bas_value_a)) << c.text;
    EXPECT_EQ(c.value_b, static_cast<int16_t>(data.bas_value_b)) << c.text;
    EXPECT_EQ(c.antenna, data.curr_lte_ant) << c.text;
    EXPECT_EQ(c.is_answer ? data.bas_value_a : 0xFFFF, record.value_a) << c.text;
    EXPECT_EQ(c.is_answer ? data.bas_value_b : 0xFFFF, record.value_b) << c.text;
    EXPECT_EQ(c.is_answer ? data.curr_lte_ant : 255, record.antenna) << c.text;
  }
}

TEST_F(BasReport, KeepsOlderValuesWhereFieldsAreMissing) {
  bas_status record = {};
  ExactText whole("+BAS: 320,480,1");
  briolib_parse_bas_status(whole.get(), &record);
  ExactText antenna_missing("+BAS: 160,640");
  briolib_parse_bas_status(antenna_missing.get(), &record);
  EXPECT_EQ(40, record.value_a);  // swapped by the antenna that is held
  EXPECT_EQ(10, record.value_b);
  EXPECT_EQ(1, record.antenna);
  ExactText empty("");
  briolib_parse_bas_status(empty.get(), &record);
  briolib_parse_bas_status(nullptr, nullptr);
  EXPECT_EQ(40, record.value_a);
  EXPECT_EQ(2u, log_capture::count(":briolib_parse_bas_status:bas_p is NULL:"));
}

}  // namespace
