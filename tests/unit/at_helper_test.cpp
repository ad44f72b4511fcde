#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "brio/brio_at.h"
#include "faults.h"
#include "support/log_capture.h"

namespace {

using namespace std::string_literals;

struct ResponseDeleter {
  void operator()(ATResponse* response) const { at_response_free(response); }
};
using Response = std::unique_ptr<ATResponse, ResponseDeleter>;

std::vector<std::string> lines_of(const ATResponse& response) {
  std::vector<std::string> lines;
  for (const ATLine* line = response.intermediates; line != nullptr; line = line->next) {
    lines.push_back(line->line != nullptr ? line->line : "(none)");
  }
  return lines;
}

// A reader on one end of a pipe, with a buffer of exactly the size that read_line asks for.
class Reader {
 public:
  Reader() { EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0); }
  ~Reader() {
    close(pipe_[0]);
    finish();
  }

  void send(const std::string& bytes) {
    ASSERT_EQ(write(pipe_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void finish() {
    if (pipe_[1] >= 0) close(pipe_[1]);
    pipe_[1] = -1;
  }
  // One read; the text that it gives.
  std::string read() {
    count = 0;
    text = read_line(fd >= 0 ? fd : pipe_[0], buffer.get(), &leftover, &count);
    return text;
  }
  void keep(char* place) { leftover = place; }

  // One read, cut into complete lines as the read thread does.
  void read_lines(std::vector<std::string>* lines) {
    read();
    while (char* end = find_next_EOL(text)) {
      lines->push_back(std::string(text, end));
      text = end;
      while (*text == '\r' || *text == '\n') text++;
    }
    leftover = *text != '\0' ? text : nullptr;
  }

  int pipe_[2] = {-1, -1};
  int fd = -1;
  std::unique_ptr<char[]> buffer{new char[BRIO_LINE_DATA_MAX + 1]()};
  char* leftover = nullptr;
  char* text = nullptr;
  int32_t count = 0;
};

}  // namespace

TEST(ProcessLine, Table) {
  using Lines = std::vector<std::string>;
  using Results = std::vector<int32_t>;
  const struct {
    const char* name;
    uint32_t type;
    const char* prefix;
    Lines lines;
    Results results;
    int32_t status;
    const char* final_response;  // null for none
    Lines intermediates;
  } cases[] = {
      {"multi-line in arrival order",
       MULTILINE,
       "+X",
       {"+X: 1", "+X: 2", "+X: 3", "OK"},
       {1, 1, 1, 0},
       0,
       "OK",
       {"+X: 1", "+X: 2", "+X: 3"}},
      {"multi-line wrong prefix", MULTILINE, "+X", {"+X: 1", "+Y: 2"}, {1, 3}, 0, nullptr, {"+X: 1"}},
      {"error final leaves newest first",
       MULTILINE,
       "+X",
       {"+X: 1", "+X: 2", "+CME ERROR: 10"},
       {1, 1, 0},
       1,
       "+CME ERROR: 10",
       {"+X: 2", "+X: 1"}},
      {"final before prefix", MULTILINE, "+X", {"CONNECT 150"}, {0}, 0, "CONNECT 150", {}},
      {"no prefix asked", MULTILINE_NO_PREFIX, nullptr, {"a", "+b", "OK"}, {1, 1, 0}, 0, "OK", {"a", "+b"}},
      {"OKAY is a success", NO_RESULT, nullptr, {"OKAY"}, {0}, 0, "OKAY", {}},
      {"lower case is not final", NUMERIC, nullptr, {"ok"}, {1}, 0, nullptr, {"ok"}},
      {"single line", SINGLELINE, "+GTBARS", {"+GTBARSX", "OK"}, {1, 0}, 0, "OK", {"+GTBARSX"}},
      {"single line twice",
       SINGLELINE,
       "+GTBARS",
       {"+GTBARS: 1", "+GTBARS: 2"},
       {1, 3},
       0,
       nullptr,
       {"+GTBARS: 1"}},
      {"single line second without prefix", SINGLELINE, "+G", {"+G: 1", "x"}, {1, 3}, 0, nullptr, {"+G: 1"}},
      {"single line without prefix", SINGLELINE, "+GTBARS", {"+GTBAR"}, {2}, 0, nullptr, {}},
      {"single line, no prefix given", SINGLELINE, nullptr, {"any"}, {1}, 0, nullptr, {"any"}},
      {"numeric", NUMERIC, nullptr, {"310410123456789", "OK"}, {1, 0}, 0, "OK", {"310410123456789"}},
      {"numeric twice", NUMERIC, nullptr, {"1", "2"}, {1, 3}, 0, nullptr, {"1"}},
      {"no result drops lines", NO_RESULT, nullptr, {"+X: 1", "OK"}, {1, 0}, 0, "OK", {}},
      {"unknown type", 77, "+X", {"+X: 1", "OK"}, {1, 0}, 0, "OK", {}},
      {"idle type", NO_COMMAND, "+X", {"+X: 1"}, {1}, 0, nullptr, {}},
  };
  for (const auto& c : cases) {
    Response response(at_response_new());
    Results results;
    for (const auto& line : c.lines) {
      results.push_back(process_line(line.c_str(), response.get(), c.type, c.prefix));
    }
    EXPECT_EQ(results, c.results) << c.name;
    EXPECT_EQ(response->status, c.status) << c.name;
    if (c.final_response == nullptr) {
      EXPECT_EQ(response->final_response, nullptr) << c.name;
    } else {
      EXPECT_STREQ(response->final_response, c.final_response) << c.name;
    }
    EXPECT_EQ(lines_of(*response), c.intermediates) << c.name;
  }
}

TEST(ProcessLine, EveryErrorFinal) {
  for (const char* line : {"ERROR", "+CMS ERROR: 310", "+CME ERROR:", "NO CARRIER", "NO ANSWER",
                           "NO DIALTONE", "ABORTED", "ERRORS"}) {
    for (uint32_t type : {NO_RESULT, NUMERIC, SINGLELINE, MULTILINE, MULTILINE_NO_PREFIX}) {
      Response response(at_response_new());
      EXPECT_EQ(process_line(line, response.get(), type, "+X"), 0) << line;
      EXPECT_EQ(response->status, 1) << line;
      EXPECT_STREQ(response->final_response, line);
    }
  }
  Response response(at_response_new());
  EXPECT_EQ(process_line("+CME ERROR", response.get(), NUMERIC, nullptr), 1) << "the colon belongs to it";
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
  EXPECT_EQ(lines_of(*response), (std::vector<std::string>{"(none)", "+X: 3"}));
}

TEST(LineHelpers, PrefixAndEndOfLine) {
  EXPECT_EQ(str_starts_with("+GTBARS: 1", "+GTBARS"), 1);
  EXPECT_EQ(str_starts_with("+GTBARS", "+GTBARS"), 1);
  EXPECT_EQ(str_starts_with("+GTBAR", "+GTBARS"), 0);
  EXPECT_EQ(str_starts_with("abc", ""), 1);
  EXPECT_EQ(str_starts_with("", ""), 1);
  EXPECT_EQ(str_starts_with("ok", "OK"), 0);
  const struct {
    const char* text;
    int offset;  // -1 for none
  } cases[] = {{"> ", 2},   {">  ", -1}, {">", -1},       {"> \r", 2},
               {"abc", -1}, {"", -1},    {"ab\ncd\r", 2}, {"\r\n", 0}};
  for (const auto& c : cases) {
    std::string text(c.text);
    char* end = find_next_EOL(&text[0]);
    EXPECT_EQ(end == nullptr ? -1 : static_cast<int>(end - &text[0]), c.offset) << c.text;
  }
}

TEST(ReadLine, SameLinesAtEveryChunkSize) {
  const std::string stream = "\r\n+GTBARS: 1,2,3\r\n\r\nOK\r\n\n\n+X\0: 4\r\r\r\nNO CARRIER\n\r\nlast\r\n"s;
  const std::vector<std::string> expected = {"+GTBARS: 1,2,3", "OK", "+X: 4", "NO CARRIER", "last"};
  for (size_t chunk = 1; chunk <= stream.size(); chunk++) {
    Reader reader;
    std::vector<std::string> lines;
    for (size_t at = 0; at < stream.size(); at += chunk) {
      reader.send(stream.substr(at, chunk));
      reader.read_lines(&lines);
      ASSERT_GT(reader.count, 0) << chunk;
    }
    EXPECT_EQ(lines, expected) << chunk;
    EXPECT_FALSE(log_capture::has("full line found")) << chunk;
  }
}

TEST(ReadLine, EndAndErrorAreSeenWithAPartialLine) {
  Reader reader;
  reader.send("+CRE");
  EXPECT_EQ(reader.read(), "+CRE");
  EXPECT_EQ(reader.count, 4);
  reader.keep(reader.text);
  reader.fd = open("/", O_RDONLY | O_CLOEXEC);  // reading a directory fails
  reader.read();
  EXPECT_LT(reader.count, 0);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(reader.leftover, nullptr);
  close(reader.fd);
  reader.fd = -1;

  reader.send("+CRE");
  reader.read();
  reader.keep(reader.text);
  reader.finish();
  reader.read();
  EXPECT_EQ(reader.count, 0);
}

TEST(ReadLine, LeftoverTable) {
  const struct {
    const char* name;
    std::string first;  // all of it is handed over as the leftover
    std::string second;
    const char* text;
    int32_t count;
    bool full_line_logged;
  } cases[] = {
      {"joined", "+CR", "EG: 1\r\n", "+CREG: 1\r\n", 10, false},
      {"line ends skipped in front of the leftover", "x\r\n\r\n+C", "REG\r", "+CREG\r", 6, false},
      {"full line in the leftover is dropped", "+X: 1\r\n+Y", "new\r\n", "new\r\n", 5, true},
      {"prompt in the leftover is a full line", "> ", "new", "new", 3, true},
      {"nothing but line ends", "", "\r\n\r\n", "", 4, false},
      {"nothing but NUL bytes is data, too", "", std::string(3, '\0'), "", 3, false},
      {"NUL bytes vanish", "+C", "\0RE\0G\r\n\0"s, "+CREG\r\n", 10, false},
  };
  for (const auto& c : cases) {
    log_capture::clear();
    Reader reader;
    if (!c.first.empty()) {
      reader.send(c.first);
      reader.read();
      size_t skipped = c.first[0] == 'x' ? 1 : 0;  // leaves "\r\n" in front of it
      reader.keep(reader.text + skipped);
    }
    reader.send(c.second);
    EXPECT_EQ(reader.read(), c.text) << c.name;
    EXPECT_EQ(reader.count, c.count) << c.name;
    EXPECT_EQ(log_capture::has("full line found in leftover buffer"), c.full_line_logged) << c.name;
  }
}

TEST(ReadLine, OversizedPartialLineIsDropped) {
  Reader reader;
  const std::string full(BRIO_LINE_DATA_MAX, 'a');
  reader.send(full);
  EXPECT_EQ(reader.read(), full);
  reader.keep(reader.text);
  reader.send("rest\r\nOK\r\n");
  EXPECT_EQ(reader.read(), "rest\r\nOK\r\n");
  EXPECT_EQ(reader.count, 10);
  EXPECT_EQ(log_capture::count("Input line exceeded buffer"), 1u);

  // One byte less still has room for one byte.
  reader.keep(nullptr);
  reader.send(full.substr(1));
  reader.read();
  reader.keep(reader.text);
  reader.send("\r\n");
  EXPECT_EQ(reader.read(), full.substr(1) + "\r");
  EXPECT_EQ(reader.count, BRIO_LINE_DATA_MAX);
  reader.keep(nullptr);
  EXPECT_EQ(reader.read(), "");
  EXPECT_EQ(log_capture::count("Input line exceeded buffer"), 1u);
}

TEST(ReadLine, GoesOnAfterASignal) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);  // no SA_RESTART: read gives EINTR
  Reader reader;
  pthread_t reading = pthread_self();
  std::thread disturber([&] {
    for (int i = 0; i < 50; i++) {
      pthread_kill(reading, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    reader.send("OK\r\n");
  });
  EXPECT_EQ(reader.read(), "OK\r\n");
  EXPECT_EQ(reader.count, 4);
  disturber.join();
}
