// The line reader where fuzz/channel_fuzz.cpp knows no exact text: what it joins, drops, counts and logs.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "brio/brio_at.h"
#include "kit/calls.h"
#include "kit/log.h"

namespace {

using namespace std::string_literals;

// A reader on one end of a pipe, with a buffer of exactly the size that read_line asks for.
struct Reader {
  Reader() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~Reader() { close(ends[0]), close(ends[1]); }
  std::string read(const std::string& sent) {
    EXPECT_EQ(write(ends[1], sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
    count = 0;
    return text = read_line(ends[0], buffer.get(), &leftover, &count);
  }

  int ends[2];
  std::unique_ptr<char[]> buffer{new char[BRIO_LINE_DATA_MAX + 1]()};
  char *leftover = nullptr, *text = nullptr;
  int32_t count = 0;
};

}  // namespace

TEST(ReadLine, JoinsWhatIsHeld) {
  const std::string full(BRIO_LINE_DATA_MAX, 'a');
  const struct {
    std::string first;
    size_t kept_from;  // where in the first text the leftover begins
    std::string second, text;
    int32_t count;
    const char* logged;
  } cases[] = {
      {"+CR", 0, "EG: 1\r\n", "+CREG: 1\r\n", 10, nullptr},
      {"x\r\n\r\n+C", 1, "REG\r", "+CREG\r", 6, nullptr},
      {"+X: 1\r\n+Y", 0, "new\r\n", "new\r\n", 5, "::ERROR::full line found in leftover buffer"},
      {"> ", 0, "new", "new", 3, "full line found in leftover"},
      {"x", 1, "\r\n\r\n", "", 4, nullptr},
      {"x", 1, "\0\0\0"s, "", 3, nullptr},
      {"+C", 0, "\0RE\0G\r\n\0"s, "+CREG\r\n", 10, nullptr},
      {full, 0, "rest\r\nOK\r\n", "rest\r\nOK\r\n", BRIO_LINE_DATA_MAX + 10, "Input line exceeded buffer"},
      {full.substr(1), 0, "\r\n", full.substr(1) + "\r", BRIO_LINE_DATA_MAX, nullptr},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    Reader reader;
    EXPECT_EQ(reader.read(c.first), c.first);
    reader.leftover = reader.text + c.kept_from;
    EXPECT_EQ(reader.read(c.second), c.text) << c.first;
    EXPECT_EQ(reader.count, c.count) << c.first;
    EXPECT_EQ(log_capture::lines().size(), c.logged != nullptr) << c.first;
    EXPECT_TRUE(c.logged == nullptr || log_capture::has(c.logged)) << c.first;
  }
}

TEST(ReadLine, WhatIsHeldHidesNeitherErrorNorEnd) {
  Reader reader;
  for (const int error : {EIO, faults::kEnd}) {
    reader.read("+CRE");
    reader.leftover = reader.text;
    faults::fail("read", error);
    reader.read("G");
    EXPECT_EQ(reader.count, error == EIO ? -1 : 0);
    EXPECT_EQ(reader.leftover, nullptr);
    EXPECT_EQ(reader.read(""), "G");
  }
  faults::fail("read", EINTR, 0, 9);
  EXPECT_EQ(reader.read("OK\r\n"), "OK\r\n");
}
