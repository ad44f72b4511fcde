// A simulated day on a clock that only moves when it is told to: the host polls, pages are looked at,
// networks searched, the device sleeps, the modem reports, and every few minutes something is wrong. Every
// answer is held against what the modem knew at that moment.
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>

#include "base/clock.h"
#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "endurance.h"
#include "kit/clock.h"
#include "kit/log.h"
#include "kit/process.h"

namespace endurance {
namespace {

constexpr unsigned kPolls = 2880, kPollPeriod = 30, kBarsPeriod = 91;
constexpr char kNoise[] = "NOISE~";

class Day {
 public:
  explicit Day(Device& device) : device_(device), modem_(device.modem) {}

  void run() {
    test_clock::reset();
    test_clock::stop();
    test_clock::manual_select(true);
    log_capture::hand_to(nullptr);
    briolib_log_set_log_mask(BRIO_LOG_AT_DETAIL);
    open();
    ask("wabs_get_bars");  // good ones: the modem is told to report none; the zone of an earlier day is
                           // forgotten
    modem_.urc("+CTZV: -28,\"26/03/07,09:05:00\"");
    for (unsigned i = 0; i < kPolls; i++) {
      advance(kPollPeriod);
      happen();
      ask("wabs_get_bars");
      for (int more = 0; more < 3; more++) ask(any([](auto& each) { return each.who == kHost; }));
    }
    close();
    log_capture::take();
  }

 private:
  // Each by its number a day, in the mean.
  void happen() {
    static constexpr struct {
      unsigned per_day;
      void (Day::*happens)();
    } kRows[] = {{600, &Day::report},    {30, &Day::question}, {10, &Day::look},     {4, &Day::search},
                 {8, &Day::sleep},       {8, &Day::grip},      {8, &Day::trace},     {60, &Day::trouble},
                 {4, &Day::unplug},      {4, &Day::no_card},   {6, &Day::hard_open}, {4, &Day::full_disk},
                 {10, &Day::torn_report}};
    if (known_.cs == 0 && below(4) == 0) change(change_network);
    for (const auto& row : kRows)
      if (below(kPolls) < row.per_day) (this->*row.happens)();
  }

  void advance(unsigned seconds) {
    test_clock::advance(seconds);
    test_clock::set_wall(1800000000 + now());
  }
  static long now() {
    timespec time = {};
    brio::clock_monotonic(&time);
    return time.tv_sec;
  }
  static void expect(bool right, const std::string& what) {
    if (!right) complain(what);
  }

  // ---- Questions

  template <typename Condition>
  static const Operation& any(Condition condition) {
    const Operation* each = nullptr;
    while (each == nullptr || !condition(*each)) each = &one_of(kOperations);
    return *each;
  }

  void ask(const char* line) { ask(operation(line)); }
  void ask(const Operation& what, const Trouble* trouble = nullptr) {
    if (what.who == kAlone) call("wabs_get_current_network");  // for a scan to mark
    modem_.clear_commands();
    log_capture::clear();
    const State before = modem_.state();
    Answer answer = endurance::ask(what);
    g_tally.asked += 1;
    device_.settle();
    const auto commands = modem_.commands();
    const auto sent = [&](const char* command) {
      return std::find(commands.begin(), commands.end(), command) != commands.end();
    };
    known_.modem = what.who == kAlone ? before : modem_.state();
    learn(sent, what.line == "wabs_get_bars");
    if (answer.text == Known().plmn && !known_.serves()) answer.text = known_.plmn;
    const uint32_t allowed[] = {1, bits({what.refused}), bits({what.unheard}),
                                // Junk may spoil its answer, but never gives another.
                                bits({0, what.refused, what.unheard, BRIO_STATUS_INVALID}),
                                bits({what.refused})};
    judge(what, answer, trouble != nullptr ? allowed[trouble->effect] : 1, {known_},
          trouble != nullptr ? trouble->name : "");
    if (known_.serves() && what.line == "wabs_get_mcc_mnc") known_.plmn = answer.text;
    if (what.who != kAlone) return;
    call("wabs_set_auto_mode");  // brings the modem back
    device_.settle();
    known_.leave();
    known_.modem = modem_.state();
    known_.see();
  }

  // What the commands of an operation tell the library.
  template <typename Sent>
  void learn(Sent sent, bool bars) {
    const bool registered = known_.modem.cs_stat == 1 || known_.modem.cs_stat == 5, reported = is_low_;
    if (sent("AT+CREG?")) known_.see();
    if ((sent("AT+COPS?") && registered) || sent("AT+GTLTEINFO?")) known_.network = true;
    if (sent("AT+GTBARS=1")) is_low_ = true;
    if (sent("AT+GTBARS=0")) is_low_ = false;
    if (sent("AT+GTBARS?")) {
      known_.bars = known_.modem.bars;
      known_.bars_valid = true;
      polled_at_ = now();
    } else if (bars && known_.attached()) {
      // The modem reports low signal by itself. After a reopening it does not, and the library goes by the
      // last value on purpose.
      expect(known_.bars_valid, "bars were never asked for");
      expect(reported || now() - polled_at_ < kBarsPeriod, "bars are too old");
    }
  }

  // One answer that something is wrong with, then the same without.
  void trouble() {
    const Operation& what = any([](auto& each) { return each.command != nullptr; });
    const Trouble& trouble = one_of(kTroubles);
    begin(trouble, what.command);
    if (trouble.effect == kGone) device_.listen(false);
    ask(what, &trouble);
    end();
    if (trouble.effect == kGone) return recover();
    if (trouble.effect == kUnheard) modem_.raw(Port::kQuery, "\r\n+CCLK: \"late\"\r\n\r\nOK\r\n");
    throw_away();
    ask(what);
  }

  void begin(const Trouble& trouble, const char* command, unsigned skip = 0) {
    g_tally.troubles += 1;
    Fault fault;
    fault.command = command;
    fault.skip = static_cast<int>(skip);
    fault.times = 1;
    trouble.make(fault);
    modem_.fault(fault);
    if (below(3) == 0) modem_.chunk(1 + below(7));
    // What is left of an answer behind rubbish never completes: the request need not wait for that.
    log_capture::on_line("process_line:ERROR:cleaning up!", test_clock::expire_wait);
  }
  void end() {
    modem_.wait_written();
    modem_.chunk(0);
    modem_.clear_faults();
    log_capture::on_line("", nullptr);
  }

  // Noise on the query port while nobody waits: afterwards the library has thrown away all that was there.
  void throw_away() {
    Relaxed<bool> read;
    log_capture::on_line(kNoise, [&] { log_capture::clear(), read = true; });
    modem_.raw(Port::kQuery, std::string("\r\n") + kNoise + "\r\n");
    expect(
        process::eventually([&] { return bool(read); }) && log_capture::wait_for("NO_COMMAND:cleaning up!"),
        "noise on the query port was not thrown away");
    test_clock::keep_wait();
  }

  // ---- Life

  void open(uint32_t wanted = 0) {
    modem_.wait_open(Port::kQuery, false);
    test_clock::keep_wait();
    device_.listen(true);
    const uint32_t status = wabs_open();
    expect(status == wanted, "wabs_open: status " + std::to_string(status));
    if (status != 0) return device_.listen(false);
    g_tally.opens += 1;
    device_.settle();
    const std::string plmn = known_.plmn;
    known_ = Known();
    known_.plmn = plmn;
    known_.modem = modem_.state();
    known_.see();
    traced_ = 0;
  }

  void close() {
    device_.settle();
    device_.listen(false);
    expect(wabs_close() == 0, "wabs_close");
    device_.check_traces();
  }

  // A modem that has gone: requests fail, and opening anew mends that.
  void recover() {
    g_tally.unplugged += 1;
    device_.listen(false);
    expect(process::eventually([] { return briolib_check_library_status() == BRIO_STATUS_FATAL; }),
           "not lost");
    for (const char* name : {"wabs_get_bars", "wabs_get_roaming_status", "brio_get_bas_status"}) {
      expect(call(name).status != 0, std::string(name) + " of a lost modem");
    }
    close();
    open(WABS_STATUS_LIBRARY_FAILURE);  // it is still away
    expect(modem_.plug(), "the modem does not come back");
    open();
  }

  // ---- An ordinary day

  void change(void (*what)(Modem&)) {
    what(modem_);
    device_.settle();
    known_.modem = modem_.state();
    known_.see();
    if (known_.modem.bars_reports) known_.bars = known_.modem.bars;
  }
  void report() { change(change_something); }
  void question() {
    ask(any([](auto& each) { return each.who == kAnyone; }));
  }
  void look() {
    ask("wabs_get_bars");  // keeps the rest current
    call("wabs_exit_611_logging");
    expect(call("wabs_get_log_string 6144 1").text == "\"\"", "a page before the visit");
    std::string page;
    for (unsigned i = 1 + below(6); i > 0; i--) page = call("wabs_get_log_string 6144 1").text;
    if (modem_.state().rat == 7) known_.network = true;
    for (const std::string& part :
         {"Version:  " + known_.modem.firmware, "IMEI:  " + known_.modem.imei,
          "(" + std::to_string(known_.cs) + ") \\n3.2", "(" + std::to_string(known_.ps) + ") \\n4"})
      expect(page.find(part) != page.npos, "not on the page: " + part);
  }
  void search() { ask("wabs_do_manual_nw_scan 3072"); }
  void sleep() {
    advance(600 + below(7200));
    for (unsigned i = below(4); i > 0; i--) report();
  }
  // A hand at the sensor and away again.
  void grip() {
    for (const bool near : {true, false}) {
      device_.root.sensor("prox_diff", near ? 200 : 0);
      expect(test_clock::tick() && test_clock::tick(), "the sensor's monitor does not poll");
      modem_.wait_written();
      expect(modem_.state().body_sar == near, "a hand at the sensor changes no power");
    }
  }
  void trace() {
    const unsigned more = 1 + below(100000);
    modem_.stream_trace(more);
    traced_ += more;
    expect(process::eventually([this] { return device_.captured() == traced_; }),
           "the trace is not captured");
  }

  // ---- What goes wrong

  void unplug() {
    modem_.unplug();
    recover();
  }
  void no_card() {
    modem_.with_state([](State& state) { state.card_status = 2; });
    ask("brio_get_wn3_sim_status");
    close();
    open(WABS_STATUS_LIBRARY_FAILURE);
    modem_.with_state([](State& state) { state.card_status = 3; });
    open();
  }
  // The opening may fail; the next one is whole.
  void hard_open() {
    close();
    begin(one_of(kTroubles), "", below(25));
    modem_.wait_open(Port::kQuery, false);
    const uint32_t status = wabs_open();
    expect(status == 0 || status == WABS_STATUS_LIBRARY_FAILURE, "wabs_open with trouble");
    end();
    close();
    expect(modem_.plug(), "the modem does not come back");
    open();
  }
  // What is written to files fails.
  void full_disk() {
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    look();
    ask("wabs_get_mcc_mnc");
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  // In pieces of a few bytes, and torn by an answer.
  void torn_report() {
    modem_.chunk(1 + below(5));
    for (int i = 0; i < 4; i++) report();
    const std::string line = "\r\n+CMTI: \"SM\",7\r\n";
    const size_t cut = 1 + below(15);
    modem_.raw(Port::kUrc, line.substr(0, cut));
    modem_.wait_written();
    call("brio_get_bas_status");
    modem_.chunk(0);
    modem_.raw(Port::kUrc, line.substr(cut));
    device_.settle();
  }

  Device& device_;
  Modem& modem_;
  Known known_;
  bool is_low_ = false;  // the library has asked for reports of low signal
  long polled_at_ = 0, traced_ = 0;
};

}  // namespace

void day(Device& device) {
  Day(device).run();
}

}  // namespace endurance
