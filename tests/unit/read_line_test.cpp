// The line reader on a pipe. Line processor and tokenizer: tests/transcripts/channel.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <thread>

#include "brio/brio_at.h"
#include "lab/log_capture.h"

namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

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
