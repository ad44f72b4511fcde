#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "parse/modem_config.h"
#include "parse/modem_info.h"
#include "support/corpus.h"

namespace {

using namespace brio::parse;

TEST(ModemInfo, FillsTheRecordFromTheCorpus) {
  for (const auto& row : read_corpus("modem_info.txt", 7)) {
    // The record ends where its heap block ends, so that a sanitizer sees a write behind it.
    auto info = std::make_unique<modem_info>();
    for (char* text : {info->fw_ver, info->imei, info->serial, info->hw_ver}) strcpy(text, "old");
    info->fault_ct = 7;
    EXPECT_EQ(std::stoi(row[1]), parse_modem_info(row[0].c_str(), info.get())) << row[0];
    EXPECT_EQ(row[2], info->fw_ver) << row[0];
    EXPECT_EQ(row[3], info->imei) << row[0];
    EXPECT_EQ(row[4], info->serial) << row[0];
    EXPECT_EQ(row[5], info->hw_ver) << row[0];
    EXPECT_EQ(std::stoi(row[6]), info->fault_ct) << row[0];
  }
}

TEST(ModemConfig, KeepsSixteenBitsOfTheCarrierId) {
  struct Case {
    const char* line;
    bool read;
    uint16_t id;
  };
  const Case cases[] = {
      {"+GTFDCAR: 201", true, 201},
      {"+GTFDCAR:216,1", true, 216},
      {"+GTFDCAR: 65737", true, 201},
      {"+GTFDCAR: -1", true, 0xFFFF},
      {"+GTFDCAR: x", true, 0},
      {"+GTFDCAR:", true, 0},
      {"201", false, 77},
      {nullptr, false, 77},
  };
  for (const auto& c : cases) {
    uint16_t id = 77;
    EXPECT_EQ(c.read, parse_carrier_id(c.line, &id)) << c.line;
    EXPECT_EQ(c.id, id) << c.line;
  }
}

TEST(ModemConfig, ReadsTheModelAndItsWanType) {
  struct Case {
    const char* line;
    const char* model;
    int wan_type;
  };
  const Case cases[] = {
      {"+CGMM: L816", "L816", 6},
      {"+CGMM: \"L816-GL\"", "L816-GL", 7},
      {"+CGMM: \"L816-GL\",\"vendor\"", "L816-GL", 7},
      {"L816-GL ", "L816-GL", 7},
      {"+CGMM: l816", "l816", 0},
      {"+CGMM: L816-EAU-00-LONG-NAME", "L816-EAU-00-", 0},
      {"+CGMM:", "", 0},
      {"", "", 0},
  };
  for (const auto& c : cases) {
    char model[kModelSize] = "kept";
    EXPECT_TRUE(parse_model(c.line, model)) << c.line;
    EXPECT_STREQ(c.model, model) << c.line;
    EXPECT_EQ(c.wan_type, wan_type_of_model(model)) << c.line;
  }
  char model[kModelSize];
  EXPECT_FALSE(parse_model(nullptr, model));
}

TEST(ModemConfig, QuotesTheRemovedFileOnlyBelowARootDirectory) {
  struct Case {
    const char* path;
    const char* command;  // null: refused
  };
  const Case cases[] = {
      {"/var/local/wan/info", "rm -f /var/local/wan/info"},
      {"/tmp/root/var/local/wan/info", "rm -f -- '/tmp/root/var/local/wan/info'"},
      {"/tmp/a b$(id);'c/info", "rm -f -- '/tmp/a b$(id);'\\''c/info'"},
      {"", nullptr},
  };
  for (const auto& c : cases) {
    char command[128];
    ASSERT_EQ(c.command != nullptr,
              build_remove_command(c.path, "/var/local/wan/info", command, sizeof(command)));
    if (c.command == nullptr) continue;
    EXPECT_STREQ(c.command, command);
  }
  // "rm -f -- 'aaa'" needs 15 bytes.
  char exact[15];
  EXPECT_TRUE(build_remove_command("aaa", "/x", exact, sizeof(exact)));
  EXPECT_STREQ("rm -f -- 'aaa'", exact);
  for (size_t capacity = 1; capacity < sizeof(exact); capacity++) {
    EXPECT_FALSE(build_remove_command("aaa", "/x", exact, capacity)) << capacity;
  }
}

}  // namespace
