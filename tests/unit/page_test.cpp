// The diagnostic page against tests/data/611: whole pages, single lines, every name. Buffers of any size:
// fuzz/page_fuzz.cpp.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <string>

#include "brio/wabs.h"
#include "log_611_names.h"
#include "log_611_sections.h"
#include "static_info.h"

using brio::page::View;
using brio::page::Writer;

namespace {

std::string file_text(const std::string& name) {
  std::stringstream text;
  text << std::ifstream(TEST_DATA_DIR "/611/" + name, std::ios::binary).rdbuf();
  EXPECT_FALSE(text.str().empty()) << name;
  return text.str();
}

// All that a page is made from.
struct Page : atcmd_snapshot, brio::page::NetInfo {
  char iccid[24];
  int32_t sar_mode;
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
  std::string name;
  const auto next = [&] {
    return std::getline(list >> std::ws, name, ','), name.substr(name.rfind('.') + 1);
  };
  (visit(next(), places), ...);
}
#define VISIT_NAMED(visit, ...) visit_named(#__VA_ARGS__, visit, __VA_ARGS__)

// Every place but those of the reject causes.
template <typename Visit>
void visit_places(Page& p, Visit visit) {
  VISIT_NAMED(visit, p.cs_reg_status, p.ps_reg_status, p.lac, p.cell_id, p.rat, p.rac, p.mcc, p.mnc,
              p.plmn_text, p.band_text, p.arfcn, p.signal_a, p.signal_b, p.bars, p.pdp_state, p.mm_state,
              p.mm_substate, p.gmm_state, p.gmm_substate, p.nmo, p.carrier_config, p.sim_status,
              p.bas_value_a, p.bas_value_b, p.emm_state, p.emm_substate, p.tac, p.bas_query_flag, p.wan_type,
              p.band, p.snapshot_mode, p.fw_ver, p.lib_ver, p.imei, p.address, p.destination, p.rx_bytes,
              p.tx_bytes, p.rx_rate, p.tx_rate, p.iccid, p.sar_mode);
}

void set(Page& p, const std::string& assignment) {
  const size_t equals = assignment.find('=');
  const std::string name = assignment.substr(0, equals), value = assignment.substr(equals + 1);
  bool found = name == "reject";
  if (found) {
    size_t index, cause, country, network;
    std::istringstream(value) >> index >> cause >> country >> network;
    p.reject_bytes[index + 1] = static_cast<uint8_t>(cause);
    p.reject_words[2 * index] = static_cast<uint16_t>(country);
    p.reject_words[2 * index + 1] = static_cast<uint16_t>(network);
  }
  const auto take = [&](const std::string& each, auto& place) {
    if (each == name) found = true, assign(place, value);
  };
  visit_places(p, take);
  EXPECT_TRUE(found) << assignment;
}

std::string text_of(const Page& values, View view) {
  char buffer[8192];
  Writer page(buffer, sizeof buffer);
  EXPECT_TRUE(brio::page::write_sections(page, {&values, values.iccid, &values, values.sar_mode, view}));
  return buffer;
}

std::map<std::string, Page> pages() {
  std::map<std::string, Page> all;
  Page* page = nullptr;
  std::istringstream file(file_text("pages.txt"));
  for (std::string line, name, base; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line.compare(0, 5, "page ") == 0) {
      base.clear();
      std::istringstream(line.substr(5)) >> name >> base;
      page = &(all[name] = base.empty() ? Page{} : all.at(base));
    } else {
      set(*page, line);
    }
  }
  return all;
}

constexpr std::pair<View, const char*> kViews[] = {{View::kFull, "full"}, {View::kMasked, "masked"}};

TEST(Page, WholeInBothViews) {
  for (const auto& [name, values] : pages()) {
    for (const auto& [view, suffix] : kViews) {
      EXPECT_EQ(file_text(name + "." + suffix + ".txt"), text_of(values, view)) << name;
    }
  }
}

TEST(Page, LinesAtTheirLimits) {
  const Page lte = pages().at("lte");
  std::istringstream file(file_text("cases.txt"));
  for (std::string text; std::getline(file, text);) {
    if (text.empty() || text[0] == '#') continue;
    const size_t first = text.find(" | "), last = text.rfind(" | ");
    const std::string kind = text.substr(0, first),
                      line = "\n" + text.substr(last + 3, text.size() - last - 4) + "\n";
    Page values = lte;
    std::istringstream input(text.substr(first + 3, last - first - 3));
    for (std::string assignment; input >> assignment;) set(values, assignment);
    for (const auto& [view, name] : kViews) {
      if (kind != "both" && kind != name) continue;
      EXPECT_NE(std::string::npos, text_of(values, view).find(line)) << text;
    }
  }
}

TEST(Page, NamesAreThoseOfTheStandards) {
  using namespace brio::names;
  std::ostringstream all;
  // Through the lookup, at every value of a byte; 255 as a RAT has the text of a missing name.
  const auto list = [&](const std::string& table, const Table& rows) {
    for (uint32_t value = 0; value < 256; value++) {
      const std::string text = name_of(rows, value);
      if (text == "N/A" && (table != "kRat" || value != 255)) continue;
      all << table.substr(1) << " " << value << " " << text << "\n";
    }
  };
  VISIT_NAMED(list, kSimStatus, kWanType, kRegistrationStatus, kSelectionMode, kRat, kSarMode, kEmmState,
              kEmmSubstate, kMmState, kMmSubstate, kGmmState, kGmmSubstate, kPdpState, kEmmRejectCause,
              kEsmRejectCause, kMmRejectCause, kSmRejectCause);
  const std::string expected = file_text("names.txt");
  EXPECT_EQ(expected.substr(expected.find("SimStatus 0")), all.str());
}

// Every place at its longest, in each form of the page, and the longest file that the library writes.
TEST(Page, FitsTheBufferThatTheHeaderNames) {
  size_t longest = 0;
  for (uint8_t rat : {0, 6, 7, 255}) {
    for (int form = 0; form < 8; form++) {
      const View view = (form & 1) != 0 ? View::kFull : View::kMasked;
      Page page = {};
      const auto stretch = [&](const std::string& name, auto& place) {
        using T = std::remove_reference_t<decltype(place)>;
        if (name == "rat" || name == "bas_query_flag" || name == "wan_type") return;
        if constexpr (std::is_integral_v<T>) {
          T best = place;
          size_t most = text_of(page, view).size();
          for (int value = -2; value < 256; value++) {
            place = value == -2   ? std::numeric_limits<T>::min()
                    : value == -1 ? std::numeric_limits<T>::max()
                                  : static_cast<T>(value);
            if (const size_t size = text_of(page, view).size(); size > most) most = size, best = place;
          }
          place = best;
        } else {
          memset(place, 'W', sizeof place - 1);
        }
      };
      page.rat = rat;
      page.bas_query_flag = (form & 2) != 0;
      page.wan_type = (form & 4) != 0 ? 7 : 6;
      visit_places(page, stretch);
      for (uint8_t& cause : page.reject_bytes) stretch("cause", cause);
      for (uint16_t& word : page.reject_words) stretch("word", word);
      longest = std::max(longest, text_of(page, view).size());
    }
  }
  EXPECT_LE(longest + brio::kStaticInfoSize, size_t{WABS_PAGE_BUFFER_SIZE});
}

// Line by line, whatever stands there; without room nothing is read.
TEST(Page, CopiesStaticInfo) {
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
