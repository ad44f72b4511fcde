#include <gtest/gtest.h>

#include <map>
#include <string>

#include "parse/time_report.h"
#include "support/corpus.h"
#include "support/exact_text.h"

namespace {

using brio::parse::TimeOutcome;
using brio::parse::TimeReport;

std::string text_of(const network_time& t) {
  return std::to_string(t.year) + "-" + std::to_string(t.month) + "-" + std::to_string(t.day) + " " +
         std::to_string(t.hour) + ":" + std::to_string(t.minute) + ":" + std::to_string(t.second) + " " +
         std::to_string(t.time_zone) + " " + std::to_string(t.dst);
}

TEST(TimeReport, ReadsTheCorpus) {
  const std::map<std::string, TimeOutcome> outcomes = {
      {"complete", TimeOutcome::kComplete},       {"ended", TimeOutcome::kIncomplete},
      {"too short", TimeOutcome::kTooShort},      {"zone alone", TimeOutcome::kNoTime},
      {"other indicator", TimeOutcome::kNotTime}, {"length", TimeOutcome::kWrongLength},
  };
  for (const auto& row : read_corpus("time_reports.txt", 5)) {
    ExactText text(row[2]);
    TimeReport report =
        row[1] == "CTZV" ? brio::parse::parse_ctzv(text.get()) : brio::parse::parse_ciev(text.get());
    ASSERT_EQ(1u, outcomes.count(row[3])) << row[3];
    EXPECT_EQ(outcomes.at(row[3]), report.outcome) << row[0];
    EXPECT_EQ(row[4], text_of(report.time)) << row[0];
    EXPECT_EQ(0xFF, report.time.spare) << row[0];
  }
}

TEST(TimeReport, TornAnywhereIsNeverComplete) {
  const std::string ctzv = " -28,\"26/03/07,09:05:00\"";
  const std::string ciev = " 9,\"26/03/07,09:05:00\",-28,0";
  for (size_t length = 0; length + 1 < ctzv.size(); length++) {
    ExactText text(ctzv.substr(0, length));
    EXPECT_NE(TimeOutcome::kComplete, brio::parse::parse_ctzv(text.get()).outcome) << length;
  }
  for (size_t length = 0; length + 1 < ciev.size(); length++) {
    ExactText text(ciev.substr(0, length));
    EXPECT_NE(TimeOutcome::kComplete, brio::parse::parse_ciev(text.get()).outcome) << length;
  }
}

}  // namespace
