#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lab/exact_text.h"
#include "parse/scan_list.h"

namespace {

using brio::parse::ScanEntry;
using brio::parse::ScanFault;
using brio::parse::ScanStep;

struct Scan {
  std::string errors;  // numbers, separated by blanks
  std::string list;    // entries one behind the other, as in the caller's buffer
  size_t count = 0;
};

Scan scan(const std::string& line) {
  ExactText text(line);
  brio::parse::ScanList list;
  Scan result;
  auto add_error = [&result](int error) {
    result.errors += (result.errors.empty() ? "" : " ") + std::to_string(error);
  };
  if (int error = brio::parse::start_scan(text.get(), &list)) {
    add_error(error);
    return result;
  }
  std::vector<ScanEntry> entries;
  for (;;) {
    ScanEntry entry;
    ScanFault fault;
    ScanStep step = brio::parse::next_scan_entry(&list, &entry, &fault);
    if (step == ScanStep::kEnd) break;
    if (step == ScanStep::kError) add_error(fault.error);
    if (step != ScanStep::kEntry) continue;
    bool known = false;
    for (const auto& other : entries) known = known || brio::parse::same_network(other, entry);
    if (!known) entries.push_back(entry);
  }
  for (const auto& entry : entries) {
    char buffer[4096];
    size_t used = 0;
    EXPECT_TRUE(brio::parse::append_scan_entry(entry, buffer, sizeof(buffer), &used));
    EXPECT_EQ(used, std::string(buffer).size());
    result.list += buffer;
  }
  result.count = entries.size();
  return result;
}

// No answer that a modem can give to the scan's prefix looks like this.
TEST(ScanList, TellsAMissingLineFromOneWithoutText) {
  brio::parse::ScanList list;
  EXPECT_EQ(brio::parse::kScanNoLine, brio::parse::start_scan(nullptr, &list));
  for (const char* line : {"", " \t ", ":", "  :::"}) EXPECT_EQ("3", scan(line).errors) << line;
}

// Forty operators of every kind of name.
std::string forty_operators() {
  const char* names[] = {"AT&T", "Acme, Inc", "Net (x)", "Joe\"s", "中国移动", "", "a;b:c"};
  std::string line = "+COPS: ";
  for (int i = 0; i < 40; i++) {
    line += std::string(i > 0 ? "," : "") + "(1,\"" + names[i % 7] + "\",\"s" + std::to_string(i) + "\",\"" +
            std::to_string(310100 + i) + "\"," + std::to_string(i % 8) + ")";
  }
  return line + ",,(0-4),(0-2)";
}

TEST(ScanList, TornAnywhereKeepsWholeOperatorsOnly) {
  const std::string line = forty_operators();
  const Scan whole = scan(line);
  EXPECT_EQ("", whole.errors);
  EXPECT_EQ(40u, whole.count);
  size_t previous = 0;
  for (size_t length = 0; length <= line.size(); length++) {
    Scan torn = scan(line.substr(0, length));
    EXPECT_EQ(0u, whole.list.find(torn.list)) << length;
    EXPECT_GE(torn.count, previous) << length;
    EXPECT_LE(torn.errors.size(), 2u) << length << ": " << torn.errors;
    previous = torn.count;
  }
  EXPECT_EQ(40u, previous);
}

TEST(ScanList, NeverWritesBeyondTheBuffer) {
  const ScanEntry first = {"1", "7", "310", "410", "\"AT&T\"", "\"\""};
  const ScanEntry second = {"1", "2", "262", "01", "\"\"", "\"TDG\""};
  const std::string first_text = "1,310,410,7,\"\",\"AT&T\",\"\";";
  const std::string both = first_text + "1,262,01,2,\"\",\"\",\"TDG\";";
  for (size_t size = 0; size <= both.size() + 2; size++) {
    std::vector<char> memory(size + 1, '#');
    char* buffer = memory.data();
    size_t used = 0;
    bool one = brio::parse::append_scan_entry(first, buffer, size, &used);
    EXPECT_EQ(size > first_text.size(), one) << size;
    bool two = one && brio::parse::append_scan_entry(second, buffer, size, &used);
    EXPECT_EQ(size > both.size(), two) << size;
    const std::string expected = two ? both : one ? first_text : "";
    EXPECT_EQ(expected.size(), used) << size;
    if (one) {
      EXPECT_STREQ(expected.c_str(), buffer) << size;
    }
    for (size_t i = one ? used + 1 : 0; i < memory.size(); i++) EXPECT_EQ('#', memory[i]) << size << " " << i;
  }
}

}  // namespace
