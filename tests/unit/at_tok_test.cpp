#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "brio/brio_at.h"
#include "faults.h"

namespace {

// A writable copy of a text with a cursor on it; nothing behind its NUL may be touched.
struct Line {
  explicit Line(const std::string& text) : buffer(text.begin(), text.end()) {
    buffer.push_back('\0');
    buffer.shrink_to_fit();
    cursor = buffer.data();
  }
  std::string rest() const { return cursor == nullptr ? "(none)" : cursor; }
  std::vector<char> buffer;
  char* cursor;
};

char s_preset[] = "preset";

}  // namespace

TEST(AtTok, WalksQuotedAndPlainFields) {
  Line line(" 1,\"a,b\",3");
  int32_t number = 0;
  char* text = s_preset;
  EXPECT_EQ(at_tok_nextint(&line.cursor, &number), 0);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(at_tok_nextstr(&line.cursor, &text), 0);
  EXPECT_STREQ(text, "a,b");
  EXPECT_EQ(at_tok_hasmore(&line.cursor), 1);
  EXPECT_EQ(at_tok_nextint(&line.cursor, &number), 0);
  EXPECT_EQ(number, 3);
  EXPECT_EQ(at_tok_hasmore(&line.cursor), 0);
  EXPECT_EQ(line.cursor, nullptr);
  EXPECT_EQ(at_tok_nextint(&line.cursor, &number), -1);
  EXPECT_EQ(at_tok_nextstr(&line.cursor, &text), -1);
}

TEST(AtTok, NextStrTable) {
  const struct {
    const char* text;
    const char* field;
    const char* rest;
  } cases[] = {
      {"abc", "abc", "(none)"},
      {"abc,", "abc", ""},
      {"", "", "(none)"},
      {" ,b", "", "b"},
      {"\"abc", "abc", "(none)"},
      {"\"", "", "(none)"},
      {"\"\"", "", ""},
      {"\"abc\"", "abc", ""},
      {"\"abc\"junk,d", "abc", "d"},
      {"\t\r\n\v\f x ,y", "x ", "y"},
      {"a\"b\",c", "a\"b\"", "c"},
  };
  for (const auto& c : cases) {
    Line line(c.text);
    char* text = s_preset;
    EXPECT_EQ(at_tok_nextstr(&line.cursor, &text), 0) << c.text;
    EXPECT_STREQ(text, c.field) << c.text;
    EXPECT_EQ(line.rest(), c.rest) << c.text;
  }
}

TEST(AtTok, NextStrRefusesAnOutputThatIsNotPreset) {
  Line line("a,b");
  char* text = nullptr;
  EXPECT_EQ(at_tok_nextstr(&line.cursor, &text), -1);
  EXPECT_EQ(line.rest(), "a,b");
}

TEST(AtTok, NumberTable) {
  const struct {
    const char* text;
    int32_t decimal_status, decimal, hex_status, hex;
  } cases[] = {
      {"42", 0, 42, 0, 0x42},
      {" +7x", 0, 7, 0, 7},
      {"-12", 0, -12, 0, -0x12},
      {"\"1A2B\"", 0, 1, 0, 0x1A2B},
      {"0x1f", 0, 0, 0, 0x1f},
      {"x,2", -1, 0, -1, 0},
      {"", -1, 0, -1, 0},
      {",5", -1, 0, -1, 0},
      {"-", -1, 0, -1, 0},
      {"2147483648", 0, INT32_MAX, 0, -1},
      {"-99999999999", 0, INT32_MIN, 0, -1},
      {"FFFFFFFF", -1, 0, 0, -1},
      {"fffffffe", -1, 0, 0, -2},
      {"99999999999999999999999", 0, INT32_MAX, 0, -1},
  };
  for (const auto& c : cases) {
    Line decimal_line(c.text);
    Line hex_line(c.text);
    int32_t decimal = 99;
    int32_t hex = 99;
    EXPECT_EQ(at_tok_nextint(&decimal_line.cursor, &decimal), c.decimal_status) << c.text;
    EXPECT_EQ(decimal, c.decimal) << c.text;
    EXPECT_EQ(at_tok_nexthexint(&hex_line.cursor, &hex), c.hex_status) << c.text;
    EXPECT_EQ(hex, c.hex) << c.text;
  }
  Line line("x,2");
  int32_t value = 0;
  at_tok_nextint(&line.cursor, &value);
  EXPECT_EQ(line.rest(), "2") << "a field without digits is consumed";
}

TEST(AtTok, BoolTakesZeroAndOneOnly) {
  const struct {
    const char* text;
    int32_t status;
    uint8_t flag;
  } cases[] = {{"0", 0, 0}, {"1", 0, 1}, {"2", -1, 9}, {"-1", -1, 9}, {"257", -1, 9}, {"y", -1, 9}};
  for (const auto& c : cases) {
    Line line(c.text);
    uint8_t flag = 9;
    EXPECT_EQ(at_tok_nextbool(&line.cursor, &flag), c.status) << c.text;
    EXPECT_EQ(flag, c.flag) << c.text;
  }
  Line line("1");
  EXPECT_EQ(at_tok_nextbool(&line.cursor, nullptr), 0);
}

TEST(AtTok, StartFindsTheFirstColon) {
  Line line("+CREG: 1:2");
  EXPECT_EQ(at_tok_start(&line.cursor), 0);
  EXPECT_EQ(line.rest(), " 1:2");
  Line without("OK");
  EXPECT_EQ(at_tok_start(&without.cursor), -1);
  EXPECT_EQ(without.cursor, nullptr);
  EXPECT_EQ(at_tok_start(&without.cursor), -1);
}

TEST(AtTok, CursorCleaners) {
  const struct {
    const char* text;
    const char* unquoted;
    const char* spaces_skipped;
    const char* spaces_and_quotes_skipped;
  } cases[] = {
      {"\"abc\"", "abc", "\"abc\"", "abc\""},
      {"\"", "", "\"", ""},
      {"\"\"", "", "\"\"", ""},
      {"abc\"", "abc", "abc\"", "abc\""},
      {" \" x", " \" x", "\" x", "x"},
      {"", "", "", ""},
  };
  for (const auto& c : cases) {
    Line quotes(c.text), spaces(c.text), both(c.text);
    at_tok_remove_quot(&quotes.cursor);
    skip_white_space(&spaces.cursor);
    skip_white_space_quotes(&both.cursor);
    EXPECT_EQ(quotes.rest(), c.unquoted) << c.text;
    EXPECT_EQ(spaces.rest(), c.spaces_skipped) << c.text;
    EXPECT_EQ(both.rest(), c.spaces_and_quotes_skipped) << c.text;
  }
  char* none = nullptr;
  at_tok_remove_quot(&none);
  skip_white_space(&none);
  skip_white_space_quotes(&none);
  EXPECT_EQ(none, nullptr);
}

TEST(AtTok, TextCleaners) {
  const struct {
    const char* text;
    const char* trimmed;
    const char* without_blanks;
    const char* without_quotes;
  } cases[] = {
      {"a b \t\r\n", "a b", "ab", "a b \t\r\n"},
      {"   ", " ", "", "   "},
      {" ", " ", "", " "},
      {"", "", "", ""},
      {"\"a\" \"b\"", "\"a\" \"b\"", "\"a\"\"b\"", "a b"},
  };
  for (const auto& c : cases) {
    Line trimmed(c.text), blanks(c.text), quotes(c.text);
    skip_trailing_white_space(trimmed.cursor);
    remove_blank_space(blanks.cursor);
    remove_double_quotes(quotes.cursor);
    EXPECT_EQ(trimmed.rest(), c.trimmed) << c.text;
    EXPECT_EQ(blanks.rest(), c.without_blanks) << c.text;
    EXPECT_EQ(quotes.rest(), c.without_quotes) << c.text;
  }
  skip_trailing_white_space(nullptr);
  remove_blank_space(nullptr);
  remove_double_quotes(nullptr);

  // 65,536 + 3 characters count as 3.
  Line long_text("a b" + std::string(65536, 'x'));
  remove_blank_space(long_text.cursor);
  EXPECT_EQ(long_text.rest(), "ab");
}

TEST(AtTok, DigitAndHexChecks) {
  EXPECT_NE(is_string_digit("0123456789"), 0u);
  for (const char* text : {"", "12a", "-1", " 1", "1 "}) EXPECT_EQ(is_string_digit(text), 0u) << text;
  EXPECT_EQ(is_string_digit(nullptr), 0u);
  EXPECT_EQ(is_hex_string_valid("zz"), 1u);
  for (const char* text : {"", "a", "abc"}) EXPECT_EQ(is_hex_string_valid(text), 255u) << text;
  EXPECT_EQ(is_hex_string_valid(nullptr), 255u);
}

TEST(AtTok, HexStringToBytes) {
  const struct {
    const char* text;
    std::vector<uint8_t> bytes;  // with the NUL
  } cases[] = {
      {"0aFF", {0x0A, 0xFF, 0}}, {"0aF", {0x0A, 0}}, {"", {0}},
      {"x3", {0xF3, 0}},         {"3x", {0xFF, 0}},  {"f", {0}},
  };
  for (const auto& c : cases) {
    uint8_t* bytes = hex_string_to_bytes(c.text);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + c.bytes.size()), c.bytes) << c.text;
    free(bytes);
  }
  EXPECT_EQ(hex_string_to_bytes(nullptr), nullptr);
  faults::fail(faults::Call::kMalloc, ENOMEM);
  EXPECT_EQ(hex_string_to_bytes("00"), nullptr);
  faults::reset();
}
