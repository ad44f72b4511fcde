// Line processor, line reader, tokenizer. Tables stand in tests/data/at_tok.txt and process_line.txt.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <thread>

#include "brio/brio_at.h"
#include "faults.h"
#include "support/exact_text.h"
#include "support/log_capture.h"

namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

Lines split(const std::string& text, const std::string& separator) {
  Lines parts;
  for (size_t at = 0, end; at <= text.size() && !text.empty(); at = end + separator.size()) {
    end = std::min(text.find(separator, at), text.size());
    parts.push_back(text.substr(at, end - at));
  }
  return parts;
}

// The rows of a table in tests/data: fields between " | ", "-" for an empty one, comments behind "#".
std::vector<Lines> table(const std::string& name, size_t fields) {
  std::vector<Lines> rows;
  std::ifstream file(std::string(TEST_DATA_DIR) + "/" + name);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    rows.push_back(split(line, " | "));
    EXPECT_EQ(rows.back().size(), fields) << line;
    for (auto& each : rows.back()) each = each == "-" ? "" : each;
    rows.back().resize(fields);
  }
  EXPECT_FALSE(rows.empty()) << name;
  return rows;
}

std::string unescaped(std::string text) {
  const std::map<char, char> codes = {{'t', '\t'}, {'r', '\r'}, {'n', '\n'}, {'v', '\v'}, {'f', '\f'}};
  for (size_t at = 0; (at = text.find('\\', at)) != std::string::npos; at++) {
    const bool hex = text.at(at + 1) == 'x';
    const char c =
        hex ? static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)) : codes.at(text[at + 1]);
    text.replace(at, hex ? 4 : 2, 1, c);
  }
  return text;
}

// An operation that gives a status and fills a value, shown as "status:value".
template <typename T, typename F>
std::function<std::string(char**)> filling(F function, T preset) {
  return [function, preset](char** cursor) {
    T value = preset;
    std::string text = std::to_string(function(cursor, &value)) + ":";
    if constexpr (std::is_pointer_v<T>)
      return text + (value != nullptr ? value : "null");
    else
      return text + std::to_string(value);
  };
}

// An operation on the cursor or on the text whose result is a number, or none.
template <typename F>
std::function<std::string(char**)> plain(F function) {
  return [function](char** cursor) -> std::string {
    auto run = [&] {
      if constexpr (std::is_invocable_v<F, char*>)
        return function(*cursor);
      else
        return function(cursor);
    };
    if constexpr (!std::is_void_v<decltype(run())>)
      return std::to_string(run());
    else
      return run(), "";
  };
}

std::string bytes(char** text) {
  uint8_t* made = hex_string_to_bytes(*text);
  std::string shown = made == nullptr ? "none" : "";
  for (size_t i = 0; made != nullptr && i <= strlen(*text) / 2; i++) {
    char digits[4];
    snprintf(digits, sizeof digits, "%02x", made[i]);
    shown += digits;
  }
  free(made);
  return shown;
}

struct ResponseDeleter {
  void operator()(ATResponse* response) const { at_response_free(response); }
};
using Response = std::unique_ptr<ATResponse, ResponseDeleter>;

std::string joined(const ATLine* line) {
  std::string text;
  for (; line != nullptr; line = line->next) {
    text += (text.empty() ? "" : "; ") + std::string(line->line != nullptr ? line->line : "(none)");
  }
  return text;
}

// A reader on one end of a pipe, with a buffer of exactly the size that read_line asks for.
struct Reader {
  Reader() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~Reader() {
    close(ends[0]);
    close(ends[1]);
  }
  void send(const std::string& text) {
    ASSERT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  std::string read() {
    count = 0;
    return text = read_line(ends[0], buffer.get(), &leftover, &count);
  }

  int ends[2];
  std::unique_ptr<char[]> buffer{new char[BRIO_LINE_DATA_MAX + 1]()};
  char *leftover = nullptr, *text = nullptr;
  int32_t count = 0;
};

}  // namespace

TEST(AtTok, Table) {
  static char s_preset[] = "preset";
  const std::map<std::string, std::function<std::string(char**)>> operations = {
      {"start", plain(at_tok_start)},
      {"more", plain(at_tok_hasmore)},
      {"int", filling(at_tok_nextint, 99)},
      {"hex", filling(at_tok_nexthexint, 99)},
      {"bool", filling(at_tok_nextbool, uint8_t{9})},
      {"nullbool", plain([](char** cursor) { return at_tok_nextbool(cursor, nullptr); })},
      {"str", filling(at_tok_nextstr, s_preset + 0)},
      {"nullstr", filling(at_tok_nextstr, static_cast<char*>(nullptr))},
      {"unquote", plain(at_tok_remove_quot)},
      {"spaces", plain(skip_white_space)},
      {"both", plain(skip_white_space_quotes)},
      {"trim", plain(skip_trailing_white_space)},
      {"noblanks", plain(remove_blank_space)},
      {"noquotes", plain(remove_double_quotes)},
      {"digits", plain(is_string_digit)},
      {"hexcheck", plain(is_hex_string_valid)},
      {"bytes", bytes}};
  for (const auto& row : table("at_tok.txt", 4)) {
    ExactText text(unescaped(row[1]));
    char* cursor = row[1] == "none" ? nullptr : text.get();
    std::string results;
    for (const auto& name : split(row[0], " ")) {
      const std::string result = operations.at(name)(&cursor);
      results += (results.empty() || result.empty() ? "" : " ") + result;
    }
    EXPECT_EQ(results, unescaped(row[2])) << row[0] << " of " << row[1];
    EXPECT_EQ(cursor == nullptr ? "none" : cursor, unescaped(row[3])) << row[0] << " of " << row[1];
  }
}

TEST(AtTok, LengthsWrapAndMemoryMayBeShort) {
  ExactText text("a b" + std::string(65536, 'x'));  // 65,536 + 3 characters count as 3
  remove_blank_space(text.get());
  EXPECT_STREQ(text.get(), "ab");
  faults::fail(faults::Call::kMalloc, ENOMEM);
  EXPECT_EQ(hex_string_to_bytes("00"), nullptr);
}

TEST(LineHelpers, PrefixAndEndOfLine) {
  for (const char* line : {"+GTBARS: 1", "+GTBARS"}) EXPECT_EQ(str_starts_with(line, "+GTBARS"), 1);
  for (const char* line : {"+GTBAR", "+gtbars", ""}) EXPECT_EQ(str_starts_with(line, "+GTBARS"), 0);
  EXPECT_EQ(str_starts_with("", ""), 1);
  const std::map<std::string, int> ends = {{"> ", 2},   {">  ", -1}, {">", -1},       {"> \r", 2},
                                           {"abc", -1}, {"", -1},    {"ab\ncd\r", 2}, {"\r\n", 0}};
  for (const auto& [text, offset] : ends) {
    ExactText copy(text);
    char* end = find_next_EOL(copy.get());
    EXPECT_EQ(end == nullptr ? -1 : end - copy.get(), offset) << text;
  }
}

TEST(ProcessLine, Table) {
  for (const auto& row : table("process_line.txt", 6)) {
    for (const auto& type : split(row[0], " ")) {
      Response response(at_response_new());
      for (const auto& step : split(row[2], "; ")) {
        const auto line = split(step, " -> ");
        EXPECT_EQ(std::to_string(process_line(line[0].c_str(), response.get(),
                                              static_cast<uint32_t>(std::stoi(type)),
                                              row[1] == "none" ? nullptr : row[1].c_str())),
                  line[1])
            << row[2] << " as type " << type;
      }
      const char* final_line = response->final_response;
      EXPECT_EQ(std::to_string(response->status), row[3]) << row[2];
      EXPECT_EQ(final_line == nullptr ? "none" : final_line, row[4]) << row[2];
      EXPECT_EQ(joined(response->intermediates), row[5]) << row[2];
    }
  }
}

TEST(ProcessLine, SurvivesMissingRecordAndMemory) {
  EXPECT_EQ(process_line("OK", nullptr, NUMERIC, nullptr), 1);
  EXPECT_TRUE(log_capture::has("FATAL:ERROR:: AT resp (p_resp) is NULL"));
  at_response_free(nullptr);

  Response response(at_response_new());
  faults::fail(faults::Call::kStrdup, ENOMEM);
  EXPECT_EQ(process_line("+X: 1", response.get(), MULTILINE, "+X"), 1);
  faults::fail(faults::Call::kCalloc, ENOMEM);
  EXPECT_EQ(process_line("+X: 2", response.get(), MULTILINE, "+X"), 1);
  EXPECT_EQ(process_line("+X: 3", response.get(), MULTILINE, "+X"), 1);
  faults::fail(faults::Call::kStrdup, ENOMEM);
  EXPECT_EQ(process_line("OK", response.get(), MULTILINE, "+X"), 0);
  EXPECT_EQ(response->final_response, nullptr);
  EXPECT_EQ(joined(response->intermediates), "(none); +X: 3");
}

TEST(ReadLine, SameLinesAtEveryChunkSize) {
  const std::string stream = "\r\n+GTBARS: 1,2,3\r\n\r\nOK\r\n\n\n+X\0: 4\r\r\r\nNO CARRIER\n\r\nlast\r\n"s;
  for (size_t chunk = 1; chunk <= stream.size(); chunk++) {
    Reader reader;
    Lines lines;
    for (size_t at = 0; at < stream.size(); at += chunk) {
      reader.send(stream.substr(at, chunk));
      reader.read();
      ASSERT_GT(reader.count, 0) << chunk;
      char* rest = reader.text;
      while (char* end = find_next_EOL(rest)) {
        lines.emplace_back(rest, end);
        rest = end + strspn(end, "\r\n");
      }
      reader.leftover = *rest != '\0' ? rest : nullptr;
    }
    EXPECT_EQ(lines, (Lines{"+GTBARS: 1,2,3", "OK", "+X: 4", "NO CARRIER", "last"})) << chunk;
    EXPECT_FALSE(log_capture::has("full line found")) << chunk;
  }
}

TEST(ReadLine, LeftoverTable) {
  const std::string full(BRIO_LINE_DATA_MAX, 'a');
  const struct {
    const char* name;
    std::string first;
    size_t kept_from;  // where in the first text the leftover begins
    std::string second, text;
    int32_t count;
    const char* logged;
  } cases[] = {
      {"joined", "+CR", 0, "EG: 1\r\n", "+CREG: 1\r\n", 10, nullptr},
      {"line ends in front of it are skipped", "x\r\n\r\n+C", 1, "REG\r", "+CREG\r", 6, nullptr},
      {"with a full line it is dropped", "+X: 1\r\n+Y", 0, "new\r\n", "new\r\n", 5,
       "full line found in leftover"},
      {"a prompt is a full line", "> ", 0, "new", "new", 3, "full line found in leftover"},
      {"nothing but line ends", "", 0, "\r\n\r\n", "", 4, nullptr},
      {"nothing but NUL bytes is data, too", "", 0, std::string(3, '\0'), "", 3, nullptr},
      {"NUL bytes vanish", "+C", 0, "\0RE\0G\r\n\0"s, "+CREG\r\n", 10, nullptr},
      {"too long, dropped", full, 0, "rest\r\nOK\r\n", "rest\r\nOK\r\n", 10, "Input line exceeded buffer"},
      {"room for one byte", full.substr(1), 0, "\r\n", full.substr(1) + "\r", BRIO_LINE_DATA_MAX, nullptr},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    Reader reader;
    if (!c.first.empty()) {
      reader.send(c.first);
      EXPECT_EQ(reader.read(), c.first) << c.name;
      reader.leftover = reader.text + c.kept_from;
    }
    reader.send(c.second);
    EXPECT_EQ(reader.read(), c.text) << c.name;
    EXPECT_EQ(reader.count, c.count) << c.name;
    EXPECT_EQ(log_capture::lines().size(), c.logged != nullptr) << c.name;
    EXPECT_TRUE(c.logged == nullptr || log_capture::has(c.logged)) << c.name;
  }
}

// What was held hides neither an error nor the end of the file; a signal is neither.
TEST(ReadLine, EndErrorAndSignal) {
  Reader reader;
  for (const bool end : {false, true}) {
    reader.send("+CRE");
    reader.read();
    EXPECT_EQ(reader.count, 4);
    reader.leftover = reader.text;
    const int saved = dup(reader.ends[0]);
    const int other = open(end ? "/dev/null" : "/", O_RDONLY | O_CLOEXEC);  // reading a directory fails
    dup2(other, reader.ends[0]);
    reader.read();
    EXPECT_EQ(reader.count, end ? 0 : -1);
    EXPECT_TRUE(end || errno == EISDIR);
    EXPECT_EQ(reader.leftover, nullptr);
    dup2(saved, reader.ends[0]);
    close(saved);
    close(other);
  }

  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);  // no SA_RESTART: read gives EINTR
  std::thread disturber([&reader, reading = pthread_self()] {
    for (int i = 0; i < 50; i++) {
      pthread_kill(reading, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    reader.send("OK\r\n");
  });
  EXPECT_EQ(reader.read(), "OK\r\n");
  disturber.join();
}
