// Where the module's operations log their exit. All else about them: tests/sessions/host.
#include <gtest/gtest.h>

#include <regex>
#include <vector>

#include "brio/wabs.h"
#include "kit/log.h"

// Each return has its own line, which comes after that of the entry.
TEST(Module, ReturnCarriesItsOwnLine) {
  uint32_t numbers[2];
  char text[24];
  wabs_set_log_mask(WABS_LOG_FLOW);
  for (uint32_t* mnc : {static_cast<uint32_t*>(nullptr), numbers}) wabs_get_mcc_mnc(numbers, mnc);
  wabs_get_radio_cert_param2(text, sizeof text);
  wabs_do_manual_nw_scan(text, sizeof text);
  wabs_close();
  wabs_set_log_mask(0);

  std::vector<int> entries, returns;
  for (const auto& line : log_capture::lines()) {
    std::smatch parts;
    if (!std::regex_match(line.text, parts, std::regex("D def:(Enter|Return) .*:([0-9]+)\\)"))) continue;
    const int number = std::stoi(parts[2]);
    if (parts[1] == "Enter") {
      entries.push_back(number);
    } else {
      ASSERT_FALSE(entries.empty());
      EXPECT_GT(number, entries.back()) << line.text;
      entries.pop_back();
      returns.push_back(number);
    }
  }
  ASSERT_EQ(returns.size(), 6u);
  EXPECT_TRUE(entries.empty());
  EXPECT_NE(returns[0], returns[1]) << "two returns of one operation";
}
