#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "parse/sim_file.h"
#include "parse/sim_status.h"
#include "support/corpus.h"
#include "support/exact_text.h"

namespace {

using brio::parse::CrsmAnswer;
using brio::parse::CrsmOutcome;
using brio::parse::SimFile;

TEST(SimFile, DecodesThePlmnListsOfTheCorpus) {
  for (const auto& row : read_corpus("plmn_lists.txt", 4)) {
    ExactText text(row[2]);
    const char* cursor = text.get();
    bool with_technology = row[1] != "28539";
    std::string entries;
    plmn_entry entry;
    while (brio::parse::next_plmn(&cursor, with_technology, &entry)) {
      entries += (entries.empty() ? "" : " ") + std::string(entry.mcc) + "-" + entry.mnc + ":" +
                 std::to_string(entry.access_tech);
    }
    EXPECT_EQ(row[3], entries) << row[0];
  }
}

TEST(SimFile, KnowsTheFileOfACommand) {
  struct Case {
    const char* command;
    SimFile file;
  };
  const Case cases[] = {
      {"AT+CRSM=176,28512,0,0,0", SimFile::kUserPlmn},
      {"176,28513,0,0,0", SimFile::kOperatorPlmn},
      {"176, 28514", SimFile::kHomePlmn},
      {"AT+CRSM=176,28643,0,0,18", SimFile::kEpsLocation},
      {"AT+CRSM=176,28531,0,0,14", SimFile::kPsLocation},
      {"AT+CRSM=176,28539,0,0,0", SimFile::kForbiddenPlmn},
      {"AT+CRSM=176,28542,0,0,11", SimFile::kLocation},
      {"AT+CRSM=176,28633,0,0,0", SimFile::kEquivalentHomePlmn},
      {"AT+CRSM=176,12258,0,0,0", SimFile::kIccid},
      {"AT+CRSM=176,1225", SimFile::kOther},
      {"AT+CRSM=176", SimFile::kOther},
      {"AT+CRSM=176,,28512", SimFile::kOther},
      {"AT+CRSM=176                   ,28512", SimFile::kOther},  // only 29 characters are looked at
      {"", SimFile::kOther},
      {nullptr, SimFile::kOther},
  };
  for (const auto& c : cases) EXPECT_EQ(c.file, brio::parse::crsm_file(c.command)) << c.command;
}

TEST(SimFile, ChecksStatusWordsAndQuotes) {
  struct Case {
    const char* rest;
    CrsmOutcome outcome;
    const char* data;
  };
  const Case cases[] = {
      {" 144,0,\"62F210\"", CrsmOutcome::kOk, "62F210"},
      {"145, 33 , \" \"62F210\"", CrsmOutcome::kOk, "62F210"},
      {" 146,64,\"AA\"", CrsmOutcome::kOk, "AA"},
      {" 146,641,\"AA\"", CrsmOutcome::kOk, "AA"},
      {" 144,,\"AA\"", CrsmOutcome::kOk, "AA"},
      {" 144,0,\"x\"\"", CrsmOutcome::kOk, "x\""},
      {" 146,0,\"AA\"", CrsmOutcome::kRefused, nullptr},
      {" 106,130", CrsmOutcome::kRefused, nullptr},
      {" ,0,\"AA\"", CrsmOutcome::kRefused, nullptr},
      {" 14,0,\"AA\"", CrsmOutcome::kRefused, nullptr},
      {" 144", CrsmOutcome::kNoStatusWords, nullptr},
      {"", CrsmOutcome::kNoStatusWords, nullptr},
      {" 144,0", CrsmOutcome::kNoEndQuote, nullptr},
      {" 144,0,", CrsmOutcome::kNoEndQuote, nullptr},
      {" 144,0,\"\"", CrsmOutcome::kNoEndQuote, nullptr},
      {" 144,0,\"62F210", CrsmOutcome::kNoEndQuote, nullptr},
      {" 144,0,\"62F210\" ", CrsmOutcome::kNoEndQuote, nullptr},
  };
  for (const auto& c : cases) {
    ExactText text(c.rest);
    CrsmAnswer answer;
    EXPECT_EQ(c.outcome, brio::parse::parse_crsm(text.get(), &answer)) << c.rest;
    EXPECT_STREQ(c.data, answer.data) << c.rest;
  }
}

TEST(SimFile, ReadsIccidsOfEveryLength) {
  struct Case {
    const char* text;
    const char* iccid;
  };
  const Case files[] = {
      {"98101430121181157002", "89014103211118510720"},
      {"981014301211811570F2", "8901410321111851072"},
      {"98101430121181157002FFFF", "89014103211118510720"},
      {"9810143012118115700", "8901410321111851070"},
      {"981", "891"},
      {"9", "9"},
      {"", ""},
  };
  for (const auto& c : files) {
    ExactText text(c.text);
    char iccid[21];
    brio::parse::iccid_from_file(text.get(), iccid);
    EXPECT_STREQ(c.iccid, iccid) << c.text;
  }
  const Case lines[] = {
      {" 89014103211118510720", "89014103211118510720"},
      {" 8901410321111851072F", "8901410321111851072"},
      {"8901410321111851072", "8901410321111851072"},
      {" 89014103211118510720F", "89014103211118510720"},
      {" 890141032111185107201", "890141032111185107201"},
      {" 890", "890"},
      {" 89F", "89F"},
      {"", ""},
      {" 890141032111185107201234567890123456789012345678901234567890", "89014103211118510720123"},
      {" 8901410321111851072012FFFFFFFFFFFFF", "8901410321111851072012"},
  };
  for (const auto& c : lines) {
    ExactText text(c.text);
    char iccid[24];
    brio::parse::iccid_from_line(text.get(), iccid);
    EXPECT_STREQ(c.iccid, iccid) << c.text;
  }
}

TEST(SimStatusLine, TellsMissingFromEmptyFields) {
  struct Case {
    const char* rest;
    const char* card;
    const char* lock;
    int32_t card_value;
    int32_t lock_value;
  };
  const Case cases[] = {
      {" 3,0", "3", "0", 3, 0}, {" 1, 15,7", "1", "15", 1, 15}, {" 3", "3", nullptr, 3, 0},
      {" ,7", "", "7", 0, 7},   {"2,", "2", "", 2, 0},          {" x,-1", "x", "-1", 0, -1},
  };
  for (const auto& c : cases) {
    ExactText text(c.rest);
    brio::parse::SimStatus status = brio::parse::parse_sim_status(text.get());
    EXPECT_STREQ(c.card, status.card_text) << c.rest;
    EXPECT_STREQ(c.lock, status.lock_text) << c.rest;
    EXPECT_EQ(c.card_value, status.card) << c.rest;
    EXPECT_EQ(c.lock_value, status.lock) << c.rest;
  }
}

}  // namespace
