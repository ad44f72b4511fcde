#include "parse/trace_filter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using brio::parse::kTraceLineMax;
using brio::parse::TraceFilterLine;

TraceFilterLine parse(const std::string& line, std::string* command = nullptr) {
  // As the reader hands lines over: without "\n", cut one character behind the limit, not terminated.
  std::string kept = line.substr(0, kTraceLineMax + 1);
  char buffer[brio::parse::kTraceCommandSize] = "untouched";
  TraceFilterLine kind = brio::parse::trace_filter_line(kept.data(), kept.size(), buffer);
  if (command != nullptr) *command = buffer;
  return kind;
}

TEST(TraceFilter, Commands) {
  struct Case {
    std::string line, command;
  } cases[] = {
      {"AT+XSYSTRACE=1,\"oct\"", "AT+XSYSTRACE=1,\"oct\""},
      {"AT+TRACE=", "AT+TRACE="},
      {"at+trace=1", "at+trace=1"},
      {"aT+xSysTrace=0\r", "aT+xSysTrace=0"},
      {" \t \tAT+TRACE=1 trailing # text", "AT+TRACE=1"},
      {"AT+TRACE=1\rAT+TRACE=2", "AT+TRACE=1"},
      {"AT+TRACE=1\t2", "AT+TRACE=1\t2"},  // a tab ends no command
      {"AT+TRACE=" + std::string(500, '7'), "AT+TRACE=" + std::string(500, '7')},
      {"AT+TRACE=" + std::string(500, '7') + "\r", "AT+TRACE=" + std::string(500, '7')},
      {"AT+TRACE=1 " + std::string(5000, 'x'), "AT+TRACE=1"},
  };
  for (const Case& c : cases) {
    std::string command;
    EXPECT_EQ(parse(c.line, &command), TraceFilterLine::kCommand) << c.line;
    EXPECT_EQ(command, c.command);
  }
}

TEST(TraceFilter, IgnoredAndInvalidLines) {
  const std::string ignored[] = {
      "", " ", "\t \t", "\r", "  \r", "# AT+TRACE=1", " \t#", "#" + std::string(5000, 'x')};
  for (const std::string& line : ignored) EXPECT_EQ(parse(line), TraceFilterLine::kIgnored) << line;

  const std::string invalid[] = {"AT+FOO=1",
                                 "AT+TRACE",
                                 "AT+TRACE =1",
                                 "AT+XSYSTRACE",
                                 "xAT+TRACE=1",
                                 ";AT+TRACE=1",
                                 "\vAT+TRACE=1",
                                 std::string("AT+TRACE=1\0002", 12),
                                 std::string("\0AT+TRACE=1", 11),
                                 "AT+TRACE=" + std::string(501, '7'),
                                 std::string(5, ' ') + "AT+TRACE=" + std::string(1000, '7'),
                                 std::string(5000, ' ') + "AT+TRACE=1",
                                 std::string(1 << 20, '\xFF')};
  for (const std::string& line : invalid) {
    EXPECT_EQ(parse(line), TraceFilterLine::kInvalid) << line.substr(0, 40);
  }
}

TEST(TraceFilter, FileName) {
  tm start = {};
  start.tm_year = 126;
  start.tm_mon = 2;
  start.tm_mday = 7;
  start.tm_hour = 9;
  start.tm_min = 5;
  struct Case {
    std::string prefix, stem;
  } cases[] = {{"/mnt/us/trace_log", "/mnt/us/trace_log"},
               {" \t/mnt/us/a b", "/mnt/us/a"},
               {"/a\rb", "/a"},
               {"/a\nb", "/a"},
               {"/a\tb", "/a\tb"},
               {"", ""},
               {"   ", ""},
               {std::string(80, 'p'), std::string(50, 'p')},
               {std::string(10, ' ') + std::string(80, 'p'), std::string(40, 'p')}};
  for (const Case& c : cases) {
    char name[brio::parse::kTraceNameSize];
    brio::parse::trace_file_name(c.prefix.c_str(), start, name);
    EXPECT_EQ(std::string(name), c.stem + "_2026_3_7_9_5_0.istp");
  }
}

}  // namespace
