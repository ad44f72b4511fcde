// Recordings: what they hide, and what becomes of them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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
           {"<", "+CRSM: 144,0,\"984401000000001234F6\"", "+CRSM: 144,0,\"984401000000000000F0\""},
           {"<", "+CRSM: 144,0,\"13001440001301814000\"", ""},
           {"<", "+ICCID: 8944015192E06012345F", "+ICCID: 8944010000000000000F"},
           {"<", "8944010000000012345F", "8944010000000000000F"},
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
  root.write("/tapped/at.log", log + "2026-11-22T07:00:00.000Z 10 query <-- +C");
  root.write("/x.txt", log);
  std::filesystem::current_path(root.path("/tapped"));
  check(BRIOCTL,
        {{"import ../x.txt --force", 1, {"x\\.txt is the recording itself; --to"}},
         {"import .", 0, {"at.log:8: the line is cut off", "\n\\./tapped\\.toml\n\\./tapped\\.txt\n$"}},
         {"import . --to none/x", 1, {"No such file or directory"}},
         {"record ../x.txt", 1, {"cannot be made: Not a directory"}},
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

// A session plays against the library that was recorded: outputs left alone, an odd ICCID, texts with quotes,
// records, pages, reports while nobody listens, a modem that was pulled.
TEST(Brioctl, ImportsWhatPlays) {
  modemsim::DeviceRoot root;
  for (const auto& [name, text] : std::vector<std::pair<std::string, std::string>>{
           {"odd", "[state]\ncs_stat = 3\nps_stat = 3\niccid = \"8944109999000011112F\"\n"},
           {"scan", "[[operator]]\nstat = 2\nlong_name = \"Pr\u00e9t\"\nnumeric = \"310410\"\nrat = 7\n"},
           {"pulled", "[[fault]]\ncommand = \"AT+GTBARS?\"\nunplug = true\n"},
           {"dead", "[[fault]]\ncommand = \"AT\"\nunplug = true\n"},
           {"deaf", "[[fault]]\ncommand = \"AT\"\nsilent = true\ntimes = -1\n"}}) {
    root.write("/" + name + ".toml", text);
  }
  std::filesystem::current_path(root.dir());
  for (const char* words : {"odd.toml status", "scan.toml scan", "odd.toml doctor", "odd.toml page",
                            "odd.toml ant", "odd.toml trace --seconds 0.1", "pulled.toml status"}) {
    run(std::string(BRIOCTL " --force --at-log x.log --scenario ") + words);
    const Outcome played = run(BRIOCTL " --force import x.log && " BRIOLAB " x.txt");
    EXPECT_EQ(0, played.status) << words << "\n" << played.text;
  }
  const std::string session = root.read("/x.txt").value_or("");
  EXPECT_NE(std::string::npos, session.find(", unplug = true\nwabs_get_bars => 2 ..\n")) << session;
  check(BRIOCTL,
        {{"--scenario x.toml status", 1, {"went away"}},
         {"--sim --at-log x.log status", 1, {"x\\.log exists; --force replaces it"}},
         {"--scenario dead.toml report r.tgz", 0, {"tgz: checks, .*\nPage and status are missing"}}});
  EXPECT_EQ("r.tgz\n",
            run("timeout -s INT 1 " BRIOCTL " --scenario deaf.toml report s.tgz 2>/dev/null; ls *gz*").text);
  const Outcome full = run("ulimit -f 1; " BRIOCTL " --sim --at-log full status");
  EXPECT_NE(std::string::npos, full.text.find("written whole: File too large")) << full.text;
  check("ulimit -f 1; " BRIOCTL,
        {{"--sim trace", 1, {"512 bytes until then.\nbrioctl: The trace could not be written"}}});
}

// Of a tap in the ports' place that was killed, also when the modem has come back with other ptys.
TEST(Brioctl, GivesTappedPortsBack) {
  const modemsim::DeviceRoot root;
  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(root.dir()));
  std::filesystem::current_path(root.dir());
  const std::string tap = BRIOCTL " --root . --force record --tap --in-place case ";
  for (const bool replugged : {false, true}) {
    run("rm -f said; " + tap +
        ">said 2>&1 & until grep -q Ctrl-C said; do sleep 0.02; done; kill -9 $!; wait $!");
    // The pty's number may be another's at once.
    const std::string link = std::filesystem::read_symlink("dev/ttyACM2").string();
    std::filesystem::remove("dev/ttyACM2");
    std::filesystem::create_symlink(replugged ? link : "/dev/./null", "dev/ttyACM2");
    check(BRIOCTL, {{"--root . status", 1, {"ttyACM2.*killed left the port as .*/ttyACM2\\.tapped"}},
                    {"--root . ports", 0, {"killed", "\n[^ ]*/ttyACM1 +trace [^\n]+\n$"}}});
    const int taken = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (replugged) modem.unplug();
    ASSERT_TRUE(modem.plug());
    EXPECT_EQ(0, run(tap + "--seconds 0.1; [ ! -e dev/ttyACM2.tapped ]").status);
    check(BRIOCTL, {{"--root . at AT+CSQ", 0, {"\\+CSQ: "}}});
    close(taken);
  }
}

}  // namespace
