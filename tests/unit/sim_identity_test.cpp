#include <gtest/gtest.h>

#include <string>

#include "carriers.h"
#include "parse/sim_identity.h"
#include "support/corpus.h"

namespace {

TEST(SimIdentity, ReadsIccidsOfTheCorpus) {
  for (const auto& row : read_corpus("iccid.txt", 2)) {
    char iccid[brio::parse::kIccidSize] = "kept";
    bool read = brio::parse::parse_iccid(row[0].c_str(), iccid);
    EXPECT_EQ(row[1] != "none", read) << row[0];
    EXPECT_EQ(row[1] != "none" ? row[1] : "kept", iccid) << row[0];
  }
  char iccid[brio::parse::kIccidSize] = "kept";
  EXPECT_FALSE(brio::parse::parse_iccid(nullptr, iccid));
  EXPECT_STREQ("kept", iccid);
}

TEST(SimIdentity, ReadsImsisOfTheCorpusAndTheirHomePlmn) {
  for (const auto& row : read_corpus("imsi.txt", 4)) {
    char imsi[brio::parse::kImsiSize] = "kept";
    bool read = brio::parse::parse_imsi(row[0].c_str(), imsi);
    EXPECT_EQ(row[1] != "none", read) << row[0];
    EXPECT_EQ(row[1] != "none" ? row[1] : "kept", imsi) << row[0];
    if (!read) continue;
    char mcc[4] = "xxx";
    char mnc[4] = "xxx";
    brio::parse::home_plmn(imsi, mcc, mnc);
    EXPECT_EQ(row[2], mcc) << row[0];
    EXPECT_EQ(row[3], mnc) << row[0];
  }
}

TEST(Carriers, AcceptAndSelectByTheSimPrefix) {
  struct Case {
    const char* prefix;
    uint16_t carrier_id;  // 0: no carrier
    const char* command;
  };
  const Case cases[] = {
      {"310410", 201, "at+gtfdcar=201"},
      {"302720", 201, "at+gtfdcar=201"},
      {"440101", 216, "at+gtfdcar=216"},
      {"144010", 216, "at+gtfdcar=216"},  // sought anywhere in the six characters
      {"234150", 202, "at+gtfdcar=202"},
      {"204049", 202, "at+gtfdcar=202"},
      {"310260", 0, nullptr},
      {"31041", 0, nullptr},
      {"", 0, nullptr},
  };
  for (const auto& c : cases) {
    const brio::Carrier* carrier = brio::carrier_of_sim(c.prefix);
    ASSERT_EQ(c.carrier_id != 0, carrier != nullptr) << c.prefix;
    EXPECT_STREQ(c.command, carrier != nullptr ? carrier->command : nullptr);
    for (uint16_t id : {201, 202, 216, 205, 0, 65535}) {
      EXPECT_EQ(c.carrier_id == id && id != 0, brio::carrier_accepts_sim(id, c.prefix)) << c.prefix << id;
    }
  }
}

}  // namespace
