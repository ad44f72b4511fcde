// Where the module's operations log their exit. All else about them: tests/sessions/host.
#include <gtest/gtest.h>

#include <set>

#include "brio/wabs.h"
#include "kit/log.h"

// Each return of an operation has its own line, after that of its entry.
TEST(Module, ReturnCarriesItsOwnLine) {
  uint32_t numbers[2];
  wabs_set_log_mask(WABS_LOG_FLOW);
  for (uint32_t* mnc : {static_cast<uint32_t*>(nullptr), numbers}) wabs_get_mcc_mnc(numbers, mnc);
  std::set<int> seen;
  int entry = 0;
  for (const auto& line : log_capture::lines()) {
    const bool enters = line.text.find("D def:Enter") == 0;
    if (!enters && line.text.find("D def:Return") != 0) continue;
    const int number = std::stoi(line.text.substr(line.text.rfind(':') + 1));
    if (enters) entry = number;
    EXPECT_TRUE(enters || (number > entry && seen.insert(number).second)) << line.text;
  }
  EXPECT_EQ(seen.size(), 2u);
}
