#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/masked.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "support/log_capture.h"

namespace {

// What follows "D blib:<tag>:<line>:" in each captured line.
std::vector<std::string> dumped() {
  std::vector<std::string> texts;
  for (const auto& line : log_capture::lines()) {
    EXPECT_EQ(LOG_DEBUG, line.priority);
    EXPECT_EQ(0u, line.text.find("D blib:briolib/src/brio_log:"));
    texts.push_back(line.text.substr(line.text.rfind(':') + 1));
  }
  return texts;
}

TEST(LogMask, IsStoredAndReportedWithoutAnyBit) {
  log_capture::clear();
  briolib_log_set_log_mask(0xC0001000u);
  EXPECT_EQ(0xC0001000u, g_brio_lib_log_mask);
  briolib_log_set_log_mask(0);
  ASSERT_EQ(2u, log_capture::lines().size());
  EXPECT_EQ(LOG_INFO, log_capture::lines()[0].priority);
  EXPECT_TRUE(log_capture::has(":log mask changed to [0xc0001000]::\n"));
  EXPECT_TRUE(log_capture::has(":log mask changed to [0x0]::\n"));
}

TEST(PacketDump, BreaksLinesAfterSixteenBytesAndAtTheEnd) {
  struct Case {
    uint32_t length;
    std::vector<std::string> lines;
  };
  const std::string sixteen = "00 0f 1e 2d 3c 4b 5a 69 78 87 96 a5 b4 c3 d2 e1\n";
  const Case cases[] = {
      {0, {}},
      {1, {"00\n"}},
      {15, {"00 0f 1e 2d 3c 4b 5a 69 78 87 96 a5 b4 c3 d2\n"}},
      {16, {sixteen}},
      {17, {sixteen, "f0\n"}},
      {33, {sixteen, "f0 ff 0e 1d 2c 3b 4a 59 68 77 86 95 a4 b3 c2 d1\n", "e0\n"}},
  };
  uint8_t data[33];
  for (unsigned i = 0; i < sizeof(data); i++) data[i] = static_cast<uint8_t>(i * 15);
  g_brio_lib_log_mask = BRIO_LOG_PORT | BRIO_LOG_PARSE;
  for (const auto& c : cases) {
    log_capture::clear();
    briolib_log_debug_print_packet(BRIO_LOG_PORT | BRIO_LOG_DEBUG, data, c.length);
    EXPECT_EQ(c.lines, dumped()) << c.length;
  }
}

TEST(PacketDump, NeedsASharedBitAndData) {
  log_capture::clear();
  const uint8_t data[] = {1, 2};
  g_brio_lib_log_mask = BRIO_LOG_PARSE;
  briolib_log_debug_print_packet(BRIO_LOG_PORT, data, 2);
  briolib_log_debug_print_packet(BRIO_LOG_PARSE, nullptr, 2);
  EXPECT_TRUE(log_capture::lines().empty());
}

TEST(Masking, HidesOneClassOfCharactersInPlace) {
  struct Case {
    const char* text;
    const char* alphabet;
    const char* numeral;
  };
  const Case cases[] = {
      {"ab12", "xx12", "abxx"},
      {"1234567", "1234567", "xxxxxxx"},
      {"", "", ""},
      {"@AZ[`az{/09:\xC3\xA4", "@xx[`xx{/09:\xC3\xA4", "@AZ[`az{/xx:\xC3\xA4"},
  };
  for (const auto& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(&text[0], briolib_obfuscate_alphabet(&text[0], 'x'));
    EXPECT_EQ(c.alphabet, text);
    text = c.text;
    EXPECT_EQ(&text[0], briolib_obfuscate_numeral(&text[0], 'x'));
    EXPECT_EQ(c.numeral, text);
  }
  EXPECT_EQ(nullptr, briolib_obfuscate_alphabet(nullptr, 'x'));
  EXPECT_EQ(nullptr, briolib_obfuscate_numeral(nullptr, 'x'));
}

TEST(Masking, CountsTheLengthInSixteenBits) {
  std::string text(65536 + 3, '7');
  briolib_obfuscate_numeral(&text[0], '*');
  EXPECT_EQ("***7", text.substr(0, 4));
  EXPECT_EQ(std::string::npos, text.find('*', 3));
}

TEST(Masking, LogCopiesLeaveTheSourceAloneAndAreBounded) {
  const std::string iccid = "89014103211118510720";
  EXPECT_EQ(std::string(20, '*'), brio::LogText(iccid.c_str(), true).c_str());
  EXPECT_EQ("89014103211118510720", iccid);
  EXPECT_STREQ("", brio::LogText(nullptr, true).c_str());
  EXPECT_EQ(std::string(2400, '*'), brio::LogText(std::string(3000, '4').c_str(), true).c_str());
  // A number as long as an identity is masked wherever it stands.
  EXPECT_STREQ("+CIMI: ***************", brio::LogText("+CIMI: 310410123456789").c_str());
  EXPECT_STREQ("+CREG: 31041012345678", brio::LogText("+CREG: 31041012345678").c_str());
}

TEST(EnumToString, TakesTheIndexedRowFirstThenSearches) {
  const enum_pair ordered[] = {{0, "zero"}, {1, "one"}, {255, "last"}};
  const enum_pair doubled[] = {{2, "early two"}, {7, "seven"}, {2, "indexed two"}};
  const enum_pair shifted[] = {{1, "G"}, {2, "W"}, {4, "L"}, {4, "never"}};
  struct Case {
    const enum_pair* table;
    uint32_t count;
    uint32_t value;
    const char* name;
  };
  const Case cases[] = {
      {ordered, 3, 1, "one"},         {ordered, 3, 255, "last"},        {ordered, 3, 2, "N/A"},
      {ordered, 1, 1, "N/A"},         {ordered, 0, 0, "N/A"},           {nullptr, 3, 0, "N/A"},
      {doubled, 3, 2, "indexed two"}, {doubled, 2, 2, "early two"},     {shifted, 4, 2, "W"},
      {shifted, 4, 4, "L"},           {shifted, 4, 0xFFFFFFFFu, "N/A"},
  };
  for (const auto& c : cases) EXPECT_STREQ(c.name, enum_to_string(c.table, c.count, c.value)) << c.value;
}

}  // namespace
