// What no session shows: answers cut off at every byte, and times that would have to be waited for.
#include <gtest/gtest.h>

#include <string>

#include "lab/exact_text.h"
#include "parse/manual_selection.h"
#include "parse/time_report.h"

namespace {

using namespace brio::parse;

TEST(Torn, TimeReportsAreNeverComplete) {
  const std::string ctzv = " -28,\"26/03/07,09:05:00\"";
  const std::string ciev = " 9,\"26/03/07,09:05:00\",-28,0";
  for (size_t length = 0; length + 1 < ctzv.size(); length++) {
    EXPECT_NE(TimeOutcome::kComplete, parse_ctzv(ExactText(ctzv.substr(0, length)).get()).outcome) << length;
  }
  for (size_t length = 0; length + 1 < ciev.size(); length++) {
    EXPECT_NE(TimeOutcome::kComplete, parse_ciev(ExactText(ciev.substr(0, length)).get()).outcome) << length;
  }
}

TEST(ManualSelection, TimeOutsThatAreNoneAreZero) {
  for (const char* line : {"junk AT", "-5 AT", " AT"}) {
    ExactText text(line);
    ManualSelection selection = {77, ""};
    ASSERT_TRUE(parse_manual_selection(text.get(), &selection)) << line;
    EXPECT_EQ(selection.timeout_seconds, 0) << line;
    EXPECT_STREQ(selection.command, "AT") << line;
  }
  ManualSelection selection;
  ASSERT_TRUE(parse_manual_selection(ExactText("2147483647 AT").get(), &selection));
  EXPECT_EQ(selection.timeout_seconds, kManualSelectionTimeoutMax);
}

}  // namespace
