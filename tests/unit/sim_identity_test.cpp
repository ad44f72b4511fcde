#include <gtest/gtest.h>

#include <string>

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

}  // namespace
