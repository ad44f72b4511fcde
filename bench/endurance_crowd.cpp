// Everything at once, at random: four threads send requests while the host's thread polls, opens and closes
// the module, scans, starts and stops the proximity monitor and the trace capture, and the world raises
// reports, refuses, falls silent and pulls the modem out. A request that nothing disturbed must succeed, and
// no answer may be another's.
#include <chrono>
#include <set>
#include <thread>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "endurance.h"
#include "kit/clock.h"
#include "kit/log.h"

namespace endurance {
namespace {

constexpr unsigned kRequesters = 4, kWorld = 4, kHostThread = 5;
constexpr long kMostAsked = 10;  // for each undisturbed one

void pause(unsigned most_microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(below(most_microseconds)));
}

class Crowd {
 public:
  Crowd(Device& device, long requests, unsigned seed)
      : device_(device),
        modem_(device.modem),
        seed_(seed),
        undisturbed_(g_tally.undisturbed + requests),
        asked_(g_tally.asked + requests * kMostAsked) {}

  void run() {
    test_clock::manual_select(false);
    test_clock::scale_selects(0.01);
    log_capture::hand_to([](const char*) {});
    device_.hold_scans();
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kRequesters; i++) threads.emplace_back([this, i] { go(i, &Crowd::request); });
    threads.emplace_back([this] { go(kWorld, &Crowd::world); });
    go(kHostThread, &Crowd::host);
    close();
    for (auto& thread : threads) thread.join();
  }

 private:
  void go(unsigned thread, void (Crowd::*step)()) {
    t_random.seed(seed_ * 16 + thread);
    while (!is_over()) (this->*step)();
  }
  bool is_over() const {
    return g_tally.asked >= asked_ || (g_tally.undisturbed >= undisturbed_ && g_tally.unplugged > unplugged_);
  }

  // What may let a request fail: how many in the lower half, how many have begun in the upper one.
  using Causes = int64_t;
  static constexpr Causes kBegins = (Causes{1} << 32) + 1, kEnds = -1;

  bool undisturbed(Causes before, int own = 0) const {
    return static_cast<int32_t>(before) == own && before == causes_;
  }
  static void expect(const char* name, uint32_t status, bool in_peace, const std::set<uint32_t>& documented) {
    if (status == 0 || (!in_peace && documented.count(status) != 0)) return;
    complain(std::string(name) + ": status " + std::to_string(status) + (in_peace ? " undisturbed" : ""));
  }

  bool ask(const Operation& what) {
    const Causes before = causes_;
    const bool was_whole = opened_whole_;
    const Answer answer = call(what);
    const bool in_peace = undisturbed(before);
    g_tally.undisturbed += in_peace;
    judge(what, answer, !in_peace, kSituations, was_whole && opened_whole_);
    return answer.status == 0;
  }

  void request() {
    const Operation& what = below(4) == 0 ? kOperations[1] : one_of(kOperations);  // a SIM file
    if (what.who != kAnyone && what.who != kCrowd) return;
    // No gate holds this one back, and the echo of a modem that was just plugged in may take its answer away.
    if (what.line == kFile && device_.echoes) return pause(3000);
    // A closed library answers at once: most of the time is for an open one.
    const bool done = ask(what);
    if (!done || below(8) == 0) pause(done ? 500 : 3000);
  }

  // ---- The world's thread

  void world() {
    const unsigned what = ++steps_ % 400 == 200 ? 999 : below(1000);
    if (what < 500) report_something(modem_);
    if (what >= 500 && what < 970) situate(modem_, situation_ = next_situation(situation_));
    if (what >= 970 && what < 985) modem_.chunk(below(4) != 0 ? 0 : 1 + below(9));
    if (what >= 985 && what < 992) modem_.stream_trace(below(300000));
    if (what >= 992 && what < 998) trouble();
    if (what >= 998) unplug();
    pause(3000);
  }

  // With the next few commands, or one that is not answered.
  void trouble() {
    const Trouble& trouble = one_of(kTroubles);
    if (!trouble.in_crowd) return;
    Fault fault;
    trouble.make(fault);
    fault.times = fault.silent ? 1 : static_cast<int>(1 + below(3));
    g_tally.troubles += 1;
    if (trouble.effect != kNone) causes_ += kBegins;
    modem_.fault(fault);
    const long met = device_.asked + fault.times;
    for (; device_.asked < met; pause(2000))
      if (is_over()) return;
    if (trouble.effect != kNone) causes_ += kEnds;
  }

  // Gone until it is plugged in, and lost until the library is opened anew.
  void unplug() {
    causes_ += kBegins;
    modem_.unplug();
    device_.echoes = true;
    causes_ += kBegins;
    lost_ += 1;
    pause(50000);
    if (!modem_.plug()) complain("the modem does not come back");
    causes_ += kEnds;
    g_tally.unplugged += 1;
  }

  // ---- The host's thread

  void host() {
    test_clock::advance(5);
    if (!is_open_) return open();
    if (briolib_check_library_status() != BRIO_STATUS_OK || below(150) == 0) return close();
    static constexpr void (Crowd::*kDo[])() = {&Crowd::poll, &Crowd::poll, &Crowd::poll,    &Crowd::poll,
                                               &Crowd::poll, &Crowd::page, &Crowd::monitor, &Crowd::capture,
                                               &Crowd::log,  &Crowd::scan};
    (this->*one_of(kDo))();
  }

  void open() {
    // Answers to what the modem still works on when the library closes reach the port's next user.
    modem_.wait_open(Port::kQuery, false);
    modem_.wait_written();
    test_clock::keep_wait();
    causes_ += kEnds * lost_.value.exchange(0);
    const Causes before = causes_;
    const uint32_t status = wabs_open();
    expect("wabs_open", status, undisturbed(before, 1), {WABS_STATUS_LIBRARY_FAILURE});
    is_open_ = status == 0;
    if (!is_open_) return;
    opened_whole_ = undisturbed(before, 1);
    g_tally.opens += 1;
    causes_ += kEnds;
  }

  void close() {
    if (is_open_) causes_ += kBegins;
    opened_whole_ = false;
    expect("wabs_close", wabs_close(), true, {});
    is_open_ = false;
    device_.check_traces();
  }

  void poll() {
    const Operation& what = below(4) == 0 ? kOperations[1] : one_of(kOperations);  // a SIM file
    if (what.who == kHost) ask(what);
  }

  void page() {
    const std::string page = call("wabs_get_log_string " + std::to_string(1 + below(8192)) + " 1").text;
    if (page.front() != '"') complain("a page without an end");
    if (below(4) == 0) wabs_exit_611_logging();
  }

  // A hand comes or goes, or the monitor restarts.
  void monitor() {
    device_.root.sensor("prox_diff", below(2) == 0 ? 200 : 0);
    if (below(4) != 0) return;
    prox_close();
    expect("prox_open", prox_open(), true, {});
  }

  void capture() {
    const Causes before = causes_;
    brio_trace_tst_stop();
    device_.check_traces();
    test_clock::set_wall(wall_++);  // each file gets its own name
    const uint32_t status = brio_trace_tst_log("/var/local/wan/debug/trace_filter.cfg", "/mnt/us/trace_log");
    expect("brio_trace_tst_log", status, undisturbed(before),
           {0, 1, 2, BRIO_STATUS_FATAL, BRIO_STATUS_FAILURE});
  }

  void log() {
    const uint32_t mask = below(2) == 0 ? 0xFFFFFFFFu : 0u;
    briolib_log_set_log_mask(mask);
    wabs_set_log_mask(mask);
  }

  // The modem never answers it; another thread releases it.
  void scan() {
    const Causes before = causes_;
    const long asked = device_.scans_asked;
    Relaxed<bool> over;
    uint32_t released = 0;
    std::thread aborter([&] {
      while (!over && device_.scans_asked == asked) std::this_thread::yield();
      if (!over) released = wabs_abort_manual_nw_scan();
    });
    char list[512];
    const uint32_t status = wabs_do_manual_nw_scan(list, sizeof list);
    over = true;
    aborter.join();
    const bool is_aborted = status == WABS_STATUS_SCAN_ABORTED && released == WABS_STATUS_SCAN_ABORTED;
    expect("wabs_do_manual_nw_scan", is_aborted ? 0 : status, undisturbed(before) && !is_aborted,
           {WABS_STATUS_LIBRARY_FAILURE, WABS_STATUS_SCAN_RUNNING, WABS_STATUS_SCAN_ABORTED});
    wabs_send_abort_cmd();
    wabs_set_auto_mode();
  }

  Device& device_;
  Modem& modem_;
  const unsigned seed_;
  const long undisturbed_, asked_, unplugged_ = g_tally.unplugged;
  Relaxed<Causes> causes_{{1}};  // closed
  Relaxed<int> lost_;
  Relaxed<bool> opened_whole_;  // and nothing that is read once, while opening, was refused
  unsigned steps_ = 0, situation_ = kNetworks;
  bool is_open_ = false;
  time_t wall_ = 1900000000;
};

}  // namespace

void crowd(Device& device, long requests, unsigned seed) {
  Crowd(device, requests, seed).run();
}

}  // namespace endurance
