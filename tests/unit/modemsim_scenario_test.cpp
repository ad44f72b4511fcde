// Scenario files of the simulated modem, and what playing them does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <modemsim/modem.h>
#include <modemsim/scenario.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using modemsim::load_scenario;
using modemsim::Milliseconds;
using modemsim::Modem;
using modemsim::parse_scenario;
using modemsim::Scenario;
using modemsim::ScenarioError;
using modemsim::State;

const std::string kSamples = std::string(TEST_DATA_DIR) + "/../../tools/modemsim/scenarios/";

class Folder {
 public:
  Folder() {
    char name[] = "/tmp/modemsim_test_XXXXXX";
    path_ = mkdtemp(name);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }
  std::string read(const std::string& file) const {
    std::ifstream stream(path_ + file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return stream ? text.str() : "(missing)";
  }

 private:
  std::string path_;
};

// Everything that arrives on a port until `end`; line ends as "|", empty lines left out.
std::string hear(int fd, const std::string& end) {
  std::string text;
  while (text.find(end) == std::string::npos) {
    pollfd item{fd, POLLIN, 0};
    if (poll(&item, 1, 10000) <= 0) return "time is up after " + text;
    char buffer[4096];
    const ssize_t size = read(fd, buffer, sizeof buffer);
    if (size <= 0) return "hang-up after " + text;
    text.append(buffer, static_cast<size_t>(size));
  }
  std::string lines;
  for (const char c : text) {
    if (c != '\r' && c != '\n') {
      lines += c;
    } else if (!lines.empty() && lines.back() != '|') {
      lines += '|';
    }
  }
  return lines;
}

TEST(ModemSimScenario, ErrorsNameFileLineAndKey) {
  const struct {
    const char* text;
    const char* message;
  } cases[] = {
      {"title = ", "s.toml:1: this is not TOML"},
      {"[state]\nbarz = 1\n", "s.toml:2: state.barz is not known; did you mean bars?"},
      {"[state]\nbars = \"four\"\n", "s.toml:2: state.bars must be a whole number from 0 to 255"},
      {"[state]\nbars = 1.5\n", "s.toml:2: state.bars must be a whole number"},
      {"[state]\n\nbars = 300\n", "s.toml:3: state.bars must be a whole number from 0 to 255"},
      {"[state]\nimsi = 310410123456789\n", "s.toml:2: state.imsi must be a text in quotes"},
      {"[state]\necho = 0\n", "s.toml:2: state.echo must be true or false"},
      {"[state]\nscan_time = -1\n", "s.toml:2: state.scan_time must be a number of 0 or more"},
      {"state = 4\n", "s.toml:1: state must be a table"},
      {"colour = 4\n", "s.toml:1: colour is not known"},
      {"[sim_files]\nEF_LOCI = \"ABC\"\n", "s.toml:2: sim_files.EF_LOCI must be the contents as pairs"},
      {"[sim_files]\nEF_LOKI = \"AB\"\n", "s.toml:2: sim_files.EF_LOKI is no file of a SIM"},
      {"[[operator]]\nstat = 9\n", "s.toml:2: operator.stat must be a whole number from 0 to 3"},
      {"[[fault]]\ncomand = \"AT\"\n", "s.toml:2: fault.comand is not known; did you mean command?"},
      {"[files]\n\"/../x\" = \"\"\n", "s.toml:2: files./../x must be a path of the device"},
      {"[[at]]\nurc = \"+X: 1\"\n", "s.toml:1: at.t is missing"},
      {"[[at]]\nt = 1\nset = { bars = -1 }\n", "s.toml:3: at.set.bars must be a whole number"},
      {"[[at]]\nt = 1\nurc = [1]\n", "s.toml:3: at.urc must be a text in quotes or a list of them"},
      {"[[at]]\nt = 1\nraw = { port = \"usb\" }\n",
       "s.toml:3: at.raw.port must be \"trace\", \"query\" or \"urc\""},
      {"[[at]]\nt = 1\nstorm = { urc = \"x\" }\n", "s.toml:3: at.storm.count must be given"},
      {"[[at]]\nt = 1\nfault = { times = true }\n", "s.toml:3: at.fault.times must be a whole number"},
      {"[prox]\ndiff = 5000\n", "s.toml:2: prox.diff must be a whole number from -4096 to 4095"},
  };
  for (const auto& item : cases) {
    try {
      parse_scenario(item.text, "s.toml");
      ADD_FAILURE() << "taken: " << item.text;
    } catch (const ScenarioError& error) {
      EXPECT_EQ(std::string(error.what()).find(item.message), 0U)
          << error.what() << "\nwanted: " << item.message;
    }
  }
  EXPECT_THROW(load_scenario("/nowhere/at/all.toml"), ScenarioError);
  EXPECT_THROW(load_scenario("/tmp"), ScenarioError);
}

TEST(ModemSimScenario, TimelinePlaysInOrderAndReportsWhatIsSwitchedOn) {
  const Scenario scenario = parse_scenario(R"(
[state]
echo = false
creg_mode = 2
[[operator]]
numeric = "26201"
lac = 0x10
cell_id = 0x20
rat = 2
[files]
"/mnt/us/apn" = "internet\n"
[prox]
diff = -2
[net]
rx = 5000
tx = 70
[[at]]
t = 0.3
urc = "+LAST: 1"
files = { "/var/run/mcsdwc.dat" = "300 AT+COPS=1" }
remove = ["/mnt/us/apn"]
prox = { diff = 60, avg = 1000 }
[[at]]
t = 0.1
set = { bars = 1 }
urc = ["+FIRST: 1", "+FIRST: 2"]
[[at]]
t = 0.1
set = { bars_reports = true, reject_reports = true, time_reports = true }
[[at]]
t = 0.2
set = { bars = 0 }
join = "26201"
network_time = "26/03/07,10:05:00+04"
reject = { procedure = 5, cause = 7, mcc = 262, mnc = 1 }
refresh = true
[[at]]
t = 0.2
network_time = { clock = "26/03/07,10:06:00-28", by = "ciev", dst = 1 }
set = { bars = 3 }
quietly = true
storm = { urc = "+STORM: 1", count = 3 }
)",
                                           "test");
  const Folder root;
  Modem modem;
  std::vector<std::string> events;
  modem.observe_events([&](const std::string& text) { events.push_back(text.substr(0, 7)); });
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  const int urc = open((root.path() + "/dev/ttyACM3").c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(urc, 0);
  EXPECT_FALSE(modem.play(scenario, 0));
  ASSERT_TRUE(modem.play(scenario, 2)) << modem.error();
  EXPECT_EQ(root.read("/mnt/us/apn"), "internet\n");
  const std::string sensor = "/sys/devices/virtual/proximity/proximity0/";
  EXPECT_EQ(root.read(sensor + "prox_diff"), "1ffe\n");
  EXPECT_NE(root.read("/proc/net/dev").find("\n wwan0:    5000       6 "), std::string::npos);
  EXPECT_EQ(hear(urc, "+LAST: 1\r\n"),
            "+FIRST: 1|+FIRST: 2|"
            "+CREG: 5,\"0010\",\"00000020\",2|+GTBARS: 2,0,60,30|+CTZV: 4,\"26/03/07,10:05:00\"|"
            "+GTOTAREJECT: 1,5,7,262,01|+STKPCI: 0,\"D009810301010082028182\"|"
            "+CIEV: 9,\"26/03/07,10:06:00\",-28,1|+STORM: 1|+STORM: 1|+STORM: 1|"
            "+LAST: 1|");
  ASSERT_TRUE(modem.wait_played());
  EXPECT_EQ(root.read("/mnt/us/apn"), "(missing)");
  EXPECT_EQ(root.read("/var/run/mcsdwc.dat"), "300 AT+COPS=1");
  EXPECT_EQ(root.read(sensor + "prox_diff"), "3c\n");
  EXPECT_EQ(root.read(sensor + "prox_avg"), "3e8\n");
  const State state = modem.state();
  EXPECT_EQ(state.bars, 3);
  EXPECT_EQ(state.operator_numeric, "26201");
  modem.unplug();
  EXPECT_EQ(root.read("/proc/net/dev").find("wwan0"), std::string::npos);
  modem.stop();
  EXPECT_EQ(events, (std::vector<std::string>{"0.100 s", "0.100 s", "0.200 s", "0.200 s", "0.300 s"}));
  close(urc);
}

TEST(ModemSimScenario, TraceRunsWhileSwitchedOnAndRead) {
  const Scenario scenario = parse_scenario("[trace]\nrate = 1000000\n[state]\necho = false\n", "test");
  const Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  ASSERT_TRUE(modem.play(scenario));
  const int trace = open((root.path() + "/dev/ttyACM1").c_str(), O_RDWR | O_NOCTTY);
  const int query = open((root.path() + "/dev/ttyACM2").c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(trace, 0);
  ASSERT_GE(query, 0);
  ASSERT_EQ(write(query, "AT+TRACE=1\r", 11), 11);
  std::string text;
  while (text.size() < 20000) {
    char buffer[4096];
    pollfd item{trace, POLLIN, 0};
    ASSERT_GT(poll(&item, 1, 10000), 0);
    const ssize_t size = read(trace, buffer, sizeof buffer);
    ASSERT_GT(size, 0);
    text.append(buffer, static_cast<size_t>(size));
  }
  for (size_t i = 0; i < text.size(); i++) {
    ASSERT_EQ(static_cast<unsigned char>(text[i]), Modem::trace_byte(i)) << i;
  }
  EXPECT_TRUE(modem.wait_written()) << "a trace without end is nothing to wait for";
  ASSERT_EQ(write(query, "AT+TRACE=0\r", 11), 11);
  EXPECT_EQ(hear(query, "OK\r\n\r\nOK\r\n"), "OK|OK|");
  close(trace);
  close(query);
}

TEST(ModemSimScenario, SamplesLoadAndPlayToTheirEnd) {
  for (const char* name : {"home-lte.toml", "rough-day.toml"}) {
    const Scenario scenario = load_scenario(kSamples + name);
    EXPECT_FALSE(scenario.title.empty());
    EXPECT_GE(scenario.timeline.size(), 9U);
    EXPECT_GE(scenario.state.operators.size(), 3U);
    const Folder root;
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

}  // namespace
