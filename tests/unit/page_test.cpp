// The diagnostic page against tests/data/611: whole pages in buffers of every size, single lines, names,
// counters and rates.
#include <gtest/gtest.h>
#include <string.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "log_611_names.h"
#include "log_611_sections.h"
#include "support/sim_fixture.h"

using brio::page::NetInfo;
using brio::page::View;
using brio::page::Writer;

namespace {

const std::string kFolder = std::string(TEST_DATA_DIR) + "/611/";

std::string file_text(const std::string& name) {
  std::stringstream text;
  text << std::ifstream(kFolder + name, std::ios::binary).rdbuf();
  EXPECT_FALSE(text.str().empty()) << name;
  return text.str();
}

// All that a page is made from.
struct Page : atcmd_snapshot, NetInfo {
  char iccid[24];
  int32_t sar_mode;
  void set(const std::string& assignment);
};

template <typename T>
void assign(T& place, const std::string& text) {
  if constexpr (std::is_integral_v<T>) {
    place = static_cast<T>(std::stoll(text, nullptr, 0));
  } else {
    snprintf(place, sizeof place, "%s", text == "\" \"" ? " " : text.c_str());
  }
}

// Hands each of the places to `visit`, with its name: the last word of its part of `names`.
template <typename Visit, typename... T>
void visit_named(const char* names, Visit visit, T&... places) {
  std::istringstream list(names);
  const auto one = [&](auto& place) {
    std::string name;
    std::getline(list >> std::ws, name, ',');
    visit(name.substr(name.rfind(':') + 1), place);
  };
  (one(places), ...);
}
#define VISIT_NAMED(visit, ...) visit_named(#__VA_ARGS__, visit, __VA_ARGS__)

void Page::set(const std::string& assignment) {
  const size_t equals = assignment.find('=');
  const std::string name = assignment.substr(0, equals), value = assignment.substr(equals + 1);
  bool found = false;
  const auto take = [&](const std::string& each, auto& place) {
    if (each == name) found = true, assign(place, value);
  };
  VISIT_NAMED(take, cs_reg_status, ps_reg_status, lac, cell_id, rat, rac, mcc, mnc, plmn_text, band_text,
              arfcn, signal_a, signal_b, bars, pdp_state, mm_state, mm_substate, gmm_state, gmm_substate, nmo,
              carrier_config, sim_status, bas_value_a, bas_value_b, emm_state, emm_substate, tac,
              bas_query_flag, wan_type, band, snapshot_mode, fw_ver, lib_ver, imei, address, destination,
              rx_bytes, tx_bytes, rx_rate, tx_rate, iccid, sar_mode);
  if (found) return;
  ASSERT_EQ("reject", name) << assignment;
  size_t index, cause, country, network;
  std::istringstream(value) >> index >> cause >> country >> network;
  reject_bytes[index + 1] = static_cast<uint8_t>(cause);
  reject_words[2 * index] = static_cast<uint16_t>(country);
  reject_words[2 * index + 1] = static_cast<uint16_t>(network);
}

std::map<std::string, Page> pages() {
  std::map<std::string, Page> all;
  Page* page = nullptr;
  std::istringstream file(file_text("pages.txt"));
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line.compare(0, 5, "page ") != 0) {
      page->set(line);
      continue;
    }
    std::string name, base;
    std::istringstream(line.substr(5)) >> name >> base;
    page = &(all[name] = base.empty() ? Page{} : all.at(base));
  }
  return all;
}

bool build(Writer& page, const Page& values, View view) {
  if (!brio::page::write_sections(page, {&values, values.iccid, &values, values.sar_mode, view})) {
    return false;
  }
  FILE* file = fopen((kFolder + "static_info").c_str(), "r");
  brio::page::write_static_info(page, file);
  fclose(file);
  return true;
}

std::string text_of(const Page& values, View view) {
  char buffer[8192];
  Writer page(buffer, sizeof buffer);
  EXPECT_TRUE(build(page, values, view));
  return buffer;
}

TEST(Page, FillsABufferOfEverySizeWithItsFirstCharacters) {
  for (const auto& [name, values] : pages()) {
    for (View view : {View::kFull, View::kMasked}) {
      const std::string whole = file_text(name + (view == View::kFull ? ".full.txt" : ".masked.txt"));
      ASSERT_EQ(whole, text_of(values, view)) << name;
      for (size_t capacity = 0; capacity <= whole.size() + 2; capacity++) {
        std::string expected = capacity == 0 ? "" : whole.substr(0, capacity - 1) + '\0';
        const size_t used = std::min(capacity, expected.size() - (capacity > whole.size() ? 1 : 0));
        std::string buffer(capacity + 16, '\x5A');
        expected.resize(buffer.size(), '\x5A');
        Writer page(buffer.data(), static_cast<uint32_t>(capacity));
        ASSERT_TRUE(build(page, values, view));
        ASSERT_EQ(expected, buffer) << name << " at " << capacity;
        ASSERT_EQ(used, page.written()) << name << " at " << capacity;
      }
    }
  }
  Writer nowhere(nullptr, 100);
  nowhere.add("abc");
  EXPECT_EQ(100u, nowhere.room());
}

TEST(Page, LinesCountersAndRates) {
  const Page lte = pages().at("lte");
  std::istringstream file(file_text("cases.txt"));
  for (std::string text; std::getline(file, text);) {
    if (text.empty() || text[0] == '#') continue;
    const size_t first = text.find(" | "), last = text.rfind(" | ");
    const std::string kind = text.substr(0, first), expected = text.substr(last + 3);
    const std::string given = text.substr(first + 3, last - std::min(last, first + 3));
    std::ostringstream result;
    std::istringstream input(given);
    NetInfo net = {};
    if (kind == "net_dev") {
      brio::page::TrafficSample sample = {};
      const bool found = brio::page::parse_net_dev_line(given.c_str(), "wwan0", &sample);
      result << (found ? std::to_string(sample.rx_bytes) + " " + std::to_string(sample.tx_bytes) : "none");
    } else if (kind == "rates") {
      int32_t before = 0, now = 0;
      int64_t milliseconds = 0;
      input >> before >> now >> milliseconds;
      brio::page::compute_rates({1, before, now}, {1, now, before}, static_cast<uint64_t>(milliseconds),
                                &net);
      result << net.rx_rate << " " << net.tx_rate;
    } else {
      Page values = lte;
      for (std::string assignment; input >> assignment;) values.set(assignment);
      const std::string line = "\n" + expected.substr(0, expected.size() - 1) + "\n";
      for (View view : {View::kFull, View::kMasked}) {
        if (kind == (view == View::kFull ? "masked" : "full")) continue;
        const std::string page = text_of(values, view);
        EXPECT_NE(std::string::npos, page.find(line)) << given << line << "is not in\n" << page;
      }
      continue;
    }
    EXPECT_EQ(expected, result.str() + "$") << kind << " of " << given;
  }
}

TEST(Page, NamesAreThoseOfTheStandards) {
  namespace names = brio::names;
  std::ostringstream all;
  // Through the lookup, at every value of a byte; 255 as a RAT has the text of a missing name.
  const auto list = [&](const std::string& table, const names::Table& rows) {
    for (uint32_t value = 0; value < 256; value++) {
      const std::string text = names::name_of(rows, value);
      if (text != "N/A" || (table == "kRat" && value == 255)) {
        all << table.substr(1) << " " << value << " " << text << "\n";
      }
    }
  };
  VISIT_NAMED(list, names::kSimStatus, names::kWanType, names::kRegistrationStatus, names::kSelectionMode,
              names::kRat, names::kSarMode, names::kEmmState, names::kEmmSubstate, names::kMmState,
              names::kMmSubstate, names::kGmmState, names::kGmmSubstate, names::kPdpState,
              names::kEmmRejectCause, names::kEsmRejectCause, names::kMmRejectCause, names::kSmRejectCause);
  const std::string expected = file_text("names.txt");
  EXPECT_EQ(expected.substr(expected.find("SimStatus 0")), all.str());
}

TEST(Page, CopiesStaticInfoWhateverTheFileHolds) {
  const std::string text =
      std::string(148, 'a') + "\n" + std::string(149, 'b') + "\n%s%n%d\n" + std::string(999, 'c');
  for (const std::string& content : {std::string(), text}) {
    FILE* file = fmemopen(const_cast<char*>(content.data()), content.size() + 1, "r");
    char buffer[4096] = "";
    Writer page(buffer, sizeof buffer);
    brio::page::write_static_info(page, file);
    fclose(file);
    EXPECT_EQ(content, buffer);
  }
  // No room: nothing is read.
  FILE* endless = fopen("/dev/zero", "r");
  char small[4];
  Writer none(small, 0);
  brio::page::write_static_info(none, endless);
  EXPECT_EQ(0, ftell(endless));
  fclose(endless);
}

}  // namespace
