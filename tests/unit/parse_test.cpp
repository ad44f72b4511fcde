// Parsers and texts where no session reaches: lines cut off anywhere, endless fields, exact sizes.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "base/log_text.h"
#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "kit/exact_text.h"
#include "parse/modem_config.h"
#include "parse/scan_list.h"
#include "services/static_info.h"

namespace {

using namespace brio::parse;

// The numeric operators and names of a scan's line, or the error of a line that is none.
std::string scan(const std::string& line) {
  ExactText text(line);
  ScanList list;
  std::string result;
  const int error = start_scan(text.get(), &list);
  if (error != kScanOk) return "error " + std::to_string(error);
  ScanEntry entry;
  ScanFault fault;
  for (;;) {
    const ScanStep step = next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) return result;
    if (step == ScanStep::kEntry)
      result += entry.mcc + std::string(entry.mnc) + entry.long_name + entry.short_name;
  }
}

TEST(Scan, TornAnywhereKeepsWholeOperatorsOnly) {
  const char* const names[] = {"AT&T", "Acme, Inc", "Net (x)", "Joe\"s", "中国移动", "", "a;b:c"};
  std::string line = "+COPS: ", whole;
  for (int i = 0; i < 40; i++) {
    const std::string name = std::string("\"") + names[i % 7] + "\"", number = std::to_string(310100 + i);
    line += (i > 0 ? ",(1," : "(1,") + name + ",\"s\",\"" + number + "\"," + std::to_string(i % 8) + ")";
    whole += number + name + (i % 7 == 5 ? "\"s\"" : "\"\"");
  }
  line += ",,(0-4),(0-2)";
  size_t previous = 0;
  for (size_t length = 0; length <= line.size(); length++) {
    const std::string torn = scan(line.substr(0, length));
    if (length < 3) continue;
    EXPECT_EQ(whole.substr(0, torn.size()), torn) << length;
    EXPECT_GE(torn.size(), previous) << length;
    previous = torn.size();
  }
  EXPECT_EQ(whole.size(), previous);
  // No answer to the scan's prefix looks like these.
  for (const char* nothing : {"", " \t ", ":", "  :::"}) EXPECT_EQ("error 3", scan(nothing));
  ScanList list;
  EXPECT_EQ(kScanNoLine, start_scan(nullptr, &list));
}

// Operators that grow the most, and one that fills the longest line.
TEST(Scan, FitsTheBufferThatTheHeaderNames) {
  std::string line = "+COPS:";
  for (int i = 10; i < 40; i++) line += "(1,,,310" + std::to_string(i) + ",0)";
  const std::string end = "\",,31040,0)";
  line += "(1,\"";
  line += std::string(BRIO_LINE_DATA_MAX - 1 - line.size() - end.size(), 'n') + end;
  ScanList list;
  ASSERT_EQ(kScanOk, start_scan(line.data(), &list));
  char buffer[BRIO_SCAN_BUFFER_SIZE];
  size_t used = 0;
  ScanEntry entry;
  ScanFault fault;
  int count = 0;
  for (; next_scan_entry(&list, &entry, &fault) == ScanStep::kEntry; count++) {
    EXPECT_TRUE(append_scan_entry(entry, buffer, sizeof buffer, &used));
  }
  EXPECT_EQ(31, count);
  EXPECT_EQ(BRIO_LINE_DATA_MAX - 1 - strlen("+COPS:") + 30 * kScanEntryGrowth + 5, used);
}

// Endless texts, counts beyond their lists, more than there is room for.
TEST(StaticInformation, StaysInItsFieldsAndItsSize) {
  sim_plmn_data plmn = {};
  sim_info_data info;
  char buffer[brio::kStaticInfoSize];
  memset(&info, 'A', sizeof(info));
  memset(plmn.ehplmn, '9', sizeof(plmn.ehplmn));
  plmn.ehplmn_count = 65535;
  brio::static_info_text(plmn, info, buffer);
  const std::string line = "999999Null 999999Null 999999Null 999999Null ";
  EXPECT_EQ(buffer, "EHPLMN: " + line + "999999Null\n      " + line +
                        "999999Null\nPSLOCI: " + std::string(28, 'A') + "\nLOCI: " + std::string(22, 'A') +
                        "\nEPSLOCI: " + std::string(36, 'A') + "\n");
  for (auto& entry : plmn.uplmn) entry = {"310", "410", 7, 0};
  for (auto& entry : plmn.oplmn) entry = {"262", "01", 1, 0};
  plmn.uplmn_count = plmn.oplmn_count = BRIO_UPLMN_MAX;
  brio::static_info_text(plmn, info, buffer);
  const std::string text(buffer, strnlen(buffer, sizeof buffer));
  EXPECT_EQ(text.size(), sizeof buffer - 1);
  EXPECT_EQ(text.substr(text.size() - 12), " 01G  \n     ") << "nothing behind the first that does not fit";
}

// Only digits of IMSI and ICCID: recognised by the line's name or, without one, by the number.
TEST(LogText, MasksTheSubscriber) {
  const char* const masked[][2] = {
      {"+CCID: 898602B5191650123456", "+CCID: ******B*************"},
      {"  +CIMI: 31041012345678", "  +CIMI: **************"},
      {"+:CIMI: \"3104\"", "+:CIMI: \"****\""},
      {"31041012345678", "**************"},
      {"898602B5191650123456", "******B*************"},
      {"8901410321111851A7", "****************A*"},
      {"MI: \"310410123456789\"", "MI: \"***************\""},
      {"+310410123456789: 1", "+***************: 1"},
      {"+CRSM: 144,0,\"981014301211811570F2\"", "+CRSM: 144,0,\"******************F*\""},
      {"+CME ERROR: IMSI 310410123456789", "+CME ERROR: IMSI ***************"},
      {"ERROR: 13 310410123456789", "ERROR: 13 ***************"},
      {"ERROR: imsi310-41", "ERROR: imsi***-**"},
      {"ERROR-x-310-410-123456789-y 8901-4103-2111-1851-072F",
       "ERROR-x-***-***-*********-y ****-****-****-****-***F"},
      {"SM: 144,0,\"981014301211811570F2\"", "SM: 144,0,\"******************F*\""},
  };
  for (const auto& [line, shown] : masked) EXPECT_STREQ(brio::masked_line(line).c_str(), shown);
  for (const char* plain :
       {"+GTOTAREJECT: 310410123456789", "+STKPCI: 0,\"D009810301010082028182\"",
        "+CRSM: 144,0,\"13001400801300140080\"", "+CRSM: 144,0,\"98765432109876543210987654\"",
        "+CME ERROR: 10", "3104101234567", "8901410321111851A", "+CME ERROR: IMEI 356938035643809",
        "B98602B5191650123456"}) {
    EXPECT_STREQ(brio::masked_line(plain).c_str(), plain);
  }
  EXPECT_EQ(brio::masked_identity(std::string(3000, '4').c_str()).c_str(), std::string(2400, '*'));
  EXPECT_STREQ(brio::masked_line(nullptr).c_str(), "");
  std::string text(65536 + 3, '7');  // counts as 3
  briolib_obfuscate_numeral(&text[0], '*');
  EXPECT_EQ(text.find_last_of('*'), 2u);
}

TEST(RemoveCommand, QuotesWhatIsNotTheDevicesOwnPath) {
  char command[40];
  EXPECT_TRUE(build_remove_command("/var/info", "/var/info", command, sizeof command));
  EXPECT_STREQ(command, "rm -f /var/info");
  EXPECT_TRUE(build_remove_command("/it's a root/var/info", "/var/info", command, sizeof command));
  EXPECT_STREQ(command, "rm -f -- '/it'\\''s a root/var/info'");
  EXPECT_FALSE(build_remove_command("/a longer root/var/information", "/var/information", command, 40));
}

TEST(Names, AreTakenByIndexFirst) {
  const enum_pair rows[] = {{2, "early two"}, {7, "seven"}, {2, "indexed two"}};
  EXPECT_STREQ(enum_to_string(rows, 3, 2), "indexed two");
  EXPECT_STREQ(enum_to_string(rows, 2, 2), "early two");
  EXPECT_STREQ(enum_to_string(rows, 3, 0xFFFFFFFF), "N/A");
  EXPECT_STREQ(enum_to_string(nullptr, 3, 0), "N/A");
}

}  // namespace
