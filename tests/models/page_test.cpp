// Random snapshots against tests/data/page.txt, the diagnostic page with places for its values. The page as
// the library makes it: tests/sessions/page.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "brio/wabs.h"
#include "page/log_611_names.h"
#include "page/log_611_sections.h"
#include "services/static_info.h"
#include "support/random.h"

namespace {

using namespace brio::names;
using brio::page::View;
using brio::page::Writer;
using Values = std::map<std::string, std::string>;

struct Page : atcmd_snapshot, brio::page::NetInfo {
  int32_t sar_mode;
};

// A raw signal value in its range, below and above it. Steps of 1 dB, 0 is below `least`.
std::string level(int raw, int least, int top) {
  if (raw < 1) return "< " + std::to_string(least);
  if (raw > top) return "N/A";
  return (raw == top ? ">= " : "") + std::to_string(least - 1 + raw);
}

std::string signal_of(const Page& page) {
  const int raw = page.signal_a, half = page.signal_b - 49;  // of 1 dB, 0 is the top
  switch (page.rat) {
    case 0:
    case 3:
      return "RSSI: " + level(raw, -110, 63);
    case 7:
      if (page.bas_query_flag != 1) return "RSRP: " + level(raw, -140, 97);
      return "RSRP main: " + std::to_string(page.bas_value_a) +
             " RSRP div: " + std::to_string(page.bas_value_b);
    case 1:
    case 8:
    case 255:
      return "RSSI: N/A";
  }
  const std::string ecio = half < -48  ? "< -24"
                           : half > 0  ? "N/A"
                           : half == 0 ? ">= 0.0"  // -0.5 has no sign there
                                       : std::to_string(half / 2) + (half % 2 != 0 ? ".5" : ".0");
  return "RSCP: " + level(raw, -120, 96) + " ECIO: " + ecio;
}

std::string masked_address(std::string text) {
  if (text == "connecting" || text == "not connected") return text;
  size_t kept = text.rfind('.');
  kept = kept == std::string::npos || kept == 0 ? 0 : text.rfind('.', kept - 1);
  for (size_t i = kept == std::string::npos ? 1 : std::max<size_t>(kept, 1); i < text.size(); i++) {
    if (text[i] != '.') text[i] = 'X';
  }
  return text;
}

std::string padded(long long value, size_t width) {
  std::string text = std::to_string(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
  return text.append(std::max(width, text.size()) - text.size(), ' ');
}

// Puts values under their names, the last word of their part of `names`.
template <typename... T>
void put_named(Values* values, const char* names, const T&... each) {
  std::istringstream list(names);
  std::string name;
  const auto put = [&](const auto& value) {
    std::ostringstream text;
    text << value;
    std::getline(list >> std::ws, name, ',');
    (*values)[name.substr(name.rfind('.') + 1)] = text.str();
  };
  (put(each), ...);
}
#define PUT_NAMED(...) put_named(&values, #__VA_ARGS__, __VA_ARGS__)

Values values_of(const Page& p, const std::string& iccid, bool masked) {
  const std::string address = masked ? masked_address(p.address) : p.address,
                    destination = masked ? masked_address(p.destination) : p.destination,
                    mode = name_of(kSelectionMode, p.snapshot_mode), rat_name = name_of(kRat, p.rat),
                    sar = name_of(kSarMode, static_cast<uint32_t>(p.sar_mode)), signal = signal_of(p),
                    rx_bytes = padded(p.rx_bytes, 9), tx_bytes = padded(p.tx_bytes, 9),
                    rx_rate = padded(p.rx_rate, 8), tx_rate = padded(p.tx_rate, 8);
  std::string masked_band = p.band_text;
  const size_t last = masked_band.rfind('_');
  for (size_t i = 0; last != std::string::npos && i < last; i++) {
    if (masked_band[i] != '_') masked_band[i] = 'X';
  }
  char cell_id[16];
  snprintf(cell_id, sizeof cell_id, "%X", p.cell_id);
  const int rat = p.rat, nmo = p.nmo == 255 ? 255 : p.nmo + 1, band = static_cast<int>(p.band);
  Values values;
  PUT_NAMED(p.fw_ver, p.lib_ver, iccid, p.imei, p.mcc, p.mnc, p.band_text, masked_band, cell_id, p.lac, p.rac,
            p.tac, p.carrier_config, rat, band, nmo, signal, mode, rat_name, sar, address, destination,
            rx_bytes, tx_bytes, rx_rate, tx_rate);
  const auto name = [&](const std::string& place, const Table& table, unsigned value) {
    values[place] = name_of(table, value) + (" (" + std::to_string(value) + ")");
  };
  name("sim_status", kSimStatus, p.sim_status);
  name("wan_type", kWanType, p.wan_type);
  name("cs_reg_status", kRegistrationStatus, p.cs_reg_status);
  name("ps_reg_status", kRegistrationStatus, p.ps_reg_status);
  name("emm_state", kEmmState, p.emm_state);
  name("emm_substate", kEmmSubstate, p.emm_substate);
  name("mm_state", kMmState, p.mm_state);
  name("mm_substate", kMmSubstate, p.mm_substate);
  name("gmm_state", kGmmState, p.gmm_state);
  name("gmm_substate", kGmmSubstate, p.gmm_substate);
  name("pdp_state", kPdpState, p.pdp_state);
  const char* const domains[] = {"cs", "ps", "sm", "emm", "esm"};
  const Table* const causes[] = {&kMmRejectCause, &kMmRejectCause, &kSmRejectCause, &kEmmRejectCause,
                                 &kEsmRejectCause};
  for (size_t i = 0; i < 5; i++) {
    const std::string domain = domains[i];
    name(domain + "_cause", *causes[i], p.reject_bytes[i + 1]);
    values[domain + "_mcc"] = std::to_string(p.reject_words[2 * i]);
    values[domain + "_mnc"] = std::to_string(p.reject_words[2 * i + 1]);
  }
  return values;
}

Page random_page(Random& random) {
  Page page;
  auto* bytes = reinterpret_cast<unsigned char*>(&page);
  for (size_t i = 0; i < sizeof page; i++) {
    bytes[i] = static_cast<unsigned char>(random.below(random.chance(20) ? 256 : 48));
  }
  const auto fill = [&](auto& text, const char* letters) {
    const size_t length = random.below(sizeof text), count = strlen(letters);
    for (size_t i = 0; i < length; i++) text[i] = letters[random.below(static_cast<unsigned>(count))];
    text[length] = '\0';
  };
  for (auto* text : {&page.mcc, &page.mnc}) fill(*text, "0123456789F");
  for (auto* text : {&page.address, &page.destination}) {
    fill(*text, "12.");
    const char* const state = random.one_of({"connecting", "not connected", "", "", "", ""});
    if (*state != '\0') snprintf(*text, sizeof *text, "%s", state);
  }
  fill(page.band_text, "LTE4___"), fill(page.fw_ver, "L_8."), fill(page.lib_ver, "S3"),
      fill(page.imei, "0123456789");
  page.rat = random.one_of<uint8_t>({0, 1, 2, 3, 4, 5, 6, 7, 7, 7, 8, 255});
  page.wan_type = random.one_of<uint8_t>({0, 6, 7, 7, 42});
  page.bas_query_flag = random.one_of<uint8_t>({0, 1, 2});
  page.nmo = random.one_of<uint8_t>({0, 1, 254, 255});
  page.snapshot_mode = random.one_of<uint32_t>({0, 1, 2, 255});
  page.sar_mode = static_cast<int>(random.below(5)) - 1;
  page.signal_a = random.chance(90) ? static_cast<int>(random.below(104)) - 3 : page.signal_a;
  page.signal_b = random.chance(90) ? static_cast<int>(random.below(56)) - 3 : page.signal_b;
  page.rx_bytes = random.chance(50) ? -1 : page.rx_bytes,
  page.tx_rate = random.chance(50) ? -1 : page.tx_rate;
  return page;
}

TEST(PageModel, RandomSnapshots) {
  std::ifstream file(TEST_DATA_DIR "/page.txt");
  std::vector<std::string> form;
  for (std::string line; std::getline(file, line);) {
    if (line[0] != '#') form.push_back(line);
  }
  ASSERT_GT(form.size(), 50u);
  Random random(611);
  std::map<std::string, size_t> longest;
  for (int step = 0; step < 4000; step++) {
    const Page page = random_page(random);
    const View view = random.one_of({View::kFull, View::kMasked});
    const bool masked = view == View::kMasked, lte = page.rat == 7;
    const std::string iccid = random.digits(random.below(24));
    const Values values = values_of(page, iccid, masked);
    std::string expected;
    for (const auto& line : form) {
      const size_t bar = line.find('|');
      std::istringstream conditions(line.substr(0, bar));
      bool there = true;
      for (std::string word; conditions >> word;) {
        there = there && word != (masked ? "full" : "masked") && word != (lte ? "o" : "7") &&
                word != (page.wan_type == 7 ? "text" : "band");
      }
      if (!there) continue;
      std::string text = line.substr(bar + 1) + "\n";
      for (size_t at; (at = text.find('{')) != std::string::npos;) {
        const size_t end = text.find('}', at);
        text.replace(at, end + 1 - at, values.at(text.substr(at + 1, end - at - 1)));
      }
      size_t& most = longest[line + (lte ? "7" : "o")];
      most = std::max(most, text.size());
      expected += text;
    }
    for (const size_t size : {size_t{8192}, size_t{1} + random.below(1500)}) {
      char buffer[8192];
      Writer writer(buffer, static_cast<uint32_t>(size));
      ASSERT_TRUE(brio::page::write_sections(writer, {&page, iccid.c_str(), &page, page.sar_mode, view}));
      ASSERT_EQ(expected.substr(0, size - 1), buffer) << "snapshot " << step;
    }
  }
  for (const char* other : {"o", "7"}) {  // the longest page and file fit the buffer that the header names
    size_t all = brio::kStaticInfoSize;
    for (const auto& [line, size] : longest) {
      if (line.back() == *other && line.find("masked") == std::string::npos) all += size;
    }
    EXPECT_LE(all, size_t{WABS_PAGE_BUFFER_SIZE});
  }
}

// Other programs read the names: none may change unnoticed.
TEST(PageModel, NamesStay) {
  const Table* const tables[] = {&kSimStatus,    &kWanType,        &kRegistrationStatus, &kSelectionMode,
                                 &kRat,          &kSarMode,        &kEmmState,           &kEmmSubstate,
                                 &kMmState,      &kMmSubstate,     &kGmmState,           &kGmmSubstate,
                                 &kPdpState,     &kEmmRejectCause, &kEsmRejectCause,     &kMmRejectCause,
                                 &kSmRejectCause};
  const uint32_t checks[] = {4048968285, 1994741544, 741463708,  544663537,  912120237,  2951589576,
                             4084612288, 3590981906, 2883234619, 3563696442, 1503104826, 674878054,
                             3790464219, 2186927211, 1127758594, 2361020125, 1944252095};
  for (size_t i = 0; i < std::size(checks); i++) {
    std::string text;
    uint32_t sum = 2166136261u;  // FNV-1a
    for (uint32_t value = 0; value < 256; value++) {
      const std::string each = name_of(*tables[i], value);
      if (each != "N/A") text += std::to_string(value) + " " + each + "\n";
    }
    for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 16777619u;
    EXPECT_EQ(checks[i], sum) << "these names have changed:\n" << text;
  }
}

// Line by line, whatever stands there; without room nothing is read.
TEST(PageModel, CopiesStaticInfo) {
  const std::string text =
      std::string(148, 'a') + "\n" + std::string(149, 'b') + "\n%s%n%d\n" + std::string(999, 'c');
  for (const bool room : {true, false}) {
    const int memory = memfd_create("static_info", 0);
    EXPECT_EQ(pwrite(memory, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    brio::InputFile file(memory);
    char buffer[4096] = "";
    Writer page(buffer, room ? sizeof buffer : 0);
    brio::page::write_static_info(page, &file);
    EXPECT_EQ(room ? text : "", buffer);
    EXPECT_TRUE(room || lseek(memory, 0, SEEK_CUR) == 0);
  }
}

}  // namespace
