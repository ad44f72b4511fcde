// modemsim and briolab as programs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "modemsim/device_root.h"
#include "modemsim/modem.h"
#include "run.h"

namespace {

TEST(Modemsim, RunsAScenarioAndRefusesABadOne) {
  modemsim::DeviceRoot root;
  root.write("/dev/ttyACM2", "in the way");
  root.write("/bad.toml", "[state]\n\"bers\\u0007\" = 3\n");
  root.write("/demo", "no scenario");
  std::filesystem::current_path(root.dir());
  const std::string occupied = "--root " + root.dir(), bad = "--scenario " + root.path("/bad.toml");
  check(MODEMSIM,
        {{"--scenario demo --seconds 0.2", 0, {"query port /.*/dev/ttyACM2\nURC port   /.*/dev/ttyACM3\n"}},
         {"--scenario home-lte --speed 60 --seconds 20 -v | sed '/ 34.000 s: /q'", 0, {"34\\.000 s: .*prox"}},
         {"--list-commands", 0, {"AT\\+CFUN=0\\|1 +radio off, on\n"}},
         {occupied.c_str(), 1, {"ttyACM2 is in the way: it is not a link"}},
         {"ctl replugg", 2, {"^There is no command replugg; did you mean replug\\?"}},
         {"--speed -1", 2, {"'-1' is no number, 0 or above"}},
         {bad.c_str(), 1, {"bad\\.toml:2: .*bers\\\\x07.*bars"}}});
  check(BRIOCTL, {{(bad + " status").c_str(), 1, {"bers\\\\x07"}}});
}

TEST(Modemsim, ObeysItsControlSocket) {
  modemsim::DeviceRoot root;
  const std::string socket = root.path("/modemsim.sock"), ctl = "ctl --socket " + socket + " ";
  const std::string out = root.path("/out"),
                    begin = "rm -f " + out + "; " MODEMSIM " --root " + root.dir() + " --seconds 60 >" + out +
                            " 2>&1 & until grep -qs Ctrl-C " + out + "; do sleep 0.02; done; ";
  const std::string kill = run(begin + "echo kill -9 $!").text, gone = "flock " + root.dir() + " true";
  const auto done = [&](const std::string& words, int status, const char* said) {
    check(MODEMSIM, {{(ctl + words).c_str(), status, {said}}});
  };
  EXPECT_EQ("600\n", run("stat -c %a " + socket).text);
  done("set bars=1 apn=internet bars_reports=true", 0, "^$");
  done("status", 0, "plugged in\nquery port .*not open\n(.*\n)*bars=1\n(.*\n)*apn=internet\n");
  done("set bars=1000", 1, "^modemsim: bars must be a whole number from 0 to 255\n$");
  done("set bers=1", 1, "^modemsim: bers is not known; did you mean bars\\?\n$");
  done("set foo=1", 1, "^modemsim: foo is not known\n$");
  done("set apn=\\\"x\\\" bars", 1, "^modemsim: bars: a setting is written as bars=1\n$");
  done("urc +X", 1, "nobody has the URC port open");
  done("unplug", 0, "^$");
  done("urc +X", 1, "is unplugged");
  done("replug", 0, "^$");
  const int port = open(root.path("/dev/ttyACM3").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  done("urc +CREG: '5,\"1A2B\"'", 0, "^$");
  done("set creg_mode=1 && " MODEMSIM " " + ctl + "set cs_stat=3", 0, "^$");
  char said[64] = {};
  size_t size = 0;
  const std::string expected = "\r\n+CREG: 5,\"1A2B\"\r\n\r\n+CREG: 3\r\n";
  while (size < expected.size()) {
    const ssize_t got = read(port, said + size, sizeof said - size);
    ASSERT_LT(0, got);
    size += static_cast<size_t>(got);
  }
  EXPECT_EQ(expected, said);
  close(port);
  // What a killed simulator leaves does not keep the next one away.
  run(kill + gone);
  done("status", 1, "nobody listens; the simulated modem has ended");
  run(run(begin + "echo kill $!").text + gone);
  done("status", 1, "No such file");
}

// A host that skips is followed, one command of its own does not move the place; nothing is said late.
TEST(Modemsim, FollowsAHostAndForgetsAtUnplugging) {
  modemsim::DeviceRoot root;
  std::string log = "2026-11-22T07:00:00.000Z 0 urc <-- +EARLY: 1\n", seen;
  for (int i = 0; i < 40; i++) {
    const std::string columns = "2026-11-22T07:00:00.000Z 0 query ";
    log += columns + "--> AT+A" + std::to_string(i) + "\n" + columns + "<-- OK\n";
  }
  root.write("/at.log", log);
  modemsim::Modem modem;
  modem.observe([&](const modemsim::Traffic& traffic) { seen += traffic.bytes; });
  modemsim::Answer stale, mark;
  stale.command = "AT+STALE";
  stale.reports = {{modemsim::Milliseconds(10), "+STALE: 1"}};
  mark.command = "AT+MARK";
  mark.delay = modemsim::Milliseconds(30);
  modem.answer(stale);
  modem.answer(mark);
  ASSERT_TRUE(modem.start(root.dir())) << modem.error();
  modem.tell("AT+STALE");
  modem.unplug();
  seen.clear();  // on a slow machine it was said before
  ASSERT_TRUE(modem.plug());
  modem.tell("AT+MARK");
  EXPECT_TRUE(modem.wait_written());
  ASSERT_TRUE(modem.replay(root.path("/at.log"), 0)) << modem.error();
  for (const char* number : {"39", "0", "1", "30", "31", "32"}) modem.tell(std::string("AT+A") + number);
  EXPECT_EQ(0U, modem.replayed().find("4 of 40 recorded commands came in their order, 2 others."))
      << modem.replayed();
  modem.stop();
  EXPECT_EQ(std::string::npos, seen.find("+STALE: 1")) << seen;
  EXPECT_NE(std::string::npos, seen.find("+EARLY: 1")) << seen;
}

// A host that closes a port amid pieces: the rest is for nobody, and is not waited for.
TEST(Modemsim, SeesAPortClosedAmidPieces) {
  modemsim::DeviceRoot root;
  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(root.dir())) << modem.error();
  modem.chunk(1);
  for (int i = 0; i < 50; i++) {
    const int host = open(root.path("/dev/ttyACM3").c_str(), O_RDWR | O_NOCTTY);
    ASSERT_TRUE(modem.wait_open(modemsim::Port::kUrc));
    modem.raw(modemsim::Port::kUrc, std::string(1000, 'x'));  // 20 s, where nobody reads
    close(host);
    ASSERT_TRUE(modem.wait_open(modemsim::Port::kUrc, false)) << i;
  }
}

// Folders and links that another user has planted, in the root's own path and below it.
TEST(Modemsim, WritesOnlyIntoItsOwnFolder) {
  modemsim::DeviceRoot victim, planted, linked, shared, theirs;
  victim.write("/mine", "mine");
  ASSERT_EQ(0, symlink(victim.path("/mine").c_str(), planted.path("/proc/net/dev.new").c_str()));
  linked.remove("/proc");
  ASSERT_EQ(0, symlink(victim.dir().c_str(), linked.path("/proc").c_str()));
  ASSERT_EQ(0, chmod(shared.dir().c_str(), 0777));
  const auto play = [](const std::string& root) {
    return "--scenario home-lte --seconds 0.2 --root " + root;
  };
  const std::string link = planted.path("/link");
  ASSERT_EQ(0, symlink(victim.dir().c_str(), link.c_str()));
  const bool given = lchown(link.c_str(), 1, 1) == 0 && chown(theirs.dir().c_str(), 1, 1) == 0;
  ASSERT_EQ(geteuid() == 0, given);  // only root can give files to others
  check(MODEMSIM, {{play(planted.dir()).c_str(), 0, {"query port"}},
                   {play(linked.dir()).c_str(), 1, {"/proc is in the way"}},
                   {play(shared.dir()).c_str(), 1, {"others may write in "}},
                   {play(shared.dir() + "/new").c_str(), 1, {"others may write in "}},
                   {play(given ? theirs.dir() : "/").c_str(), 1, {"belongs to another user"}}});
  if (given) {
    check(MODEMSIM, {{play(link + "/new").c_str(), 1, {"is a link of another user"}},
                     {play(theirs.dir() + "/new").c_str(), 1, {"belongs to another user"}}});
  }
  EXPECT_EQ("mine", victim.read("/mine"));
  EXPECT_FALSE(std::filesystem::exists(victim.path("/net")));
}

TEST(Briolab, TellsWhatCanBeSaid) {
  check(BRIOLAB, {{"--commands", 0, {"\n    urc LINE  "}},
                  {"--functions", 0, {"\n  brio_open TEXT\n", "\n  wabs_get_imsi NUMBER\n"}},
                  {"", 0, {"^$"}},
                  {"/nonexistent", 2, {"^/nonexistent: cannot be read\n$"}},
                  {"--record /nonexistent/x", 2, {"/nonexistent/x cannot be written\n$"}},
                  {"--update", 2, {"FILE"}}});
  // What a case asks of the log is its point.
  modemsim::DeviceRoot root;
  root.write("/case.txt", "wabs_open => 1 ; log as ever\nwabs_get_bars => 9\n");
  check(BRIOLAB,
        {{("--update " + root.path("/case.txt")).c_str(), 1, {"- log as ever\n", "edit them by hand\n"}}});
  EXPECT_EQ("wabs_open => 0 ; log as ever\nwabs_get_bars => 0 4\n", root.read("/case.txt"));
  // At a terminal, with an edited line and one from the history; a missing answer does not cost
  // its minute.
  const std::string typed = EDITS != 0 ? "opn\\002e\\n\\020" : "open\\nopen";
  const std::string lines =
      "\\nwabs_get_brs\\nanswer AT+GTBARS? +GTBARS:\\nbrio_get_bars 0\\nanswer AT+GTMODINFO? a b OK\\n"
      "brio_get_modem_info\\nquit\\n";
  check(("printf '" + typed + lines +
         "' | TERM=dumb timeout 600 script -qec '" BRIOLAB "' /dev/null | tr -d '\\r'")
            .c_str(),
        {{"",
          0,
          {"open: it gave 2\n", "did you mean wabs_get_bars\\?", "has no final line", "[\n ]7 untouched\n",
           "dropped an answer", "[\n ]4 untouched\n"}}});
}

}  // namespace
