// Recordings: what they hide, and what becomes of them.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "at_log.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"
#include "run.h"

namespace {

// The first column goes to the modem (>) or comes from it (<, torn off ~).
TEST(AtLog, HidesIdentities) {
  at_log::Mask mask;
  for (const auto& [side, text, shown] : std::vector<std::array<std::string, 3>>{
           {">", "AT+CRSM=176,12258,0,0,0", ""},
           {">", "AT+COPS?", ""},
           {"<", "+CRSM: 144,0,\"98440100000000123456\"", "+CRSM: 144,0,\"98440100000000000000\""},
           {"<", "+CRSM: 144,0,\"13001440001301814000\"", ""},
           {"<", "+ICCID: 8944015192E06012345F", "+ICCID: 89440100000000000000"},
           {"<", "8944010000000012345F", "89440100000000000000"},
           {"<", "+GTMODINFO: \"L816_18000.1000.00.24.01.01\",\"356938035643809\"",
            "+GTMODINFO: \"L816_18000.1000.00.24.01.01\",\"356938000000000\""},
           {"<", "+CREG: 5,\"1A2B\",\"01C2D3E4\",7", ""},
           {"~", "3104101234", "3104100000"},
           {"<", "5678901", "5678900"}}) {
    at_log::Line line;
    line.to_modem = side == ">";
    line.torn = side == "~";
    line.text = text;
    mask.hide(line);
    EXPECT_EQ(shown.empty() ? text : shown, line.text);
    EXPECT_EQ(line.text, at_log::parse(at_log::format(line))->text);
  }
}

// As docs/recording.md shows it. A host that does the same again follows the recording.
TEST(Brioctl, RecordsWhatBecomesATest) {
  modemsim::DeviceRoot home, device;
  home.write(
      "/walk.sh",
      "cd " + home.dir() +
          "\nwait_for() { [ \"$1\" != --root ] || until [ -e \"$2/dev/ttyACM3\" ]; do sleep 0.02; done; }\n" +
          "brioctl() { wait_for \"$@\"; " BRIOCTL " \"$@\"; }\nbriolab() { " BRIOLAB " \"$@\"; }\n" +
          "modemsim() { exec " MODEMSIM " \"$@\"; }\n");
  const Outcome outcome = run("sed -n '/^```sh/,/^```$/{/^```/d;p}' " DOCS "/recording.md >> " +
                              home.path("/walk.sh") + "; sh -e " + home.path("/walk.sh"));
  EXPECT_EQ(0, outcome.status) << outcome.text;
  EXPECT_NE(std::string::npos, outcome.text.find("\n  - 0 4\n  + 0 1\n")) << outcome.text;
  EXPECT_NE(std::string::npos, outcome.text.find(": the host sent AT+CSQ, the recording has"))
      << outcome.text;
  const std::string log = home.read("/case/at.log").value_or("");
  EXPECT_NE(std::string::npos, log.find("query <-- +CIMI: 310410000000000\n")) << outcome.text;
  EXPECT_EQ(std::string::npos, log.find("3104101")) << log;
  EXPECT_EQ(std::string::npos, home.read("/case/library.log").value_or("356938035").find("356938035"));
  const std::string session = home.read("/case/case.txt").value_or("");
  EXPECT_NE(std::string::npos,
            session.find("\nwabs_get_bars => 0 4 ; sent AT+COPS?, AT+GTBARS?, AT+GTBARS=1\n"));

  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(device.dir()) && modem.replay(home.path("/case"), 0)) << modem.error();
  check(BRIOCTL, {{("--root " + device.dir() + " status").c_str(), 0, {"wabs_get_bars +0 ok +1 "}},
                  {("--root " + device.dir() + " at AT+CSQ").c_str(), 1, {}}});
  const std::string followed = modem.replayed();
  EXPECT_TRUE(std::regex_search(
      followed,
      std::regex("^([0-9]+) of \\1 .*, [0-9]+ others. First: left .*: the host sent AT.COPS., .* end$")))
      << followed;
}

// Bytes, reports before the first command, an OK to an unknown command, an end in the middle.
TEST(Brioctl, ImportsWhatATapSaw) {
  modemsim::DeviceRoot root;
  std::string log;
  for (const char* line : {"urc   <-- +EARLY: 1", "query --> AT+NEW=1", "query <-- OK", "query --> AT+NAME?",
                           "query <-- +NAME: caf\\xe9", "query <-- OK", "query --> AT+CUT?"}) {
    log += std::string("2026-11-22T07:00:00.000Z 10 ") + line + "\n";
  }
  root.write("/tapped/at.log", log);
  root.write("/x.txt", log);
  std::filesystem::current_path(root.path("/tapped"));
  check(BRIOCTL, {{"import ../x.txt --force", 1, {"x\\.txt is the recording itself; --to"}},
                  {"import .", 0, {"^\\./tapped\\.toml\n\\./tapped\\.txt\n$"}},
                  {"--scenario ./tapped.toml -v at AT+NAME?", 0, {"\\+NAME: caf\\\\xe9\n"}}});
  check(BRIOLAB, {{"tapped.txt", 0, {"^$"}}});
  const std::string session = root.read("/tapped/tapped.txt").value_or("");
  EXPECT_NE(std::string::npos, session.find("answer \"AT+NEW=1\" times=1 \"OK\"\n")) << session;
  EXPECT_NE(std::string::npos, session.find("\nopen\n")) << session;
  EXPECT_NE(std::string::npos, session.find("\nurc \"+EARLY: 1\"\n")) << session;
  const std::string scenario = root.read("/tapped/tapped.toml").value_or("");
  EXPECT_NE(std::string::npos, scenario.find("times = 1\nreports = [{ t = 0.000, line = \"+EARLY: 1\" }]\n"))
      << scenario;
  EXPECT_EQ(std::string::npos, scenario.find("command = \"AT+CUT?\"")) << scenario;
}

}  // namespace
