// The simulated modem by itself: a plain serial client on its ports, without the library.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <modemsim/modem.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using modemsim::Fault;
using modemsim::Milliseconds;
using modemsim::Modem;
using modemsim::Operator;
using modemsim::Port;
using modemsim::State;

class Folder {
 public:
  Folder() {
    char name[] = "/tmp/modemsim_test_XXXXXX";
    path_ = mkdtemp(name);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// One end of a serial line, as a host has it.
class Client {
 public:
  Client(const std::string& root, const char* device)
      : fd_(open((root + "/dev/" + device).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {}
  ~Client() {
    if (fd_ >= 0) close(fd_);
  }
  int fd() const { return fd_; }

  // Reads until `end` was seen (all of it kept in `text`), a hang-up or the patience's end.
  bool read_until(const std::string& end, std::string& text, int patience_ms = 10000) {
    const auto deadline = std::chrono::steady_clock::now() + Milliseconds(patience_ms);
    while (text.find(end) == std::string::npos) {
      const auto left = std::chrono::duration_cast<Milliseconds>(deadline - std::chrono::steady_clock::now());
      pollfd item{fd_, POLLIN, 0};
      if (left.count() <= 0 || poll(&item, 1, static_cast<int>(left.count())) <= 0) return false;
      char buffer[4096];
      const ssize_t size = read(fd_, buffer, sizeof buffer);
      if (size <= 0) {
        hung_up_ = true;
        return false;
      }
      reads_++;
      text.append(buffer, static_cast<size_t>(size));
    }
    return true;
  }

  void send(const std::string& command) {
    const std::string line = command + "\r";
    ASSERT_EQ(write(fd_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }

  // The answer to a command up to its final line, with every CR LF shown as "|" and empty lines left out.
  std::string ask(const std::string& command) {
    send(command);
    std::string text;
    const char* const finals[] = {"\r\nOK\r\n", "ERROR"};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      if (text.find(finals[0]) != std::string::npos) break;
      const size_t error = text.find(finals[1]);
      if (error != std::string::npos && text.find("\r\n", error) != std::string::npos) break;
      std::string more;
      read_until("\n", more, 100);
      text += more;
      if (hung_up_) return "hang-up";
    }
    return lines(text);
  }

  static std::string lines(const std::string& text) {
    std::string result;
    for (const char c : text) {
      if (c == '\r' || c == '\n') {
        if (!result.empty() && result.back() != '|') result += '|';
      } else {
        result += c;
      }
    }
    while (!result.empty() && result.back() == '|') result.pop_back();
    return result;
  }

  bool hung_up() const { return hung_up_; }
  int reads() const { return reads_; }

 private:
  int fd_;
  int reads_ = 0;
  bool hung_up_ = false;
};

State two_operators() {
  State state;
  Operator home;
  home.stat = 2;
  home.long_name = "Home, Inc.";
  home.short_name = "Home";
  home.numeric = "310410";
  Operator other;
  other.long_name = "Other";
  other.short_name = "Oth";
  other.numeric = "31026";
  other.rat = 2;
  other.lac = 0x77;
  Operator closed = other;
  closed.stat = 3;
  closed.numeric = "311480";
  state.operators = {home, other, closed};
  return state;
}

TEST(ModemSim, AnswersEveryCommand) {
  const Folder root;
  Modem modem(two_operators());
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  Client query(root.path(), "ttyACM2");
  const struct {
    const char* command;
    const char* answer;
  } cases[] = {
      {"AT", "AT|OK"},  // echo is on at first
      {"ATE0", "ATE0|OK"},
      {"AT", "OK"},
      {"AT+CFUN=1", "OK"},
      {"AT+CFUN?", "+CFUN: 1|OK"},
      {"AT+CFUN=7", "ERROR"},
      {"AT+COPS?", "+COPS: 0,0,\"Home, Inc.\",7|OK"},
      {"AT+COPS=3,2", "OK"},
      {"AT+COPS?", "+COPS: 0,2,\"310410\",7|OK"},
      {"AT+COPS=?",
       "+COPS: (2,\"Home, Inc.\",\"Home\",\"310410\",7),(1,\"Other\",\"Oth\",\"31026\",2),"
       "(3,\"Other\",\"Oth\",\"311480\",2),,(0-4),(0-2)|OK"},
      {"AT+CREG?", "+CREG: 0,1|OK"},
      {"AT+CREG=2", "OK"},
      {"AT+CREG?", "+CREG: 2,1,\"1A2B\",\"01C2D3E4\",7|OK"},
      {"AT+CREG=99", "OK"},
      {"AT+CREG?", "+CREG: 99,1,\"1A2B\",\"01C2D3E4\",7,104|OK"},
      {"AT+CREG=3", "ERROR"},
      {"AT+CGREG=1", "OK"},
      {"AT+CGREG?", "+CGREG: 1,1|OK"},
      {"AT+CTZR=1", "OK"},
      {"AT+GTOTAREJECT=1", "OK"},
      {"AT+GTBARS?", "+GTBARS: 0,7,4,60,30|OK"},
      {"AT+GTBARS=1", "OK"},
      {"at+gtbars?", "+GTBARS: 1,7,4,60,30|OK"},
      {"AT@GTICOM:SIO_PSVCTRL(0)", "OK"},
      {"AT@EPHY:EPHY_BAS_STATUS(2)", "+BAS: 320,288,0|EPHY: BAS status|OK"},
      {"AT@EPHY:EPHY_BAS_SET(1)", "OK"},
      {"AT@EPHY:EPHY_BAS_STATUS(1)", "+BAS: 320,288,1|EPHY: BAS status|OK"},
      {"AT@EPHY:EPHY_BAS_SET(3)", "ERROR"},
      {"AT+CRSM=176,12258,0,0,0", "+CRSM: 144,0,\"98101430121181157002\"|OK"},
      {"AT+CRSM=176,28542,0,0,11", "+CRSM: 144,0,\"C0FFEE011300142F010000\"|OK"},
      {"AT+CRSM=176,28542,0,4,5", "+CRSM: 144,0,\"1300142F01\"|OK"},
      {"AT+CRSM=176,28999,0,0,0", "+CRSM: 106,130,\"\"|OK"},
      {"AT+CCID", "+CCID: 89014103211118510720|OK"},
      {"AT+CIMI", "+CIMI: 310410123456789|OK"},
      {"AT+GTSIMSTATUS?", "+GTSIMSTATUS: 3,0|OK"},
      {"AT+GTFDCAR?", "+GTFDCAR: 201|OK"},
      {"at+gtfdcar=216", "OK"},
      {"AT+GTFDCAR?", "+GTFDCAR: 216|OK"},
      {"AT+CGDCONT=1,\"IP\",\"my,apn\",\"\",0,0", "OK"},
      {"AT+CGDCONT?", "+CGDCONT: 1,\"IP\",\"my,apn\",\"\",0,0|OK"},
      {"AT+CGDCONT=1,\"IP\",\"cut off", "ERROR"},
      {"AT+CGMM", "+CGMM: L816|OK"},
      {"AT+GTMODINFO?",
       "+GTMODINFO: \"L816_18000.1000.00.24.01.01\",\"356938035643809\",\"SN1234567890\",\"V1.0.1\",0|OK"},
      {"AT+BODYSARON=1", "OK"},
      {"AT+GTSCINFO?", "+GTSCINFO: 1,8,1,310410,0,0,LTE_BAND_4,0x2F01,0x01,0x1694,0x01C2D3E4|OK"},
      {"AT+GTLTEINFO?", "+GTLTEINFO: 3,1,1,310,410,2F01,01C2D3E4|OK"},
      {"AT+GTSCSTAT?", "+GTSCSTAT: 1,13,1,3,7,1|OK"},
      {"AT+CCLK?", "+CCLK: \"26/03/07,09:05:00-28\"|OK"},
      {"AT+CMGD=1,4", "OK"},
      {"AT*FAKECFG=1", "OK"},
      {"AT*MRUCLEAR", "OK"},
      {"AT+XSYSTRACE=1,\"x\"", "OK"},
      {"AT+TRACE=0", "OK"},
      {"^", "OK"},
      {"AT+NOSUCH", "ERROR"},
      {"RUBBISH", "ERROR"},
  };
  for (const auto& item : cases) EXPECT_EQ(query.ask(item.command), item.answer) << item.command;
  EXPECT_EQ(modem.commands().size(), std::size(cases));

  modem.with_state([](State& state) { state.card_status = 2; });
  EXPECT_EQ(query.ask("AT+CIMI"), "+CME ERROR: 10");
  modem.with_state([](State& state) { state.card_status = 1; });
  EXPECT_EQ(query.ask("AT+CCID"), "+CME ERROR: 14");
}

TEST(ModemSim, RegistrationFollowsSelectionAndRadio) {
  const Folder root;
  Modem modem(two_operators());
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  Client query(root.path(), "ttyACM2");
  Client urc(root.path(), "ttyACM3");
  for (const char* command : {"ATE0", "AT+COPS=3,2", "AT+CREG=2", "AT+CGREG=1"}) query.ask(command);

  const struct {
    const char* command;
    const char* answer;
    const char* reports;
    const char* operator_now;
  } steps[] = {
      {"AT+COPS=2", "OK", "+CREG: 0|+CGREG: 0", "+COPS: 2|OK"},
      {"AT+COPS=1,2,\"31026\"", "OK", "+CREG: 5,\"0077\",\"01C2D3E4\",2|+CGREG: 5",
       "+COPS: 1,2,\"31026\",2|OK"},
      {"AT+COPS=1,2,\"99999\"", "+CME ERROR: 30", "", "+COPS: 1,2,\"31026\",2|OK"},
      {"AT+COPS=1,2,\"311480\"", "+CME ERROR: 32", "", "+COPS: 1,2,\"31026\",2|OK"},
      {"AT+COPS=0", "OK", "+CREG: 1,\"1A2B\",\"01C2D3E4\",7|+CGREG: 1", "+COPS: 0,2,\"310410\",7|OK"},
      {"AT+COPS=0", "OK", "", "+COPS: 0,2,\"310410\",7|OK"},
      {"AT+CFUN=0", "OK", "+CREG: 0|+CGREG: 0", "+COPS: 0|OK"},
      {"AT+COPS=?", "+CME ERROR: 3", "", "+COPS: 0|OK"},
      {"AT+CFUN=1", "OK", "+CREG: 1,\"1A2B\",\"01C2D3E4\",7|+CGREG: 1", "+COPS: 0,2,\"310410\",7|OK"},
  };
  for (const auto& step : steps) {
    EXPECT_EQ(query.ask(step.command), step.answer) << step.command;
    modem.raw(Port::kUrc, "\r\n=\r\n");
    std::string reports;
    ASSERT_TRUE(urc.read_until("=\r\n", reports));
    reports = Client::lines(reports);
    EXPECT_EQ(
        reports,
        (step.reports[0] != '\0' ? std::string("|") + step.reports + "|=" : "|=").substr(reports[0] != '|'))
        << step.command;
    EXPECT_EQ(query.ask("AT+COPS?"), step.operator_now) << step.command;
  }

  // Values changed from outside are reported as far as reports are switched on; a silent change reports
  // nothing.
  query.ask("AT+GTBARS=1");
  modem.with_state([](State& state) { state.bars = 3; });
  modem.update([](State& state) {
    state.bars = 1;
    state.cs_stat = state.ps_stat = 3;
    state.cs_reject_cause = 11;
  });
  std::string reports;
  ASSERT_TRUE(urc.read_until("+GTBARS: 7,1,60,30\r\n", reports));
  EXPECT_EQ(Client::lines(reports),
            "+CREG: 3,\"1A2B\",\"01C2D3E4\",7,\"0\",\"11\"|+CGREG: 3|+GTBARS: 7,1,60,30");
}

TEST(ModemSim, FaultsChangeOneAnswerAfterTheOther) {
  const Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  modem.with_state([](State& state) { state.echo = false; });
  Client query(root.path(), "ttyACM2");

  Fault replaced;
  replaced.command = "AT+CFUN";
  replaced.replace = true;
  replaced.reply = "\r\nNO CARRIER\r\n\r\nOK\r\n";
  replaced.times = 1;
  modem.fault(replaced);
  Fault later;
  later.command = "AT+CFUN=0";
  later.skip = 1;
  later.times = 1;
  later.before = "junk\r\n";
  later.after = "\r\nmore\r\n";
  modem.fault(later);
  EXPECT_EQ(query.ask("AT+CFUN=0"), "NO CARRIER|OK");
  EXPECT_EQ(modem.state().radio, 1) << "a replaced answer has no effect";
  EXPECT_EQ(query.ask("AT+CFUN=0"), "junk|OK|more");
  EXPECT_EQ(query.ask("AT+CFUN=0"), "OK");

  Fault joined;
  joined.command = "AT+GTBARS?";
  joined.joined = true;
  joined.times = 1;
  modem.fault(joined);
  query.send("AT+GTBARS?");
  std::string text;
  ASSERT_TRUE(query.read_until("OK\r\n", text));
  EXPECT_EQ(text, "+GTBARS: 0,7,0,0,0\r\nOK\r\n");

  // A silent command answers nothing; a late one keeps the next ones waiting, so that answers stay in order.
  Fault silent;
  silent.command = "AT+CIMI";
  silent.silent = true;
  modem.fault(silent);
  Fault late;
  late.command = "AT+CCID";
  late.delay = Milliseconds(50);
  modem.fault(late);
  const auto start = std::chrono::steady_clock::now();
  query.send("AT+CIMI");
  query.send("AT+CCID");
  text.clear();
  EXPECT_EQ(query.ask("AT+CGMM"), "+CCID: 89014103211118510720|OK|+CGMM: L816|OK");
  EXPECT_GE(std::chrono::steady_clock::now() - start, Milliseconds(50));
  modem.clear_faults();
  EXPECT_EQ(query.ask("AT+CIMI"), "+CIMI: 310410123456789|OK");
}

TEST(ModemSim, ScanTakesItsTimeAndIsAborted) {
  const Folder root;
  State state = two_operators();
  state.echo = false;
  state.scan_time = std::chrono::hours(1);
  Modem modem(state);
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  Client query(root.path(), "ttyACM2");
  query.send("AT+COPS=?");
  ASSERT_TRUE(modem.wait_command("AT+COPS=?"));
  EXPECT_EQ(query.ask("^"), "OK");
  EXPECT_EQ(query.ask("AT+CGMM"), "+CGMM: L816|OK");
}

TEST(ModemSim, PiecesArriveOneByOne) {
  const Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  modem.with_state([](State& state) { state.echo = false; });
  Client query(root.path(), "ttyACM2");
  for (const size_t size : {size_t{1}, size_t{7}, size_t{0}}) {
    modem.chunk(size);
    const int before = query.reads();
    query.send("AT+GTBARS?");
    std::string text;
    ASSERT_TRUE(query.read_until("OK\r\n", text));
    EXPECT_EQ(text, "\r\n+GTBARS: 0,7,4,60,30\r\n\r\nOK\r\n");
    // On a machine under load the reader may miss its turn and get two pieces at once.
    const size_t pieces = size == 0 ? 1 : (text.size() + size - 1) / size;
    EXPECT_LE(static_cast<size_t>(query.reads() - before), pieces) << "pieces of " << size;
    EXPECT_GE(static_cast<size_t>(query.reads() - before), (pieces + 1) / 2) << "pieces of " << size;
  }
}

TEST(ModemSim, NobodyListensOrReads) {
  const Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  modem.urc("+LOST: 1");
  {
    Client urc(root.path(), "ttyACM3");
    // A reader that takes nothing: everything beyond the limit is dropped, the simulator goes on.
    for (int i = 0; i < 400; i++) modem.raw(Port::kUrc, std::string(100000, 'x'));
    Client query(root.path(), "ttyACM2");
    EXPECT_EQ(query.ask("AT+CGMM"), "AT+CGMM|+CGMM: L816|OK");
  }
  ASSERT_TRUE(modem.wait_open(Port::kUrc, false));
  Client urc(root.path(), "ttyACM3");
  modem.urc("+NEXT: 1");
  std::string text;
  ASSERT_TRUE(urc.read_until("+NEXT: 1\r\n", text));
  EXPECT_EQ(text, "\r\n+NEXT: 1\r\n");
}

TEST(ModemSim, UnpluggingHangsUpAndPluggingBootsAgain) {
  const Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  for (int round = 0; round < 3; round++) {
    Client query(root.path(), "ttyACM2");
    Client urc(root.path(), "ttyACM3");
    ASSERT_GE(query.fd(), 0);
    EXPECT_EQ(query.ask("ATE0"), "ATE0|OK");
    if (round == 1) {
      Fault fault;
      fault.command = "AT+CIMI";
      fault.unplug = true;
      fault.times = 1;
      modem.fault(fault);
      EXPECT_EQ(query.ask("AT+CIMI"), "hang-up");
    } else {
      modem.unplug();
    }
    std::string text;
    EXPECT_FALSE(query.read_until("x", text));
    EXPECT_TRUE(query.hung_up());
    EXPECT_FALSE(urc.read_until("x", text));
    EXPECT_TRUE(urc.hung_up());
    EXPECT_LT(Client(root.path(), "ttyACM2").fd(), 0) << "the device is still there";
    ASSERT_TRUE(modem.plug());
    EXPECT_TRUE(modem.plug()) << "plugging twice";
  }
  modem.stop();
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(root.path() + "/dev/ttyACM2")));
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  modem.stop();
  std::ofstream(root.path() + "/dev/ttyACM1") << "a file";
  EXPECT_FALSE(modem.start(root.path()));
  EXPECT_NE(modem.error().find("is in the way"), std::string::npos) << modem.error();
}

TEST(ModemSim, TraceStreamArrivesWhole) {
  const Folder root;
  Modem modem;
  ASSERT_TRUE(modem.start(root.path())) << modem.error();
  Client trace(root.path(), "ttyACM1");
  constexpr size_t kSize = 3000000;
  modem.stream_trace(kSize);
  std::string text;
  while (text.size() < kSize) {
    pollfd item{trace.fd(), POLLIN, 0};
    ASSERT_GT(poll(&item, 1, 10000), 0) << "stopped at " << text.size();
    char buffer[8192];
    const ssize_t size = read(trace.fd(), buffer, sizeof buffer);
    ASSERT_GT(size, 0);
    text.append(buffer, static_cast<size_t>(size));
  }
  ASSERT_EQ(text.size(), kSize);
  for (size_t i = 0; i < kSize; i++) {
    ASSERT_EQ(static_cast<unsigned char>(text[i]), Modem::trace_byte(i)) << i;
  }
}

}  // namespace
