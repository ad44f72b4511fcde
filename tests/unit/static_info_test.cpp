#include "static_info.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct SimData {
  sim_plmn_data plmn = {};
  sim_info_data info = {};

  std::string text() const {
    char text[brio::kStaticInfoSize];
    memset(text, 'Z', sizeof(text));
    brio::static_info_text(plmn, info, text);
    return std::string(text, strnlen(text, sizeof(text)));
  }
};

plmn_entry entry(const char* mcc, const char* mnc, uint8_t access_tech) {
  plmn_entry result = {};
  snprintf(result.mcc, sizeof(result.mcc), "%s", mcc);
  snprintf(result.mnc, sizeof(result.mnc), "%s", mnc);
  result.access_tech = access_tech;
  return result;
}

constexpr char kNoFiles[] = "PSLOCI: \nLOCI: \nEPSLOCI: \n";

TEST(StaticInfo, AnUnreadSimGivesTheThreeLocations) {
  EXPECT_EQ(kNoFiles, SimData().text());
}

TEST(StaticInfo, PrintsListsInOrderAndBreaksAfterFive) {
  SimData sim;
  for (int i = 0; i < 6; i++) sim.plmn.uplmn[i] = entry("310", std::to_string(410 + i).c_str(), 7);
  sim.plmn.uplmn_count = 6;
  for (int i = 0; i < 5; i++) sim.plmn.oplmn[i] = entry("262", "01", 4);
  sim.plmn.oplmn_count = 5;
  sim.plmn.fplmn[0] = entry("234", "15", 0);
  sim.plmn.fplmn_count = 1;
  sim.plmn.hplmn[0] = entry("310", "410", 6);
  sim.plmn.hplmn[1] = entry("310", "410", 255);
  sim.plmn.hplmn_count = 2;
  sim.plmn.ehplmn[0] = entry("440", "10", 1);
  sim.plmn.ehplmn_count = 1;
  strcpy(sim.info.psloci, "0123456789ABCDEF0123456789AB");
  strcpy(sim.info.loci, "FFFFFFFF130014FFFE0001");
  strcpy(sim.info.epsloci, "0BF613001480010101020304130014000100");
  EXPECT_EQ(
      "UPLMN: 310410LWG 310411LWG 310412LWG 310413LWG 310414LWG\n      310415LWG\n"
      "OPLMN: 262 01L   262 01L   262 01L   262 01L   262 01L  \n"
      "FPLMN: 234 15Null\n"
      "HPLMN: 310410LW  310410Null\n"
      "EHPLMN: 440 10G  \n"
      "PSLOCI: 0123456789ABCDEF0123456789AB\n"
      "LOCI: FFFFFFFF130014FFFE0001\n"
      "EPSLOCI: 0BF613001480010101020304130014000100\n",
      sim.text());
}

TEST(StaticInfo, NamesEveryAccessTechnology) {
  const char* const names[] = {"Null", "G  ", "W  ", "WG ", "L  ", "LG ", "LW ", "LWG", "Null"};
  for (uint8_t mask = 0; mask < 9; mask++) {
    SimData sim;
    sim.plmn.ehplmn[0] = entry("310", "410", mask);
    sim.plmn.ehplmn_count = 1;
    EXPECT_EQ(std::string("EHPLMN: 310410") + names[mask] + "\n" + kNoFiles, sim.text());
  }
}

TEST(StaticInfo, ReadsNoMoreThanAListHolds) {
  SimData sim;
  for (auto& e : sim.plmn.hplmn) e = entry("310", "410", 4);
  sim.plmn.hplmn_count = 65535;
  for (auto& e : sim.plmn.ehplmn) e = entry("440", "10", 4);
  sim.plmn.ehplmn_count = 11;
  std::string text = sim.text();
  size_t entries = 0;
  for (size_t at = text.find("310410L"); at != std::string::npos; at = text.find("310410L", at + 1))
    entries++;
  EXPECT_EQ(10u, entries);
  EXPECT_NE(std::string::npos, text.find("440 10L  \nPSLOCI: "));
}

TEST(StaticInfo, UnterminatedTextsStayInTheirFields) {
  SimData sim;
  memset(&sim.info, 'A', sizeof(sim.info));
  memset(&sim.plmn.ehplmn[0], '9', sizeof(plmn_entry));
  sim.plmn.ehplmn_count = 1;
  EXPECT_EQ("EHPLMN: 999999Null\nPSLOCI: " + std::string(28, 'A') + "\nLOCI: " + std::string(22, 'A') +
                "\nEPSLOCI: " + std::string(36, 'A') + "\n",
            sim.text());
}

TEST(StaticInfo, EndsAtFourKilobytes) {
  SimData sim;
  for (auto& e : sim.plmn.uplmn) e = entry("310", "410", 7);
  sim.plmn.uplmn_count = BRIO_UPLMN_MAX;
  for (auto& e : sim.plmn.oplmn) e = entry("262", "01", 7);
  sim.plmn.oplmn_count = BRIO_OPLMN_MAX;
  std::string text = sim.text();
  EXPECT_EQ(brio::kStaticInfoSize - 1, text.size());
  EXPECT_EQ(0u, text.find("UPLMN: 310410LWG "));
  EXPECT_EQ(std::string::npos, text.find("PSLOCI"));
}

}  // namespace
