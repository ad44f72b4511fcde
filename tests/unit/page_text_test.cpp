// The diagnostic page's text: whole pages, buffers of every size, signal scales, masks.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <climits>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "brio/brio_module.h"
#include "log_611_sections.h"

using brio::page::NetInfo;
using brio::page::PageInput;
using brio::page::View;
using brio::page::Writer;

namespace {

// How many more strdup calls succeed; -1 for ever.
int s_strdup_left = -1;

}  // namespace

// Replaces the C library's, so that a test can let it fail.
extern "C" char* strdup(const char* text) noexcept {
  if (s_strdup_left == 0) return nullptr;
  if (s_strdup_left > 0) s_strdup_left--;
  const size_t size = strlen(text) + 1;
  void* copy = malloc(size);
  return copy != nullptr ? static_cast<char*>(memcpy(copy, text, size)) : nullptr;
}

namespace {

const std::string kData = std::string(TEST_DATA_DIR) + "/611/";

std::string file_text(const std::string& name) {
  std::ifstream file(kData + name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

template <size_t N>
void set(char (&field)[N], const char* text) {
  snprintf(field, N, "%s", text);
}

struct Scenario {
  const char* name;
  atcmd_snapshot snapshot;
  NetInfo net;
  const char* iccid;
  int32_t sar_mode;
};

// A device on its home LTE network.
Scenario home_lte(const char* name) {
  Scenario s = {};
  s.name = name;
  atcmd_snapshot& r = s.snapshot;
  r.cs_reg_status = 1;
  r.ps_reg_status = 1;
  r.lac = 0x1A2B;
  r.cell_id = 0x01C2D3E4;
  r.rat = 7;
  r.rac = 1;
  set(r.mcc, "310");
  set(r.mnc, "410");
  set(r.plmn_text, "310410");
  set(r.band_text, "LTE_BAND_4");
  r.arfcn = 2000;
  r.signal_a = 60;
  r.signal_b = 255;
  r.bars = 4;
  r.pdp_state = 1;
  r.mm_state = 13;
  r.mm_substate = 1;
  r.gmm_state = 3;
  r.gmm_substate = 7;
  r.nmo = 0;
  r.carrier_config = 201;
  r.sim_status = SIM_STATUS_OK;
  r.emm_state = 3;
  r.emm_substate = 1;
  r.tac = 0x2F01;
  r.wan_type = BRIO_WAN_TYPE_KESTREL;
  set(r.fw_ver, "L816_18000.1000.00.24.01.01");
  set(r.lib_ver, "S30J38");
  set(r.imei, "356938035643809");
  set(s.net.address, "10.1.2.3");
  set(s.net.destination, "10.64.64.64");
  s.net.rx_bytes = 150000;
  s.net.tx_bytes = 26000;
  s.net.rx_rate = 1500;
  s.net.tx_rate = -1;
  s.iccid = "89014103211118510720";
  s.sar_mode = BRIO_SAR_OFF;
  return s;
}

void set_reject(atcmd_snapshot& r, size_t index, uint8_t cause, uint16_t mcc, uint16_t mnc) {
  r.reject_bytes[index + 1] = cause;
  r.reject_words[2 * index] = mcc;
  r.reject_words[2 * index + 1] = mnc;
}

Scenario lte_bas() {
  Scenario s = home_lte("lte_bas");
  atcmd_snapshot& r = s.snapshot;
  r.bas_query_flag = 1;
  r.bas_value_a = -97;
  r.bas_value_b = -101;
  r.carrier_config = 216;
  r.cs_reg_status = 2;
  r.ps_reg_status = 2;
  r.snapshot_mode = 1;
  r.emm_state = 5;
  r.emm_substate = 8;
  set(r.mcc, "440");
  set(r.mnc, "10");
  set_reject(r, 3, 15, 440, 20);
  set_reject(r, 4, 27, 440, 10);
  s.sar_mode = BRIO_SAR_ON;
  return s;
}

Scenario gsm() {
  Scenario s = home_lte("gsm");
  atcmd_snapshot& r = s.snapshot;
  r.rat = 0;
  r.nmo = 1;
  r.cell_id = 0xB0C1;
  set(r.band_text, "GSM_850");
  set(r.mcc, "262");
  set(r.mnc, "01");
  set_reject(r, 0, 11, 262, 1);
  set_reject(r, 1, 7, 262, 1);
  set_reject(r, 2, 33, 262, 2);
  set(s.net.address, "connecting");
  set(s.net.destination, "connecting");
  s.net.rx_bytes = s.net.tx_bytes = 0;
  s.net.rx_rate = s.net.tx_rate = 0;
  s.sar_mode = BRIO_SAR_INIT;
  return s;
}

Scenario wcdma() {
  Scenario s = home_lte("wcdma");
  atcmd_snapshot& r = s.snapshot;
  r.rat = 5;
  r.signal_a = 43;
  r.signal_b = 28;
  r.nmo = 2;
  r.mm_state = 21;
  r.mm_substate = 10;
  r.gmm_state = 5;
  r.gmm_substate = 16;
  set(r.band_text, "UMTS_BAND_2_1900");
  s.net.rx_bytes = 123456789;
  s.net.tx_bytes = 1234567890;
  s.net.rx_rate = 12345678;
  s.net.tx_rate = 123456789;
  return s;
}

// As after open, with nothing read yet.
Scenario unknown_rat() {
  Scenario s = home_lte("unknown");
  atcmd_snapshot& r = s.snapshot;
  r = {};
  r.rat = 255;
  r.ps_reg_status = 3;
  r.lac = 0xFFFF;
  r.cell_id = 0xFFFFFFFF;
  r.rac = 0xFF;
  r.nmo = 255;
  r.pdp_state = 255;
  r.signal_a = r.signal_b = 255;
  r.carrier_config = -1;
  set(r.mcc, "FFF");
  set(r.mnc, "FFF");
  set(r.band_text, "BAND_NONE");
  set(r.fw_ver, " ");
  set(r.lib_ver, "S30J38");
  set(r.imei, " ");
  set(s.net.address, "not connected");
  set(s.net.destination, "not connected");
  s.net.rx_bytes = s.net.tx_bytes = -1;
  s.net.rx_rate = s.net.tx_rate = -1;
  s.iccid = "";
  return s;
}

Scenario osprey_lte() {
  Scenario s = home_lte("osprey_lte");
  s.snapshot.wan_type = BRIO_WAN_TYPE_OSPREY;
  s.snapshot.band = 104;
  s.snapshot.signal_a = 97;
  s.snapshot.snapshot_mode = 1;
  s.snapshot.emm_state = 255;
  s.snapshot.emm_substate = 255;
  set(s.net.address, "se=24");
  set(s.net.destination, "13");
  return s;
}

Scenario osprey_edge() {
  Scenario s = home_lte("osprey_edge");
  s.snapshot.wan_type = BRIO_WAN_TYPE_OSPREY;
  s.snapshot.rat = 3;
  s.snapshot.band = 1900;
  s.snapshot.signal_a = 0;
  s.snapshot.cell_id = 0x1F;
  set(s.snapshot.band_text, "PCS1900");
  return s;
}

std::vector<Scenario> scenarios() {
  return {home_lte("lte"), lte_bas(), gsm(), wcdma(), unknown_rat(), osprey_lte(), osprey_edge()};
}

bool build(Writer& page, const Scenario& scenario, View view) {
  const PageInput input = {&scenario.snapshot, scenario.iccid, &scenario.net, scenario.sar_mode, view};
  if (!brio::page::write_sections(page, input)) return false;
  FILE* file = fopen((kData + "static_info").c_str(), "r");
  EXPECT_NE(nullptr, file);
  brio::page::write_static_info(page, file);
  fclose(file);
  return true;
}

std::string page_text(const Scenario& scenario, View view) {
  std::vector<char> buffer(8192);
  Writer page(buffer.data(), static_cast<uint32_t>(buffer.size()));
  EXPECT_TRUE(build(page, scenario, view));
  EXPECT_EQ(page.written(), strlen(buffer.data()));
  return buffer.data();
}

std::string file_name(const Scenario& scenario, View view) {
  return std::string(scenario.name) + (view == View::kFull ? ".full.txt" : ".masked.txt");
}

// The line that begins with `start`, with its line end, or "".
std::string line_of(const std::string& page, const std::string& start) {
  size_t at = ("\n" + page).find("\n" + start);
  if (at == std::string::npos) return "";
  return page.substr(at, page.find('\n', at) + 1 - at);
}

TEST(Page, EqualsItsFileInBothViews) {
  for (const Scenario& scenario : scenarios()) {
    for (View view : {View::kFull, View::kMasked}) {
      const std::string name = file_name(scenario, view);
      EXPECT_EQ(file_text(name), page_text(scenario, view)) << name;
    }
  }
}

TEST(Page, FillsABufferOfEverySizeWithItsFirstCharacters) {
  constexpr size_t kGuard = 16;
  for (const Scenario& scenario : scenarios()) {
    for (View view : {View::kFull, View::kMasked}) {
      const std::string name = file_name(scenario, view);
      const std::string whole = file_text(name);
      for (size_t capacity = 0; capacity <= whole.size() + 2; capacity++) {
        std::vector<char> buffer(capacity + kGuard, '\x5A');
        Writer page(buffer.data(), static_cast<uint32_t>(capacity));
        ASSERT_TRUE(build(page, scenario, view));
        const bool fits = capacity > whole.size();
        ASSERT_EQ(fits ? whole.size() : capacity, page.written()) << name << " at " << capacity;
        ASSERT_EQ(std::string(kGuard, '\x5A'), std::string(&buffer[capacity], kGuard)) << name << capacity;
        if (capacity == 0) continue;
        ASSERT_EQ(whole.substr(0, capacity - 1), buffer.data()) << name << " at " << capacity;
      }
    }
  }
}

TEST(Page, MaskedViewHoldsNoIdentity) {
  for (const Scenario& scenario : scenarios()) {
    const std::string page = page_text(scenario, View::kMasked);
    for (const char* secret : {"89014103211118510720", "356938035643809", "10.1.2.3", "10.64.64.64",
                               "LTE_BAND", "GSM_850", "UMTS"}) {
      EXPECT_EQ(std::string::npos, page.find(secret)) << scenario.name << ' ' << secret;
    }
  }
}

TEST(Page, EndsBehindTheWwanHeadingWhenMemoryIsShort) {
  for (int succeed : {0, 1}) {
    std::vector<char> buffer(8192);
    Writer page(buffer.data(), static_cast<uint32_t>(buffer.size()));
    s_strdup_left = succeed;
    EXPECT_FALSE(build(page, home_lte("lte"), View::kMasked));
    s_strdup_left = -1;
    const std::string whole = file_text("lte.masked.txt");
    const std::string heading = "******** WWAN Info ********\n";
    EXPECT_EQ(whole.substr(0, whole.find(heading) + heading.size()), buffer.data());
    EXPECT_EQ(strlen(buffer.data()), page.written());
  }
  // The full view prints the addresses as they are, and a full page copies nothing more.
  std::vector<char> buffer(8192);
  s_strdup_left = 0;
  Writer full(buffer.data(), static_cast<uint32_t>(buffer.size()));
  EXPECT_TRUE(build(full, home_lte("lte"), View::kFull));
  Writer little(buffer.data(), 100);
  EXPECT_TRUE(build(little, home_lte("lte"), View::kMasked));
  s_strdup_left = -1;
}

TEST(Page, WriterIsFullAfterTheFirstWriteThatDoesNotFit) {
  char buffer[8];
  Writer page(buffer, sizeof(buffer));
  page.add("%s", "abc");
  EXPECT_EQ(3u, page.written());
  page.add("%s", "");
  EXPECT_EQ(5u, page.room());
  page.add("%s", "defgh");  // five characters, but no room for the NUL
  EXPECT_STREQ("abcdefg", buffer);
  EXPECT_EQ(0u, page.room());
  EXPECT_EQ(8u, page.written());
  page.add("x");
  EXPECT_STREQ("abcdefg", buffer);
  Writer nowhere(nullptr, 100);
  nowhere.add("abc");
  EXPECT_EQ(100u, nowhere.room());
}

TEST(Page, CopiesStaticInfoWhateverTheFileHolds) {
  const std::string contents[] = {
      "",
      "no newline",
      std::string(148, 'a') + "\n" + std::string(149, 'b') + "\n" + std::string(1000, 'c'),
      "%s%n%d\n",
  };
  for (const std::string& content : contents) {
    FILE* file = fmemopen(const_cast<char*>(content.data()), content.size() + 1, "r");
    ASSERT_NE(nullptr, file);
    std::vector<char> buffer(4096);
    Writer page(buffer.data(), static_cast<uint32_t>(buffer.size()));
    brio::page::write_static_info(page, file);
    fclose(file);
    EXPECT_EQ(content, buffer.data());
  }
  FILE* endless = fopen("/dev/zero", "r");
  ASSERT_NE(nullptr, endless);
  char small[4];
  Writer none(small, 0);
  brio::page::write_static_info(none, endless);  // no room: nothing is read
  EXPECT_EQ(0, ftell(endless));
  fclose(endless);
}

TEST(Page, SignalLinesAtTheirBoundaries) {
  struct Case {
    uint8_t rat;
    int32_t a;
    int32_t b;
    const char* line;
  };
  const Case cases[] = {
      {0, INT_MIN, 0, "5.3 RSSI: < -110 \n"},
      {0, 0, 0, "5.3 RSSI: < -110 \n"},
      {0, 1, 0, "5.3 RSSI: -110 \n"},
      {3, 62, 0, "5.3 RSSI: -49 \n"},
      {3, 63, 0, "5.3 RSSI: >= -48 \n"},
      {0, 64, 0, "5.3 RSSI: N/A \n"},
      {0, 99, 0, "5.3 RSSI: N/A \n"},
      {0, INT_MAX, 0, "5.3 RSSI: N/A \n"},
      {7, -1, 0, "5.3 RSRP: < -140 \n"},
      {7, 0, 0, "5.3 RSRP: < -140 \n"},
      {7, 1, 0, "5.3 RSRP: -140 \n"},
      {7, 96, 0, "5.3 RSRP: -45 \n"},
      {7, 97, 0, "5.3 RSRP: >= -44 \n"},
      {7, 98, 0, "5.3 RSRP: N/A \n"},
      {2, 0, 0, "5.3 RSCP: < -120 ECIO: < -24 \n"},
      {4, -5, -5, "5.3 RSCP: < -120 ECIO: < -24 \n"},
      {5, 1, 1, "5.3 RSCP: -120 ECIO: -24.0 \n"},
      {6, 95, 2, "5.3 RSCP: -26 ECIO: -23.5 \n"},
      {2, 96, 3, "5.3 RSCP: >= -25 ECIO: -23.0 \n"},
      {2, 97, 46, "5.3 RSCP: N/A ECIO: -1.5 \n"},
      {2, 97, 47, "5.3 RSCP: N/A ECIO: -1.0 \n"},
      {2, 97, 48, "5.3 RSCP: N/A ECIO: 0.5 \n"},
      {2, 97, 49, "5.3 RSCP: N/A ECIO: >= 0.0 \n"},
      {2, 97, 50, "5.3 RSCP: N/A ECIO: N/A \n"},
      {2, INT_MAX, INT_MIN, "5.3 RSCP: N/A ECIO: < -24 \n"},
      {1, 30, 30, "5.3 RSSI: N/A \n"},
      {8, 30, 30, "5.3 RSSI: N/A \n"},
      {255, 30, 30, "5.3 RSSI: N/A \n"},
  };
  for (const Case& c : cases) {
    Scenario s = home_lte("");
    s.snapshot.rat = c.rat;
    s.snapshot.signal_a = c.a;
    s.snapshot.signal_b = c.b;
    for (View view : {View::kFull, View::kMasked}) {
      EXPECT_EQ(c.line, line_of(page_text(s, view), "5.3 ")) << int{c.rat} << ' ' << c.a << ' ' << c.b;
    }
  }
  // Only a BAS flag of 1 brings the antenna values, and only on LTE.
  Scenario s = home_lte("");
  s.snapshot.bas_value_a = INT16_MIN;
  s.snapshot.bas_value_b = INT16_MAX;
  s.snapshot.bas_query_flag = 1;
  EXPECT_EQ("5.3 RSRP main: -32768 RSRP div: 32767 \n", line_of(page_text(s, View::kFull), "5.3 "));
  s.snapshot.bas_query_flag = 2;
  EXPECT_EQ("5.3 RSRP: -81 \n", line_of(page_text(s, View::kFull), "5.3 "));
  s.snapshot.bas_query_flag = 1;
  s.snapshot.rat = 0;
  EXPECT_EQ("5.3 RSSI: -51 \n", line_of(page_text(s, View::kFull), "5.3 "));
}

TEST(Page, NumbersAtTheirLimits) {
  Scenario s = home_lte("");
  s.net.rx_bytes = INT_MIN;
  s.net.tx_bytes = INT_MAX;
  s.net.rx_rate = INT64_MIN;
  s.net.tx_rate = INT64_MAX;
  std::string page = page_text(s, View::kFull);
  EXPECT_EQ("RX Bytes: -2147483648      TX Bytes: 2147483647\n", line_of(page, "RX Bytes"));
  EXPECT_EQ("RX Rate(B/s): -2147483648    TX Rate(B/s): 2147483647\n", line_of(page, "RX Rate"));
  s.sar_mode = -1;
  s.snapshot.rat = 2;
  s.snapshot.nmo = 254;
  s.snapshot.carrier_config = INT16_MIN;
  s.snapshot.sim_status = 0xFFFF;
  s.snapshot.wan_type = 42;
  s.snapshot.snapshot_mode = 2;
  s.snapshot.cs_reg_status = 4;
  page = page_text(s, View::kFull);
  EXPECT_EQ("5.4 SAR Pwr backoff: N/A\n", line_of(page, "5.4"));
  EXPECT_EQ("4.7 Network Op Mode: 255 \n", line_of(page, "4.7"));
  EXPECT_EQ("2.4  Carrier ID:  -32768 \n", line_of(page, "2.4"));
  EXPECT_EQ("2.5  SIM status:  N/A (65535) \n", line_of(page, "2.5"));
  EXPECT_EQ("2.6  WAN type:  N/A (42) \n", line_of(page, "2.6"));
  EXPECT_EQ("4.1 Mode: N/A \n", line_of(page, "4.1"));
  EXPECT_EQ("3.1 CS Reg Status: N/A (4) \n", line_of(page, "3.1"));
}

TEST(PageMasks, Band) {
  const std::map<std::string, std::string> cases = {
      {"LTE_BAND_4", "XXX_XXXX_4"},
      {"UMTS_2100", "XXXX_2100"},
      {"BAND4", "BAND4"},
      {"_", "_"},
      {"_4", "_4"},
      {"4_", "X_"},
      {"__", "__"},
      {"", ""},
      {"a__b", "X__b"},
  };
  for (const auto& [text, masked] : cases) {
    std::string copy = text;
    mask_band(copy.data());
    EXPECT_EQ(masked, copy) << text;
  }
  mask_band(nullptr);
}

TEST(PageMasks, Address) {
  const std::map<std::string, std::string> cases = {
      {"10.1.2.3", "10.1.X.X"},
      {"255.255.255.255", "255.255.XXX.XXX"},
      {"1.2", "1.X"},
      {"1.2.3", "1.X.X"},
      {"13", "1X"},
      {"7", "7"},
      {"", ""},
      {"...", "..."},
      {".12", ".XX"},
      {"se=24", "sXXXX"},
  };
  for (const auto& [text, masked] : cases) {
    std::string copy = text;
    mask_ip_address(copy.data());
    EXPECT_EQ(masked, copy) << text;
  }
  mask_ip_address(nullptr);
}

}  // namespace
