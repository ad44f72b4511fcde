// A simulated month of a device: the host polls, pages are looked at, networks searched, the device sleeps
// and restarts, the modem reports, and every few minutes something is wrong. Time is virtual. Every answer is
// held against what the modem knew. Exits 1 when an answer was wrong, an answer or a report was lost, or
// memory, descriptors or threads grew.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "kit/process.h"
#include "soak_device.h"
#include "soak_host.h"

namespace {

using namespace soak;

constexpr double kDay = 86400;
constexpr double kPollPeriod = 30;

struct Place {
  const char* numeric;
  int stat, rat, lac, cell;
};
constexpr Place kPlaces[] = {{"23415", 1, 7, 0x0D05, 0x0012F00D},
                             {"26201", 5, 2, 0x00FF, 0x00C0FFEE},
                             {"20404", 5, 0, 0x1A2B, 0x01C2D3E4},
                             {"310410", 5, 3, 0x0BAD, 0x0000BEEF}};
constexpr const char* kClocks[] = {"26/03/07,09:05:00-28", "26/03/07,17:05:00+04", "26/07/07,18:05:00+08"};

class Month {
 public:
  explicit Month(unsigned seed) : random_(seed), host_(device_) {}

  void day(bool with_trace) {
    device_.root().write("/var/local/wan/debug/trace_filter.cfg",
                         with_trace ? "AT+XSYSTRACE=1\n" : "# nothing\n");
    host_.open();
    with_trace_ = with_trace;
    const double end = device_.now() + kDay;
    for (int round = 0; device_.now() < end; round++) {
      device_.advance(kPollPeriod);
      happen();
      host_.poll();
      if (round % 10 == 9) host_.ask_time();
      if (round % 60 == 59) host_.ask_identity();
    }
    host_.close();
    device_.power_cycle();
  }

 private:
  using Deed = void (Month::*)();
  struct Row {
    unsigned per_day;
    bool fault;
    Deed deed;
  };

  // Each by its number a day, in the mean.
  void happen() {
    static constexpr Row kRows[] = {
        {400, false, &Month::signal},     {60, false, &Month::cell},        {12, false, &Month::travel},
        {12, false, &Month::searching},   {6, false, &Month::time_zone},    {20, false, &Month::antennas},
        {6, false, &Month::other_report}, {4, false, &Month::page},         {2, false, &Month::scan},
        {6, false, &Month::sleep},        {8, false, &Month::reader},       {8, false, &Month::grip},
        {4, false, &Month::trace},        {30, true, &Month::trouble},      {3, true, &Month::unplug},
        {2, true, &Month::refused},       {3, true, &Month::reject},        {2, true, &Month::card_away},
        {2, true, &Month::hard_opening},  {2, true, &Month::opened_twice},  {6, true, &Month::junk_reports},
        {3, true, &Month::storm},         {6, true, &Month::noise},         {2, true, &Month::disk_full},
        {2, true, &Month::failed_scan},   {4, true, &Month::report_pieces},
    };
    for (const Row& row : kRows) {
      if (random_() % static_cast<unsigned>(kDay / kPollPeriod) >= row.per_day) continue;
      if (row.fault) g_tally.faults++;
      (this->*row.deed)();
    }
  }

  // ---- An ordinary day

  void signal() {
    const int bars = static_cast<int>(random_() % 6);
    host_.change([&](State& state) {
      state.bars = bars;
      state.rssi = bars * 12 + static_cast<int>(random_() % 12);
    });
  }
  void cell() {
    host_.change([this](State& state) {
      state.cell_id = static_cast<int>(random_() & 0x0FFFFFFF);
      state.files[28542] =
          std::string(random_() % 2 == 0 ? "C0FFEE0113001" : "ABCDEF0113001") + "42F0100" + "00";
    });
  }
  void searching() {
    host_.change([](State& state) { state.cs_stat = state.ps_stat = 2; });
    for (unsigned i = random_() % 6; i > 0; i--) {
      host_.poll();
      device_.advance(kPollPeriod);
    }
    arrive(kPlaces[0]);
  }
  // Networks change by way of a search.
  void travel() {
    host_.change([](State& state) { state.cs_stat = state.ps_stat = 2; });
    if (random_() % 2 == 0) host_.poll();
    arrive(kPlaces[random_() % (sizeof(kPlaces) / sizeof(kPlaces[0]))]);
  }
  void arrive(const Place& place) {
    host_.change([&](State& state) {
      state.operator_numeric = state.plmn_text = place.numeric;
      state.cs_stat = state.ps_stat = place.stat;
      state.cs_reject_cause = state.ps_reject_cause = 0;
      state.rat = place.rat;
      state.lac = place.lac;
      state.cell_id = place.cell;
    });
  }
  void time_zone() {
    const std::string clock = kClocks[random_() % 3];
    device_.modem().with_state([&](State& state) { state.clock = clock; });
    const std::string zone = clock.substr(17), time = clock.substr(0, 17);
    device_.report(random_() % 2 == 0 ? "+CTZV: " + std::to_string(atoi(zone.c_str())) + ",\"" + time + "\""
                                      : "+CIEV: 9,\"" + time + "\"," + zone + ",0");
  }
  void antennas() {
    host_.change([this](State& state) {
      state.bas_a = static_cast<int>(random_() % 2000);
      state.bas_b = static_cast<int>(random_() % 2000);
      state.antenna = static_cast<int>(random_() % 2);
    });
  }
  void other_report() {
    static constexpr const char* kReports[] = {"+CMTI: \"SM\",1", "+STKPCI: 0,\"D009810301010082028182\"",
                                               "RING", "+CRING: VOICE"};
    device_.report(kReports[random_() % 4]);
  }
  void page() { host_.visit_page(random_, false); }
  void scan() { host_.scan(random_, Trouble::kJoined); }
  // The host does not poll; the world goes on.
  void sleep() {
    device_.advance(600 + random_() % 7200);
    for (unsigned i = random_() % 4; i > 0; i--) signal();
  }
  void reader() { host_.reader_in_front(random_() % 2 == 0); }
  void grip() { host_.grip(); }
  void trace() {
    if (with_trace_) host_.trace(1 + random_() % 100000);
  }

  // ---- What goes wrong

  void trouble() { host_.ask_in_trouble(random_, static_cast<Trouble>(random_() % kTroubles)); }
  void unplug() {
    device_.modem().unplug();
    host_.recover();
  }
  // The network refuses for a while.
  void refused() {
    host_.change([](State& state) {
      state.cs_stat = state.ps_stat = 3;
      state.cs_reject_cause = state.ps_reject_cause = 13;
    });
    for (int i = 0; i < 3; i++) {
      host_.poll();
      device_.advance(kPollPeriod);
    }
    host_.change([](State& state) { state.cs_stat = state.ps_stat = 0; });
    host_.poll();
    arrive(kPlaces[0]);
  }
  // A cause for which the device must not try again.
  void reject() {
    const std::string flag = "/var/run/fatal_reject";
    device_.report("+GTOTAREJECT: 1,5,8,234,15");
    if (!std::filesystem::exists(device_.root().dir() + flag)) {
      complain(g_tally.wrong, "no flag of a fatal reject");
    }
    std::filesystem::remove(device_.root().dir() + flag);
  }
  // The SIM is taken out for a while.
  void card_away() {
    host_.change([](State& state) { state.card_status = 2; });
    host_.poll();
    host_.close();
    host_.open(2);
    host_.change([](State& state) { state.card_status = 3; });
    host_.open();
  }
  void hard_opening() {
    static const struct {
      const char* command;
      const char* reply;  // null: silence, "": the modem goes away
      uint32_t status;
    } kHard[] = {{"ATE0", nullptr, 0},
                 {"AT+CFUN=1", "\r\n+CME ERROR: 14\r\n", 0},
                 {"AT+GTSIMSTATUS?", "\r\n+GTSIMSTATUS: 1,0\r\n\r\nOK\r\n", 0},
                 {"AT+CREG=2", "", 2},
                 {"AT+GTMODINFO?", "\r\nERROR\r\n", 2},
                 {"AT+CRSM", nullptr, 0}};
    const auto& row = kHard[random_() % (sizeof(kHard) / sizeof(kHard[0]))];
    host_.close();
    modemsim::Fault fault;
    fault.command = row.command;
    fault.times = 1;
    fault.silent = row.reply == nullptr;
    fault.unplug = row.reply != nullptr && *row.reply == '\0';
    fault.replace = !fault.silent && !fault.unplug;
    fault.reply = row.reply != nullptr ? row.reply : "";
    device_.modem().fault(fault);
    host_.open(row.status);
    device_.modem().plug();
    if (row.status != 0) host_.open();
  }
  // Opening what is open closes it.
  void opened_twice() {
    host_.open(4);
    host_.close();
    host_.open();
  }
  void junk_reports() {
    std::string junk = "\r\n";
    for (unsigned i = random_() % 1500; i > 0; i--) {
      const char c = static_cast<char>(random_() % 255 + 1);
      junk += c == '\n' || c == '\r' || c == '>' || c == '+' ? '~' : c;
    }
    device_.raw_report(junk + "\r\n+GTBARS:\r\n+CREG: \r\n+CTZV: x,\"y\"\r\n");
    device_.settle();
  }
  void storm() {
    for (int i = 0; i < 200; i++) device_.report("+CMTI: \"SM\"," + std::to_string(i));
  }
  void noise() { device_.clear_query_port(); }
  void disk_full() { host_.visit_page(random_, true); }
  void failed_scan() { host_.scan(random_, random_() % 2 == 0 ? Trouble::kError : Trouble::kSilence); }
  // Reports in pieces of a few bytes, some of them torn in two.
  void report_pieces() {
    device_.modem().chunk(1 + random_() % 5);
    for (int i = 0; i < 4; i++) signal();
    time_zone();
    device_.modem().chunk(0);
    const std::string line = "\r\n+CMTI: \"SM\",7\r\n";
    const size_t cut = 1 + random_() % (line.size() - 1);
    device_.raw_report(line.substr(0, cut));
    host_.poll();
    device_.raw_report(line.substr(cut));
    device_.settle();
  }

  Random random_;
  Device device_;
  Host host_;
  bool with_trace_ = false;
};

// What the process holds between two days.
struct Held {
  long heap, resident, descriptors, threads;
};

Held held(long threads) {
  const long settled = process::settled_threads(threads);
  return {process::heap_in_use(), process::status("VmRSS"), process::descriptors(), settled};
}

void print_held(const char* when, const Held& held) {
  printf("%-10s %ld descriptors, %ld threads, %ld bytes of heap, %ld KiB resident\n", when, held.descriptors,
         held.threads, held.heap, held.resident);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "A simulated month of host polling and modem reports with faults, on a virtual clock.\nExits 1 when an "
      "answer is wrong, an answer or a report is lost, or something grows.",
      "soak"};
  int days = 30;
  unsigned seed = 1;
  app.add_option("--days", days, "Simulated days (30)")->check(CLI::Range(2, 3660));
  app.add_option("--seed", seed, "Seed of the plan (1)");
  CLI11_PARSE(app, argc, argv);
  process::count_heap_exactly(argv);

  const auto start = std::chrono::steady_clock::now();
  Held first = {}, last = {};
  long heap_peak = 0;
  try {
    Month month(seed);
    for (int day = 0; day < days; day++) {
      month.day(day % 3 == 0);
      if (day == 0) first = held(2);  // fills what is allocated once and the caches of the C library
      heap_peak = std::max(heap_peak, process::heap_in_use());
    }
    last = held(first.threads);
  } catch (const GaveUp&) {
    _exit(1);  // the library and its threads are left as they are
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const Tally& tally = g_tally;
  printf("time       %d days of seed %u in %.0f s\n", days, seed, seconds);
  printf("host       %ld calls checked, %ld commands sent\n", tally.host_calls, tally.commands);
  printf("modem      %ld reports handled\n", tally.reports);
  printf("faults     %ld survived\n", tally.faults);
  printf("wrong      %ld answers; lost %ld answers, %ld reports\n", tally.wrong, tally.lost_answers,
         tally.lost_reports);
  printf("held       %ld bars of a reopening in weak signal, as documented\n", tally.held_bars);
  printf("memory     peak %ld KiB resident, of the heap %ld KiB\n", process::status("VmHWM"),
         heap_peak / 1024);
  print_held("first day", first);
  print_held("at the end", last);
  const long more_heap = last.heap - first.heap;
  printf("growth     %+ld bytes of heap, %+ld KiB resident, %+ld descriptors, %+ld threads\n", more_heap,
         last.resident - first.resident, last.descriptors - first.descriptors, last.threads - first.threads);
  constexpr long kHeapSlack = 2 * 1024;  // the virtual clock notes each sleep
  const bool right = tally.wrong == 0 && tally.lost_answers == 0 && tally.lost_reports == 0;
  const bool flat =
      more_heap < kHeapSlack && last.descriptors == first.descriptors && last.threads <= first.threads;
  const bool busy =
      tally.faults > days * 10L && tally.reports > days * 100L && tally.host_calls > days * 5000L;
  if (!busy) fprintf(stderr, "soak: too little happened for a verdict\n");
  return right && flat && busy ? 0 : 1;
}
