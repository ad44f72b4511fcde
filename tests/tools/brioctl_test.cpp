// brioctl as people and scripts run it: what it prints, how it ends.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "modemsim/device_root.h"
#include "modemsim/modem.h"
#include "run.h"

namespace {

TEST(Brioctl, ShowsTheModemAndSaysWhatIsWrong) {
  modemsim::DeviceRoot empty;
  // The report comes again and again: a slow machine opens late.
  empty.write(
      "/roams.toml",
      "[[at]]\nt = 0\nstorm = { urc = '+CREG: 5,\"1A2B\",\"01C2D3E4\",7', count = 6000, every = 0.1 }\n");
  const std::string watch =
      "--scenario " + empty.path("/roams.toml") +
      " watch --seconds 600 | awk '{print} / state /{s=1} s && /report  .CREG: 5/{exit}'";
  check(
      BRIOCTL,
      {{"--sim status", 0, {"wabs_get_bars +0 ok +4 +bars\n", "wabs_get_imsi +0 ok +310410\\*{9} +IMSI\n"}},
       {"--sim --identities status", 0, {"wabs_get_imsi +0 ok +310410123456789 +IMSI\n"}},
       {"--sim at --open AT+COPS?", 0, {"^\\+COPS: 0,2,\"310410\",7\nOK\n$"}},
       {"--sim scan --select 9", 1, {"no network 9 in the scan\\.\nAutomatic selection is on again"}},
       {"--sim -vv status", 0, {"imei=356938\\*{9} ", "wabs_get_radio_serial_number +0 ok +356938\\*{9} "}},
       {"--sim ports", 0, {"/brioctl_.*/ttyACM2 +query"}},
       {"statsu", 2, {"^There is no command statsu; did you mean status\\?"}},
       {"status --jsn", 2, {"^There is no option --jsn; did you mean --json\\?"}},
       {"--sim trace >/dev/full", 1, {"^brioctl: The output cannot be written"}},
       {"demo >/dev/full", 1, {"^brioctl: The output cannot be written"}},
       {"--sim at AT+NOSUCH", 1, {"^ERROR\n$"}},
       {"--sim --json at AT+NOSUCH", 1, {"\"error\":\"The modem refused AT.NOSUCH: ERROR\""}},
       {"scan --help", 0, {"\nExamples:\n  brioctl scan "}},
       {"--query-port /dev/null --urc-port /dev/null at AT", 2, {"cannot be the query and the URC port"}},
       {"trace --prefix /dev/x", 2, {"folder of its own"}},
       {"--sim scan",
        0,
        {"^No\\. +Status +Network +Technology +Name\n", " 1  current +310-410 +E-UTRAN +Home Wireless\n",
         "available +310-260 +E-UTRAN +Coast to Coast, Inc\\.\n"}},
       {"--sim ant 1", 0, {"Antenna: locked to 1\n", "Main: 20\n"}},
       {"--sim page",
        0,
        {"2  \\*{8} MODEM", "2\\.2  Library Version:   S30J38", "RSRP: -81 \n", "WWAN Info"}},
       {"--sim page --full", 0, {"SIM ICCID:  89014103211118510720", "IMEI:  356938035643809"}},
       {"--sim trace --seconds 2", 0, {"trace_log_[0-9_]+\\.istp: [1-9][0-9]* bytes"}},
       {watch.c_str(),
        0,
        {" state   registration=.* technology=LTE plmn=310-410 ", " report  \\+CREG: 5,\"1A2B\""}},
       {"--sim -v at AT+CIMI", 0, {" query --> AT.CIMI\n[^]* query <-- .CIMI: 310410000000000\n", "OK\n"}},
       {"--sim -vv at --open AT", 0, {"D blib:.*atcmd request:AT\n", "OK\n"}},
       {"demo --seconds 0.2", 0, {"== Opening", "ATE0 +[0-9.]+ ms", "== A network scan", "wabs_close took"}},
       {"--library /nonexistent status", 1, {"^brioctl: The module library cannot be loaded"}},
       {"--scenario nosuch status", 1, {"^brioctl: There is no scenario 'nosuch'"}},
       {"--sim at AT --timeout 0", 2, {"not in range 1 to 600"}},
       {"--sim watch --seconds -5", 2, {"'-5' is no number above 0"}},
       {"--sim watch >/dev/full", 1, {"output cannot be written"}},
       {"--sim --root /tmp status", 2, {"--root"}},
       {"--sim trace --filter /nope --seconds 1", 1, {"status 7"}}});
  const auto rows = nlohmann::json::parse(run(BRIOCTL " --sim status --json").text)["values"];
  EXPECT_EQ(4, rows["wabs_get_bars"]["value"]);
  EXPECT_EQ("310-410", rows["wabs_get_mcc_mnc"]["value"]);
  for (const auto& [name, row] : rows.items()) EXPECT_EQ(0, row["status"]) << name;
}

TEST(Brioctl, SendsWhatIsTypedAndNothingElse) {
  modemsim::DeviceRoot root;
  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(root.dir()));
  modemsim::Fault prompt;
  prompt.command = "AT+CMGS";
  prompt.replace = true;
  prompt.reply = "\r\n> ";
  modem.fault(prompt);
  modemsim::Fault slow;
  slow.command = "AT+SLOW";
  slow.silent = true;
  modem.fault(slow);
  modemsim::Answer late_and_own;
  late_and_own.command = "AT+CSQ";
  late_and_own.lines = {"+SLOW: 1", "OK", "+CSQ: 30,99", "OK"};
  modem.answer(late_and_own);
  const std::string at = BRIOCTL " --root " + root.dir() + " at ";
  check(("printf 'AT+COPS=3,2\\r\\n\\nAT+COPS?\\nAT+NO\\n^' | " + at).c_str(),
        {{"", 1, {"^OK\n\\+COPS: 0,2,\"310410\",7\nOK\nERROR\nOK\n$"}}});
  const auto answer = nlohmann::json::parse(run(at + "--json AT+COPS? | head -n 1").text);
  EXPECT_TRUE(answer["ok"] == true && answer["lines"][0] == "+COPS: 0,2,\"310410\",7" &&
              answer["result"] == "OK")
      << answer;
  // An answer that nobody waited for is not the next command's, whichever program sends that.
  const std::string late = at + "--timeout 1 AT+SLOW; " BRIOCTL " --query-port " + root.path("/dev/ttyACM2");
  check(late.c_str(), {{"at AT+CSQ", 0, {"SLOW: 1\n[^]*an earlier command; [^]*\n\\+CSQ: 30,99\nOK\n$"}}});
  // The modem asks for a text, which ends with Ctrl-Z and without a line end.
  check(("printf 'AT+CMGS=5\\nhello\\032\\nAT' | " + at).c_str(),
        {{"-v --timeout 1",
          1,
          {"<-- > \n[^]*--> hello.x1a\n[^]*did not answer[^]*after AT.CMGS=5 were not sent"}}});
  EXPECT_EQ((std::vector<std::string>{"AT+COPS=3,2", "AT+COPS?", "AT+NO", "^", "AT+COPS?", "AT+SLOW",
                                      "AT+CSQ", "AT+CMGS=5"}),
            modem.commands());
  modem.unplug();
  modem.clear_commands();
  ASSERT_TRUE(modem.plug());
  // At a terminal: a completed word, an identity, and what the history has then.
  if (EDITS == 0) return;
  const Outcome typed =
      run("printf 'at+gtb\\t?\\nAT+CIMI=310410123456789\\n\\020\\nquit\\n' | XDG_STATE_HOME=" + root.dir() +
          " TERM=dumb timeout 600 script -qec '" + at + "' /dev/null");
  EXPECT_NE(std::string::npos, typed.text.find("+GTBARS: 0,7,4,60,30")) << typed.text;
  EXPECT_EQ((std::vector<std::string>{"AT+GTBARS?", "AT+CIMI=310410123456789", "AT+GTBARS?"}),
            modem.commands())
      << typed.text;
  const Outcome owed = run("printf 'AT+SLOW\nAT+CSQ\nquit\n' | TERM=dumb timeout 600 script -qec '" + at +
                           "--timeout 2' /dev/null | tr -d '\r'");
  EXPECT_TRUE(std::regex_search(owed.text, std::regex("answer to AT.SLOW;[^]*\n.CSQ: 30,99\nOK\n")))
      << owed.text;
  const std::string history = "/brioctl/at_history";
  EXPECT_EQ("AT+GTBARS?\nAT+GTBARS?\n", root.read(history));
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(root.path(history)).permissions());
}

// Every verb's objects have the members of docs/json.md, of these types, and no others.
TEST(Brioctl, PrintsTheDocumentedJson) {
  modemsim::DeviceRoot home;
  std::map<std::string, std::string> known;  // "verb member": types
  std::ifstream table(DOCS "/json.md");
  std::smatch row;
  for (std::string line; std::getline(table, line);) {
    if (!std::regex_search(line, row, std::regex("^\\| ([a-z, ]+) \\| `([^`]+)` \\| ([a-z, ]+) \\|")))
      continue;
    std::stringstream verbs(row[1]);
    for (std::string verb; std::getline(verbs >> std::ws, verb, ',');)
      known[verb + " " + row[2].str()] = row[3];
  }
  const std::string folder = home.path("/case");
  std::string tried;
  for (const std::string& words : std::vector<std::string>{
           "demo --seconds 0.2", "status", "at AT+NOSUCH", "ports", "auto", "scan --select 3", "page",
           "ant 2", "trace --seconds 1", "record " + folder + " --seconds 1", "import " + folder, "doctor",
           "report " + home.path("/r.tar.gz"), "watch --seconds 1"}) {
    const std::string verb = words.substr(0, words.find(' '));
    tried += verb + "\n";
    std::stringstream lines(run(BRIOCTL " --sim --json " + words).text);
    nlohmann::json last;
    for (std::string line; std::getline(lines, line);) {
      last = nlohmann::json::parse(line, nullptr, false);
      ASSERT_TRUE(last.is_object()) << words << ": " << line;
      const nlohmann::json members = last.flatten();
      for (const auto& [pointer, value] : members.items()) {
        if (last[nlohmann::json::json_pointer(pointer)].is_array()) continue;  // an empty one
        std::string member = std::regex_replace(pointer.substr(1), std::regex("/[0-9]+(?=/|$)"), "[]");
        member = std::regex_replace(std::regex_replace(member, std::regex("(wabs|brio)_\\w+"), "*"),
                                    std::regex("/"), ".");
        const std::string types =
            known.count(verb + " " + member) > 0 ? known[verb + " " + member] : known["all " + member];
        const std::string type = value.is_string() ? "text" : value.type_name();
        EXPECT_NE(std::string::npos, types.find(type)) << words << " prints " << type << " " << member;
      }
    }
    EXPECT_TRUE(last.contains("exit") && last["verb"] == verb) << words << ": " << last;
  }
  // None was left out.
  const std::string verbs = "sort | tr '\\n' ' '";
  EXPECT_EQ(run("printf '" + tried + "' | " + verbs).text,
            run(BRIOCTL " --help | sed -n '/^Subcommands/,/^$/s/^  \\([a-z]*\\) .*/\\1/p' | " + verbs).text);
}

// Of a modem that another program has, of one without a SIM, and of none. The report needs no modem.
TEST(Brioctl, ExaminesAndReports) {
  modemsim::DeviceRoot root, empty;
  modemsim::State state;
  state.clock = "80/01/06,00:00:00+00";
  modemsim::Modem modem(state);
  ASSERT_TRUE(modem.start(root.dir()));
  root.write("/no-sim.toml", "[state]\ncard_status = 2\n");
  root.write("/denied.toml", "[state]\nstat = 3\nreject_cause = 11\n");
  const std::string planted = root.path("/var/local/wan/mcc"), file = empty.path("/a;touch b.tar.gz");
  ASSERT_EQ(0, symlink("/etc/passwd", planted.c_str()));
  const int port = open(root.path("/dev/ttyACM3").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  const std::string here = "--root " + root.dir(), report = " report '" + file + "'";
  const std::string pack = "--root " + empty.dir() + report,
                    unpacked = "tar -xzOf '" + file + "' >" + empty.path("/all");
  check(BRIOCTL,
        {{"--sim doctor", 0, {"ok +SIM +ready, IMSI 310410\\*{9}\n", "\nNothing is wrong"}},
         {(here + " doctor").c_str(),
          1,
          {"wrong +holders .*\\(pid [0-9]+\\) has ", "not judged +SIM", "wrong +file .*/mcc is a link"}},
         {(here + " --force doctor").c_str(), 1, {"ok +SIM", "note +clock", "ok +host module"}},
         {("--scenario " + root.path("/no-sim.toml doctor")).c_str(),
          1,
          {"wrong +SIM +there is none. Put one in", "note .*/proc/net/dev: none"}},
         {("--scenario " + root.path("/denied.toml doctor")).c_str(),
          1,
          {"denied .cause 11: this SIM may not"}},
         {pack.c_str(), 0, {"wrong +query port .*no such port"}},
         {pack.c_str(), 1, {"exists; --force replaces it"}},
         {("--sim --force" + report).c_str(), 0, {"are masked"}},
         {("--sim report " + empty.path("/none/r.tar.gz")).c_str(), 1, {"cannot be made"}}});
  close(port);
  modem.update([](modemsim::State& now) { now.clock = "24/01/06,00:00:00+00"; });
  check(BRIOCTL, {{(here + " doctor").c_str(), 1, {"wrong +clock .*, [0-9]+ days ahead of"}}});
  ASSERT_EQ(0, run(unpacked).status);
  const std::string all = empty.read("/all").value_or("");
  for (const char* held : {"AT+GTMODINFO?", "2.2  Library Version",
                           "AT_err_string|atcmd request:", "Nothing is wrong", "brioctl   "}) {
    EXPECT_TRUE(std::regex_search(all, std::regex(std::regex_replace(held, std::regex("[+?.]"), "\\$&"))))
        << held;
  }
  for (const char* identity : {"310410123", "890141032", "356938035"})
    EXPECT_EQ(std::string::npos, all.find(identity));
  EXPECT_EQ("a;touch b.tar.gz\nall\n",
            run("cd " + empty.dir() + "; find . -maxdepth 1 -type f | sed 's,./,,' | sort").text);
}

// check() finds no control character; other text stays readable.
TEST(Brioctl, EscapesWhatTheModemSays) {
  modemsim::DeviceRoot root;
  root.write("/hostile.toml", R"(
[state]
firmware = "\u001b[2J\u009b caf\u00e9"
[[operator]]
stat = 2
numeric = "310410"
long_name = "Caf\u00e9 \u001b[2J\u009b"
[[fault]]
command = "AT+LIST"
reply = "\r\n+LIST: \u001b[2J\u007f\u009b caf\u00e9\r\n\r\nOK\r\n"
[[fault]]
command = "AT+EVIL"
reply = "\r\n+CME ERROR: \u001b]0;\u0007\r\n"
[[at]]
t = 0
storm = { urc = "+GTBARS: \u001b[2J", count = 600, every = 0.1 }
)");
  const std::string program = BRIOCTL " --scenario " + root.path("/hostile.toml");
  constexpr char kEscaped[] = "\\\\x1b\\[2J\\\\xc2\\\\x9b";
  check(program.c_str(), {{"status", 0, {kEscaped, " caf\xc3\xa9"}},
                          {"status --json", 0, {"\\\\u001b\\[2J\\\\u009b caf"}},
                          {"page", 0, {kEscaped, "\n2\\.2"}},
                          {"scan", 0, {"E-UTRAN +Caf\xc3\xa9 ", kEscaped}},
                          {"at AT+LIST", 0, {"^\\+LIST: \\\\x1b\\[2J\\\\x7f\\\\xc2\\\\x9b caf\xc3\xa9\nOK"}},
                          {"-v at AT+EVIL", 1, {"\n\\+CME ERROR: \\\\x1b\\]0;\\\\x07\n"}},
                          {"watch --seconds 20 | grep -m 1 +GTBARS", 0, {"report  \\+GTBARS: "}}});
}

TEST(Brioctl, NamesTheCause) {
  modemsim::DeviceRoot root, empty;
  modemsim::State state;
  state.operators = {{2, "Home", "", "310410"}, {1, "Coast", "", "310260"}};
  modemsim::Modem modem(state);
  ASSERT_TRUE(modem.start(root.dir()));
  const int port = open(root.path("/dev/ttyACM3").c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_LE(0, port);
  root.write("/refuses.toml", "[[answer]]\ncommand = 'AT+GTMODINFO?'\nlines = ['+CME ERROR: 10']\n");
  root.write(
      "/away.toml",
      "[state]\nimsi = '310012123456789'\n[[answer]]\ncommand = 'AT+COPS?'\nlines = ['+COPS: 2', 'OK']\n");
  root.write("/gone.toml", "[[fault]]\ncommand = 'AT+CIMI'\nunplug = true\n");
  root.write("/pulled.toml", "[[at]]\nt = 2\nunplug = true\n");
  root.write("/none.toml", "title = 'no network'\n");
  root.write("/forbidden.toml", "[[operator]]\nstat = 3\nnumeric = '310260'\n");
  ASSERT_EQ(0, symlink("/", root.path("/mnt/out").c_str()));
  root.write("/zeros.toml", "[state]\nimsi = '310000123456789'\n");
  root.write("/dev/ttyACM4.tapped", "");
  root.write("/silent.toml", "[[answer]]\ncommand = 'AT+CFUN=1'\nlines = []\n");
  const std::string holder = "ttyACM3 is held by .* \\(pid " + std::to_string(getpid()) + "\\)";
  const std::string here = "--root " + root.dir(), scenario = "--scenario " + root.path("/");
  check(
      BRIOCTL,
      {{(here + " status").c_str(), 1, {holder.c_str()}},
       {(here + " ports").c_str(), 0, {"ttyACM2 +query", "ttyACM3 +URC .*\\(pid [0-9]+\\)\n$"}},
       {(here + " --trace-port " + root.path("/dev/ttyACM3") + " trace").c_str(), 1, {holder.c_str()}},
       {(here + " --force status").c_str(), 0, {"wabs_get_bars +0 ok"}},
       {("--root " + empty.dir() + " status").c_str(),
        1,
        {"ttyACM2, the modem's query port: there is no such port"}},
       {(scenario + "refuses.toml status").c_str(),
        1,
        {"refused AT\\+GTMODINFO\\?: \\+CME ERROR: 10 \\(SIM not inserted\\)", "--> AT\\+GTMODINFO\\?\n"}},
       {(scenario + "away.toml status").c_str(),
        0,
        {"off the network", "wabs_get_hplmn_mcc_mnc +0 ok +310-01 +home; by MCC 310-012\n"}},
       {(scenario + "gone.toml status").c_str(), 1, {"^brioctl: The modem went away\\.\n$"}},
       {(scenario + "gone.toml doctor").c_str(),
        1,
        {"wrong +opening +the modem went away", "not judged +SIM"}},
       {(scenario + "pulled.toml page --follow").c_str(), 1, {"brioctl: The modem went away\\.\n$"}},
       {(scenario + "pulled.toml trace").c_str(), 1, {"brioctl: The modem went away\\.\n$"}},
       {(scenario + "none.toml scan").c_str(), 1, {"^brioctl: No network found\\.\n$"}},
       {(scenario + "forbidden.toml scan").c_str(), 1, {"all in the list are forbidden"}},
       {("--root " + empty.dir() + " watch --seconds 1").c_str(),
        1,
        {"modem +not open: waiting for .*ttyACM2"}},
       {(here + " trace --seconds 1 --prefix /no/x").c_str(), 1, {"There is no folder .*/no for"}},
       {(here + " trace --seconds 1 --prefix /mnt/out/x").c_str(), 1, {"is a link to /, which is not below"}},
       {(scenario + "away.toml status --json").c_str(), 0, {"\"notes\":\\[\"The modem was told"}},
       {(scenario + "zeros.toml status").c_str(), 0, {"wabs_get_hplmn_mcc_mnc +0 ok +310-00 "}},
       {(here + " --force scan --select 310260").c_str(), 0, {"Selected 310-260 \\(Coast"}},
       {(here + " --force at AT+COPS?").c_str(), 0, {"\\+COPS: 1,2,\"310260\""}},
       {(here + " --force auto").c_str(), 0, {"Automatic"}},
       {(here + " --force at AT+COPS?").c_str(), 0, {"\\+COPS: 0,2,"}}});
  close(port);
  // What a program that died has left behind.
  modem.update([](modemsim::State& now) { now.scan_time = modemsim::Milliseconds(600000); });
  modem.tell("AT+COPS=?");
  check(BRIOCTL, {{(here + " status").c_str(), 1, {"a program died while it scanned.*brioctl auto"}},
                  {(here + " auto").c_str(), 0, {"aborting a scan", "Automatic"}}});
  // A signal ends a wait of 20 seconds, at once: the library's threads end with the process.
  const std::string log = root.path("/at.log");
  const Outcome ended =
      run("export TSAN_OPTIONS=$TSAN_OPTIONS:report_thread_leaks=0; bash -mc '" BRIOCTL " --at-log " + log +
          " " + scenario + "silent.toml status & p=$!; until grep -q ATE0 " + log +
          "; do sleep 0.05; done; "
          "kill -INT $p; (sleep 15; kill -KILL $p) >/dev/null 2>&1 & wait $p; echo status $?; kill -- -$!'");
  EXPECT_NE(std::string::npos, ended.text.find("interrupted.\nstatus 130\n")) << ended.text;
}

// What is read of the modem is written, to the end, whoever else does not read.
TEST(Brioctl, HoldsNobodyAndLosesNothingSilently) {
  modemsim::DeviceRoot root;
  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(root.dir()));
  const std::string full = "cd " + root.dir() + "; mkfifo full; exec 3<>full; head -c 65536 /dev/zero >&3; ",
                    tap = BRIOCTL " --root " + root.dir() + " record --tap case --seconds 60";
  const Outcome shown = run(full + "timeout -s KILL 30 " BRIOCTL
                                   " --sim -v --at-log log status >out 2>&3 & p=$!; "
                                   "while kill -0 $p 2>/dev/null && ! grep -q 'wabs_get_log\\|wabs_close' "
                                   "log 2>/dev/null; do sleep 0.02; done; "
                                   "cat full >/dev/null & wait $p; echo status $?; kill $!");
  EXPECT_NE(std::string::npos, shown.text.find("status 0\n")) << shown.text;
  run("cd " + root.dir() + "; " + tap +
      " >said 2>&1 & echo $! >pid; until grep -q Ctrl-C said; do sleep 0.02; done");
  const std::string said = root.read("/said").value_or("");
  std::smatch device;
  ASSERT_TRUE(std::regex_search(said, device, std::regex("URC port   (\\S+)\n"))) << said;
  const int port = open(device[1].str().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_LE(0, port);
  constexpr int kLines = 24000;
  const std::chrono::milliseconds patience{300000};
  std::string reports;
  for (int i = 1; i <= kLines; i++)
    reports += "+REPORT: a line of some fifty characters " + std::to_string(i) + "\r\n";
  modem.raw(modemsim::Port::kUrc, reports);
  EXPECT_TRUE(modem.wait_written(patience));
  // It ends while reports wait in the port.
  const std::string tap_pid = "cd " + root.dir() + "; kill -";
  run("cd " + root.dir() + "; until grep -q 'characters " + std::to_string(kLines) +
      "$' case/at.log; do sleep 0.02; done");
  run(tap_pid + "STOP $(cat pid)");
  modem.raw(modemsim::Port::kUrc, reports.substr(reports.size() - 7000) + "+LAST: 1\r\n");
  EXPECT_TRUE(modem.wait_written(patience));
  run(tap_pid + "TERM $(cat pid); kill -CONT $(cat pid); until grep -q 'lines in' said; do sleep 0.02; done");
  close(port);
  const std::string log = root.read("/case/at.log").value_or("");
  EXPECT_NE(std::string::npos, log.find("+LAST: 1\n"));
  EXPECT_TRUE(std::regex_search(log.substr(log.find("\n# ")),
                                std::regex("# [0-9]+ bytes of the modem did not reach the host")));
}

// Its own, not a newer file beside it.
TEST(Brioctl, ShowsTheTraceThatItMade) {
  modemsim::DeviceRoot root;
  modemsim::Modem modem;
  ASSERT_TRUE(modem.start(root.dir()));
  root.write("/var/local/wan/debug/trace_filter.cfg", "AT+TRACE=1\n");
  const std::string planted = "/mnt/us/trace_log_9\x1b[2J";
  root.write(planted, "planted");
  std::filesystem::last_write_time(root.path(planted),
                                   std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
  const std::string program = BRIOCTL " --root " + root.dir();
  check(program.c_str(), {{"trace --seconds 1", 0, {"/mnt/us/trace_log(_[0-9]+){6}\\.istp: [0-9]+ bytes"}}});
}

}  // namespace
