// Names that the diagnostic page prints for reject causes and states.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "log_611_names.h"

namespace {

TEST(PageNames, ReadAsTheirStandardsSay) {
  namespace names = brio::names;
  struct Case {
    const names::Table& table;
    uint32_t value;
    const char* name;
  };
  const Case cases[] = {
      {names::kEmmRejectCause, 2, "EMM_IMSI_UNKNOWN_IN_HSS"},
      {names::kEmmRejectCause, 8, "EMM_EPS_SERVICES_AND_NON_EPS_SERVICES_NOT_ALLOWED"},
      {names::kEmmRejectCause, 111, "EMM_PROTOCOL_ERROR_UNSPECIFIED"},
      {names::kEmmRejectCause, 0, "N/A"},
      {names::kEmmRejectCause, 4, "N/A"},
      {names::kEsmRejectCause, 8, "ESM_OPERATOR_DETERMINED_BARRING"},
      {names::kEsmRejectCause, 50, "ESM_PDN_TYPE_IPV4_ONLY_ALLOWED"},
      {names::kEsmRejectCause, 81, "ESM_INVALID_PTI_VALUE"},
      {names::kEsmRejectCause, 0, "N/A"},
      {names::kMmRejectCause, 3, "MM_ILLEGAL_MS"},
      {names::kMmRejectCause, 14, "GMM_GPRS_SERVICES_NOT_ALLOWED_IN_THIS_PLMN"},
      {names::kMmRejectCause, 22, "MM_CONGESTION"},
      {names::kMmRejectCause, 0, "N/A"},
      {names::kSmRejectCause, 27, "SM_MISSING_OR_UNKNOWN_APN"},
      {names::kSmRejectCause, 43, "SM_UNKNOWN_PDP_CONTEXT"},
      {names::kSmRejectCause, 0, "N/A"},
      {names::kRat, 1, "N/A"},
      {names::kRat, 3, "EDGE"},
      {names::kRat, 255, "N/A"},
      {names::kSelectionMode, 255, "UNKNOWN"},
      {names::kWanType, 1, "N/A"},
  };
  for (const Case& c : cases) EXPECT_STREQ(c.name, names::name_of(c.table, c.value)) << c.value;
}

// Causes 95 to 111 mean the same in every protocol, and each table's names carry its protocol.
TEST(PageNames, AgreeAcrossTheRejectCauseTables) {
  namespace names = brio::names;
  struct Protocol {
    const names::Table& table;
    std::vector<std::string> prefixes;
  };
  const Protocol protocols[] = {
      {names::kEmmRejectCause, {"EMM_"}},
      {names::kEsmRejectCause, {"ESM_"}},
      {names::kMmRejectCause, {"MM_", "GMM_"}},
      {names::kSmRejectCause, {"SM_"}},
  };
  std::map<uint32_t, std::set<std::string>> common;
  for (const Protocol& protocol : protocols) {
    std::set<std::string> seen;
    for (uint32_t i = 0; i < protocol.table.count; i++) {
      const std::string name = protocol.table.rows[i].name;
      EXPECT_TRUE(seen.insert(name).second) << name << " stands twice";
      EXPECT_EQ(std::string::npos, name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789")) << name;
      const std::string prefix = name.substr(0, name.find('_') + 1);
      EXPECT_NE(protocol.prefixes.end(),
                std::find(protocol.prefixes.begin(), protocol.prefixes.end(), prefix))
          << name;
      const uint32_t value = protocol.table.rows[i].value;
      if (value >= 95 && value <= 111) common[value].insert(name.substr(prefix.size()));
    }
  }
  EXPECT_EQ(8u, common.size());
  for (const auto& [value, texts] : common) EXPECT_EQ(1u, texts.size()) << value;
}

}  // namespace
