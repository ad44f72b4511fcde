// A simulated day on a clock that only moves when it is told to: the host polls, pages are looked at,
// networks searched, the device sleeps, the modem reports, and every few minutes something is wrong. Every
// answer is compared with that of a freshly opened library.
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

constexpr unsigned kPolls = 864, kPollPeriod = 100;  // beyond it bars are asked for anew
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
    static const bool s_learned = (learn(device_), true);
    expect(s_learned, "");
    open();
    for (unsigned i = 0; i < kPolls; i++) {
      advance(kPollPeriod);
      happen();
      for (int more = 0; more < 4; more++) ask(any(kHost));
    }
    close();
    log_capture::take();
  }

 private:
  // Average number of each a day.
  void happen() {
    static constexpr struct {
      unsigned per_day;
      void (Day::*happens)();
    } kRows[] = {{600, &Day::report},  {150, &Day::move},      {30, &Day::question}, {10, &Day::look},
                 {4, &Day::search},    {8, &Day::sleep},       {8, &Day::grip},      {8, &Day::trace},
                 {60, &Day::trouble},  {4, &Day::unplug},      {4, &Day::no_card},   {6, &Day::hard_open},
                 {4, &Day::full_disk}, {10, &Day::torn_report}};
    for (const auto& row : kRows)
      if (below(kPolls) < row.per_day) (this->*row.happens)();
  }

  static void advance(unsigned seconds) {
    test_clock::advance(seconds);
    timespec time = {};
    brio::clock_monotonic(&time);
    test_clock::set_wall(1800000000 + time.tv_sec);
  }

  // ---- Questions

  static const Operation& any(Who who) {
    const Operation* each = nullptr;
    while (each == nullptr || each->who != who) each = &one_of(kOperations);
    return *each;
  }

  void ask(const Operation& what, bool disturbed = false) {
    modem_.clear_commands();
    log_capture::clear();
    const Answer answer = call(what);
    device_.settle();
    judge(what, answer, disturbed, situation_);
  }

  // One answer that something is wrong with, then the same without.
  void trouble() {
    const Operation& what = any(below(2) == 0 ? kHost : kAnyone);
    const Trouble& trouble = one_of(kTroubles);
    begin(trouble);
    if (trouble.effect == kGone) device_.listen(false);
    ask(what, trouble.effect != kNone);
    const bool sent = !modem_.commands().empty();
    end();
    if (trouble.effect == kGone && sent) return recover();
    device_.listen(true);
    modem_.raw(Port::kQuery, "\r\n+CCLK: \"late\"\r\n\r\nOK\r\n");
    throw_away();
    ask(what);
  }

  void begin(const Trouble& trouble, unsigned skip = 0) {
    g_tally.troubles += 1;
    Fault fault;
    fault.skip = static_cast<int>(skip);
    fault.times = 1;
    trouble.make(fault);
    modem_.fault(fault);
    if (below(3) == 0) modem_.chunk(1 + below(7));
    // The rest of an answer after junk never completes: the request need not wait for it.
    log_capture::on_line("process_line:ERROR:cleaning up!", test_clock::expire_wait);
  }
  void end() {
    modem_.wait_written();
    modem_.chunk(0);
    modem_.clear_faults();
    log_capture::on_line("", nullptr);
  }

  // Noise on the query port while no request waits: afterwards the library has discarded all of it.
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
    // The antenna is asked for once; after that the library goes by reports.
    expect(call("brio_atcmd_enable_urc 1").status == 0, "reports of the antennas");
    traced_ = 0;
    device_.settle();
    move_anew();
  }

  void close() {
    device_.settle();
    device_.listen(false);
    expect(wabs_close() == 0, "wabs_close");
    device_.check_traces();
  }

  void plug() {
    expect(modem_.plug(), "the modem does not come back");
    open();
  }

  // A modem that is gone: requests fail until the library is reopened.
  void recover() {
    g_tally.unplugged += 1;
    device_.listen(false);
    expect(process::eventually([] { return briolib_check_library_status() == BRIO_STATUS_FATAL; }),
           "not lost");
    for (const char* name : {"wabs_get_bars", "wabs_get_roaming_status", "brio_get_bas_status"})
      expect(call(name).status != 0, std::string(name) + " of a lost modem");
    close();
    open(WABS_STATUS_LIBRARY_FAILURE);  // it is still away
    plug();
  }

  // ---- An ordinary day

  void move() {
    situation_ = next_situation(situation_);
    situate(modem_, situation_);
    device_.settle();
    advance(kPollPeriod);
    ask(kOperations[0]);               // so the library learns where it is
    call("wabs_get_current_network");  // for a scan to mark
  }
  // From a search to wherever the modem registers by itself.
  void move_anew() {
    situate(modem_, situation_ = kNetworks);
    move();
  }
  void report() {
    report_something(modem_);
    device_.settle();
  }
  void question() { ask(any(kAnyone)); }
  void look() {
    call("wabs_exit_611_logging");
    expect(call("wabs_get_log_string 6144 1").text == "\"\"", "a page before the visit");
    std::string page;
    for (unsigned i = 1 + below(6); i > 0; i--) page = call("wabs_get_log_string 6144 1").text;
    for (const std::string& part : {"Version:  " + State().firmware, "IMEI:  " + State().imei})
      expect(page.find(part) != page.npos, "not on the page: " + part);
  }
  void search() {
    if (situation_ >= kNetworks) return;
    ask(any(kAlone));
    call("wabs_set_auto_mode");
    move_anew();
  }
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
    expect(call("brio_get_wn3_sim_status").text == std::to_string(NO_SIM), "a card that is none");
    close();
    open(WABS_STATUS_LIBRARY_FAILURE);
    modem_.with_state([](State& state) { state.card_status = 3; });
    open();
  }
  // The opening may fail; the next one succeeds.
  void hard_open() {
    close();
    begin(one_of(kTroubles), below(25));
    modem_.wait_open(Port::kQuery, false);
    const uint32_t status = wabs_open();
    expect(status == 0 || status == WABS_STATUS_LIBRARY_FAILURE, "wabs_open with trouble");
    end();
    close();
    plug();
  }
  // Writing to files fails.
  void full_disk() {
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    look();
    question();
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  // In pieces of a few bytes, and interrupted by an answer.
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
  unsigned situation_ = kNetworks;
  long traced_ = 0;
};

}  // namespace

void day(Device& device) {
  Day(device).run();
}

}  // namespace endurance
