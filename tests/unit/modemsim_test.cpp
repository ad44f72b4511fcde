// The simulated modem by itself: a plain serial client on its ports, without the library. Sessions, scenario
// errors and a timeline stand in tests/data/modemsim.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <modemsim/modem.h>
#include <modemsim/scenario.h>
#include <poll.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using modemsim::Modem;
using modemsim::parse_scenario;
using modemsim::Port;

const std::string kData = std::string(TEST_DATA_DIR) + "/modemsim/";

std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return stream ? text.str() : "(missing)";
}

class Folder {
 public:
  Folder() { path_ = mkdtemp(name_); }
  ~Folder() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }

 private:
  char name_[32] = "/tmp/modemsim_test_XXXXXX";
  std::string path_;
};

// One end of a serial line, as a host has it.
class Client {
 public:
  Client(const Folder& root, const char* device)
      : fd_(open((root.path() + "/dev/" + device).c_str(), O_RDWR | O_NOCTTY)) {}
  ~Client() { close(fd_); }
  bool valid() const { return fd_ >= 0; }
  void send(const std::string& text) {
    ASSERT_EQ(write(fd_, text.data(), text.size()), ssize_t(text.size()));
  }
  // What one read gives; "" after a hang-up or ten seconds.
  std::string read_some() {
    pollfd item{fd_, POLLIN, 0};
    char buffer[8192];
    ssize_t size = poll(&item, 1, 10000) > 0 ? read(fd_, buffer, sizeof(buffer)) : 0;
    return std::string(buffer, size > 0 ? static_cast<size_t>(size) : 0);
  }
  // Lines up to the first that begins or ends with `final_line`, joined with "|", empty ones left out.
  std::string hear(const std::vector<std::string>& finals) {
    std::string text;
    for (;;) {
      while (held_.find("\r\n") == std::string::npos) {
        std::string more = read_some();
        if (more.empty()) return text + "(hang-up)";
        held_ += more;
      }
      size_t end = held_.find_first_of("\r\n");
      std::string line = held_.substr(0, end);
      held_.erase(0, end + 1);
      if (line.empty()) continue;
      text += (text.empty() ? "" : "|") + line;
      for (const std::string& last : finals) {
        if (line.compare(0, last.size(), last) == 0) return text;
      }
    }
  }
  std::string ask(const std::string& command) {
    send(command + "\r");
    return hear({"OK", "ERROR", "+CME ERROR"});
  }

 private:
  int fd_;
  std::string held_;
};

std::vector<std::string> split(const std::string& line, const std::string& separator) {
  std::vector<std::string> fields;
  size_t start = 0, end;
  while ((end = line.find(separator, start)) != std::string::npos) {
    fields.push_back(line.substr(start, end - start));
    start = end + separator.size();
  }
  fields.push_back(line.substr(start));
  return fields;
}

TEST(ModemSim, Sessions) {
  for (const char* name : {"answers", "registration", "faults", "sim_missing"}) {
    std::string text = read_file(kData + name + ".txt");
    size_t cut = text.find("\n---\n");
    ASSERT_NE(cut, std::string::npos) << name;
    Folder root;
    Modem modem(parse_scenario(text.substr(0, cut + 1), name).state);
    ASSERT_TRUE(modem.start(root.path())) << modem.error();
    Client query(root, "ttyACM2"), urc(root, "ttyACM3");
    std::istringstream lines(text.substr(cut + 5));
    int asked = 0;
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] == '#') continue;
      if (line.compare(0, 2, "! ") == 0) {
        modem.fault(parse_scenario("fault = [{" + line.substr(2) + "}]", name).faults.at(0));
        continue;
      }
      auto fields = split(line + " ", " =>");
      ASSERT_GE(fields.size(), 2u) << line;
      for (size_t i = 1; i < fields.size(); i++) {
        fields[i].erase(0, fields[i].find_first_not_of(' '));
        fields[i].erase(fields[i].find_last_not_of(' ') + 1);
      }
      asked++;
      if (fields[1].empty()) {
        query.send(fields[0] + "\r");
        continue;
      }
      std::string answer = query.ask(fields[0]);
      // What a fault puts behind the final line.
      if (size_t more = fields[1].find("OK|"); more != std::string::npos && answer.back() == 'K') {
        answer += "|" + query.hear({fields[1].substr(more + 3)});
      }
      EXPECT_EQ(answer, fields[1]) << name << ": " << fields[0];
      if (fields.size() < 3) continue;
      modem.raw(Port::kUrc, "\r\n=\r\n");
      EXPECT_EQ(urc.hear({"="}), fields[2] + (fields[2].empty() ? "=" : "|=")) << name << ": " << fields[0];
    }
    EXPECT_GE(asked, 2) << name;
    EXPECT_EQ(modem.commands().size(), static_cast<size_t>(asked));
  }
}

TEST(ModemSim, ScenarioErrorsNameFileLineAndKey) {
  std::istringstream lines(read_file(kData + "errors.txt"));
  int cases = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    auto fields = split(line, " => ");
    ASSERT_EQ(fields.size(), 2u) << line;
    for (size_t at; (at = fields[0].find("\\n")) != std::string::npos;) fields[0].replace(at, 2, "\n");
    try {
      parse_scenario(fields[0], "s.toml");
      ADD_FAILURE() << "taken: " << line;
    } catch (const modemsim::ScenarioError& error) {
      EXPECT_EQ(std::string(error.what()).find(fields[1]), 0u) << error.what() << "\nwanted: " << fields[1];
    }
    cases++;
  }
  EXPECT_GE(cases, 20);
  EXPECT_THROW(modemsim::load_scenario("/nowhere/at/all.toml"), modemsim::ScenarioError);
}

TEST(ModemSim, TimelinePlaysInOrderAndReportsWhatIsSwitchedOn) {
  Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  Client urc(root, "ttyACM3");
  ASSERT_TRUE(modem.play(modemsim::load_scenario(kData + "timeline.toml"), 2)) << modem.error();
  const std::string sensor = root.path() + "/sys/devices/virtual/proximity/proximity0/";
  EXPECT_EQ(read_file(sensor + "prox_diff"), "1ffe\n");
  EXPECT_NE(read_file(root.path() + "/proc/net/dev").find("\n wwan0:    5000       6 "), std::string::npos);
  EXPECT_EQ(urc.hear({"+LAST"}),
            "+FIRST: 1|+FIRST: 2|"
            "+CREG: 5,\"0010\",\"00000020\",2|+GTBARS: 2,0,60,30|+CTZV: 4,\"26/03/07,10:05:00\"|"
            "+GTOTAREJECT: 1,5,7,262,01|+STKPCI: 0,\"D009810301010082028182\"|"
            "+CIEV: 9,\"26/03/07,10:06:00\",-28,1|+STORM: 1|+STORM: 1|+STORM: 1|+LAST: 1");
  ASSERT_TRUE(modem.wait_played());
  EXPECT_EQ(read_file(root.path() + "/mnt/us/apn"), "(missing)");
  EXPECT_EQ(read_file(root.path() + "/var/run/mcsdwc.dat"), "300 AT+COPS=1");
  EXPECT_EQ(read_file(sensor + "prox_diff"), "3c\n");
  EXPECT_EQ(modem.state().operator_numeric, "26201");
}

TEST(ModemSim, SamplesPlayToTheirEnd) {
  for (const char* name : {"demo", "home-lte", "rough-day"}) {
    auto scenario = modemsim::load_scenario(std::string(SCENARIO_DIR) + "/" + name + ".toml");
    EXPECT_GE(scenario.timeline.size(), 7u) << name;
    Folder root;
    Modem modem;
    std::string problems;
    modem.observe_events([&](const std::string& text) {
      if (text.find("cannot") != std::string::npos) problems += text;
    });
    ASSERT_TRUE(modem.start(root.path())) << modem.error();
    ASSERT_TRUE(modem.play(scenario, 300)) << modem.error();
    EXPECT_TRUE(modem.wait_played()) << name;
    modem.stop();
    EXPECT_EQ(problems, "");
  }
}

TEST(ModemSim, PiecesUnpluggingAndTrace) {
  Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  {
    Client query(root, "ttyACM2"), urc(root, "ttyACM3"), trace(root, "ttyACM1");
    EXPECT_EQ(query.ask("ATE0"), "ATE0|OK");
    modem.chunk(1);
    query.send("AT+GTBARS?\r");
    int reads = 0;
    for (std::string text; text.find("OK\r\n") == std::string::npos; reads++) text += query.read_some();
    EXPECT_GE(reads, 15) << "one byte at a time";
    modem.chunk(0);

    constexpr size_t kSize = 300000;
    modem.stream_trace(kSize);
    size_t at = 0;
    while (at < kSize) {
      std::string piece = trace.read_some();
      ASSERT_FALSE(piece.empty()) << "stopped at " << at;
      for (char c : piece) ASSERT_EQ(static_cast<unsigned char>(c), Modem::trace_byte(at++));
    }
    modem.unplug();
    EXPECT_EQ(query.read_some() + urc.read_some(), "");
    EXPECT_FALSE(Client(root, "ttyACM2").valid()) << "the device is still there";
  }
  ASSERT_TRUE(modem.plug());
  EXPECT_EQ(Client(root, "ttyACM2").ask("AT"), "AT|OK") << "it boots with its echo on";
  modem.stop();
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(root.path() + "/dev/ttyACM2")));
  std::ofstream(root.path() + "/dev/ttyACM1") << "a file";
  EXPECT_FALSE(modem.start(root.path()));
  EXPECT_NE(modem.error().find("is in the way"), std::string::npos) << modem.error();
}

}  // namespace
