// Everything at once, at random, for a while: four threads send requests while the host's thread polls, opens
// and closes the module, scans, starts and stops the proximity monitor and the trace capture, and the world
// raises reports, refuses, falls silent, and pulls the modem out. Made to run under ThreadSanitizer and
// AddressSanitizer. Exits 1 when an answer is not its request's own, a status is not a documented one or a
// failure nobody caused, or threads, descriptors or heap grow from one round to the next.
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "brio/brio.h"
#include "brio/prox.h"
#include "brio/wabs.h"
#include "kit/process.h"
#include "log_lines.h"
#include "stress_world.h"
#include "trace_piece.h"

namespace {

using namespace stress;

constexpr int kRequesters = 4;
constexpr double kRoundSeconds = 5;
constexpr long kLeastInPeace = 10;  // one request of so many
constexpr char kTraceFilter[] = "/var/local/wan/debug/trace_filter.cfg";
constexpr char kTracePrefix[] = "/mnt/us/trace_log";

// Relaxed, so that counting puts no two threads into an order.
class Count {
 public:
  long operator++(int) { return value_.fetch_add(1, std::memory_order_relaxed); }
  operator long() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<long> value_{0};
};

struct Totals {
  Count requests, in_peace, failed, wrong;
  long opens = 0, scans = 0, pages = 0, captures = 0, monitors = 0, trace_bytes = 0;
};
Totals s_totals;

void complain(const char* what, const std::string& details) {
  if (s_totals.wrong++ < 20) fprintf(stderr, "stress: %s: %s\n", what, details.c_str());
}

bool contains(uint32_t mask, uint32_t status) {
  return status < 32 && ((mask >> status) & 1u) != 0;
}

// ---- Requests of the four threads

// False when it failed.
bool one_request(World& world, Random& random) {
  const Probe& probe = probes()[random() % probes().size()];
  const Peace before = world.peace();
  std::string complaint;
  const uint32_t status = probe.run(random, complaint);
  const bool peace = before.holds(world.peace());
  s_totals.requests++;
  if (peace) s_totals.in_peace++;
  if (status != BRIO_STATUS_OK) s_totals.failed++;
  if (!complaint.empty()) complain(probe.name, complaint);
  if (!contains(peace ? probe.in_peace : probe.documented, status)) {
    complain(probe.name, (peace ? "status in peace " : "status ") + std::to_string(status));
  }
  return status == BRIO_STATUS_OK;
}

// ---- The host's thread

class Host {
 public:
  Host(World& world, modemsim::DeviceRoot& root, unsigned seed) : world_(world), root_(root), random_(seed) {}

  void step() {
    if (!open_) {
      open();
      return;
    }
    if (briolib_check_library_status() != BRIO_STATUS_OK || random_() % 150 == 0) {
      close();
      return;
    }
    static constexpr void (Host::*kDo[])() = {
        &Host::poll,     &Host::poll,       &Host::poll,     &Host::poll,       &Host::identity,
        &Host::identity, &Host::page,       &Host::page,     &Host::monitor,    &Host::scan,
        &Host::capture,  &Host::leave_page, &Host::log_more, &Host::new_monitor};
    (this->*kDo[random_() % (sizeof(kDo) / sizeof(kDo[0]))])();
  }

  void close() {
    world_.closing();
    check("wabs_close", wabs_close(), 0, 1u << WABS_STATUS_OK);
    open_ = false;
    look_at_traces();
  }

 private:
  // What came back must be `wanted` in peace, and at any time one of `documented`.
  bool check(const char* name, uint32_t status, const Peace* before, uint32_t documented) {
    const bool peace = before != nullptr && before->holds(world_.peace());
    if (!contains(peace ? 1u : documented, status)) {
      complain(name, (peace ? "status in peace " : "status ") + std::to_string(status));
    }
    return status == 0;
  }
  void expect(const char* name, bool right, const std::string& got) {
    if (!right) complain(name, got);
  }

  void open() {
    const Peace before = world_.opening();
    const uint32_t status = wabs_open();
    check("wabs_open", status, before.undisturbed ? &before : nullptr,
          1u << WABS_STATUS_OK | 1u << WABS_STATUS_LIBRARY_FAILURE);
    open_ = status == WABS_STATUS_OK;
    if (!open_) return;
    s_totals.opens++;
    world_.opened();
  }

  void poll() {
    const uint32_t failing = 1u << WABS_STATUS_OK | 1u << WABS_STATUS_LIBRARY_FAILURE;
    const Peace before = world_.peace();
    uint32_t bars = 0, mode = 9, roaming = 9, mcc = 0, mnc = 0;
    if (check("wabs_get_bars", wabs_get_bars(&bars), &before, failing)) {
      expect("wabs_get_bars", bars == WABS_BARS_NOT_ATTACHED || (bars >= 1 && bars <= 5),
             std::to_string(bars));
    }
    if (check("wabs_get_data_service_mode", wabs_get_data_service_mode(&mode), &before, failing)) {
      expect("wabs_get_data_service_mode", mode <= 4, std::to_string(mode));
    }
    if (check("wabs_get_roaming_status", wabs_get_roaming_status(&roaming), &before, failing)) {
      expect("wabs_get_roaming_status", roaming <= 1 || roaming == 8, std::to_string(roaming));
    }
    if (check("wabs_get_mcc_mnc", wabs_get_mcc_mnc(&mcc, &mnc), &before, failing)) {
      expect("wabs_get_mcc_mnc", known_network(mcc, mnc), std::to_string(mcc) + "-" + std::to_string(mnc));
    }
    time_t utc = 0;
    int32_t offset = 0;
    if (check("wabs_get_module_time", wabs_get_module_time(&utc, &offset), &before,
              failing | 1u << WABS_STATUS_NO_NETWORK_TIME)) {
      expect("wabs_get_module_time", known_zone(offset / 900), std::to_string(offset));
    }
  }

  void identity() {
    char text[64];
    const struct {
      uint32_t (*get)(char*, uint32_t);
      const char* value;
    } texts[] = {{wabs_get_imsi, kImsi},
                 {wabs_get_radio_serial_number, kImei},
                 {wabs_get_radio_cert_param1, kIccid},
                 {wabs_get_firmware_version, kFirmware}};
    for (const auto& row : texts) {
      const uint32_t status = row.get(text, sizeof(text));
      expect("identity", status == WABS_STATUS_OK && strcmp(text, row.value) == 0, text);
    }
    uint32_t mcc = 0, mnc = 0;
    if (wabs_get_hplmn_mcc_mnc(&mcc, &mnc) == WABS_STATUS_OK) {
      expect("wabs_get_hplmn_mcc_mnc", mcc == 234 && mnc == 15,
             std::to_string(mcc) + "-" + std::to_string(mnc));
    }
  }

  void page() {
    char text[8192];
    memset(text, 'x', sizeof(text));
    const int32_t size = static_cast<int32_t>(random_() % sizeof(text)) + 1;
    const uint32_t status = wabs_get_log_string(text, size, random_() % 2);
    expect("wabs_get_log_string", status == WABS_STATUS_OK && strnlen(text, sizeof(text)) < size_t(size),
           "not terminated");
    s_totals.pages++;
  }
  void leave_page() { expect("wabs_exit_611_logging", wabs_exit_611_logging() == WABS_STATUS_OK, "failed"); }

  // The modem never answers this scan; another thread releases it.
  void scan() {
    const Peace before = world_.peace();
    const long asked = world_.scans_asked();
    std::atomic<bool> over{false};
    uint32_t released = WABS_STATUS_NOT_OPEN;
    std::thread aborter([&] {
      while (!over && world_.scans_asked() == asked)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (!over) released = wabs_abort_manual_nw_scan();
    });
    char list[512];
    const uint32_t status = wabs_do_manual_nw_scan(list, sizeof(list));
    over = true;
    aborter.join();
    const bool peace = before.holds(world_.peace());
    if (peace && !(status == WABS_STATUS_SCAN_ABORTED && released == WABS_STATUS_SCAN_ABORTED)) {
      complain("scan in peace", std::to_string(status) + " released " + std::to_string(released));
    }
    if (status != WABS_STATUS_SCAN_ABORTED && status != WABS_STATUS_LIBRARY_FAILURE &&
        status != WABS_STATUS_SCAN_RUNNING) {
      complain("scan", std::to_string(status));
    }
    wabs_send_abort_cmd();
    wabs_set_auto_mode();
    s_totals.scans++;
  }

  // A hand comes or goes, or the monitor starts anew.
  void monitor() { root_.sensor("prox_diff", random_() % 2 == 0 ? 200 : 0); }
  void new_monitor() {
    prox_close();
    const uint32_t status = prox_open();
    expect("prox_open", status == 0, std::to_string(status));
    s_totals.monitors++;
  }

  void capture() {
    const Peace before = world_.peace();
    brio_trace_tst_stop();
    look_at_traces();
    const uint32_t status = brio_trace_tst_log(kTraceFilter, kTracePrefix);
    check("brio_trace_tst_log", status, &before,
          1u << BRIO_STATUS_OK | 1u << BRIO_STATUS_NOT_OPEN | 1u << BRIO_STATUS_FATAL |
              1u << BLPKT_STATUS_TIMEOUT | 1u << BLPKT_STATUS_ERROR | 1u << BRIO_STATUS_FAILURE);
    s_totals.captures++;
  }
  // A file holds a piece of the modem's stream without a hole.
  void look_at_traces() {
    for (const auto& entry : std::filesystem::directory_iterator(root_.dir() + "/mnt/us")) {
      const std::string bytes = root_.read("/mnt/us/" + entry.path().filename().string()).value_or("");
      s_totals.trace_bytes += static_cast<long>(bytes.size());
      expect("trace", bench::piece_of_trace(bytes), entry.path().filename().string());
      std::filesystem::remove(entry.path());
    }
  }

  void log_more() {
    const uint32_t mask = random_() % 2 == 0 ? 0xFFFFFFFFu : 0u;
    briolib_log_set_log_mask(mask);
    wabs_set_log_mask(mask);
  }

  World& world_;
  modemsim::DeviceRoot& root_;
  Random random_;
  bool open_ = false;
};

// ---- Rounds

// One life of everything: device, modem, threads.
void round(double seconds, unsigned seed) {
  modemsim::DeviceRoot root("stress");
  root.rest_sensor();
  root.write(kTraceFilter, "AT+XSYSTRACE=1\n");
  brio_set_root_dir(root.dir().c_str());
  World world(root, seed);
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kRequesters; i++) {
    threads.emplace_back([&, i] {
      Random random(seed * 16 + 1 + static_cast<unsigned>(i));
      while (!stop.load(std::memory_order_relaxed)) {
        // A closed library answers at once: most of the time shall go to an open one.
        const bool done = one_request(world, random);
        if (!done || random() % 8 == 0) {
          std::this_thread::sleep_for(std::chrono::microseconds(random() % (done ? 500 : 3000)));
        }
      }
    });
  }
  threads.emplace_back([&] {
    while (!stop.load(std::memory_order_relaxed)) world.step();
  });
  Host host(world, root, seed * 16 + 8);
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) host.step();
  stop = true;
  host.close();
  for (auto& thread : threads) thread.join();
}

}  // namespace

void bench::log_line(const char*) {}

int main(int argc, char** argv) {
  CLI::App app{
      "Requests, reports, monitors, unplugging and reopening at random, all at once.\nExits 1 when an answer "
      "is "
      "wrong or something grows.",
      "stress"};
  double seconds = 20;
  unsigned seed = std::random_device{}() % 1000000;
  app.add_option("--seconds", seconds, "How long, in rounds of five seconds (20)")
      ->check(CLI::Range(10, 864000));
  app.add_option("--seed", seed, "Where the chances begin (random)");
  CLI11_PARSE(app, argc, argv);
  process::count_heap_exactly(argv);
  signal(SIGALRM, [](int) {
    static constexpr char kText[] = "stress: stuck: some call does not return\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kText, sizeof(kText) - 1);
    abort();
  });
  printf("seed       %u\n", seed);
  fflush(stdout);

  const int rounds = std::max(2, static_cast<int>(seconds / kRoundSeconds));
  long threads = 0, descriptors = 0, heap = 0;
  for (int i = 0; i < rounds; i++) {
    alarm(120);
    round(kRoundSeconds, seed + static_cast<unsigned>(i));
    if (i > 0) continue;
    // The first round fills what is allocated once and the caches of the C library.
    threads = process::settled_threads(1);
    descriptors = process::descriptors();
    heap = process::heap_in_use();
  }
  alarm(0);
  const long more_threads = process::settled_threads(threads) - threads;
  const long more_descriptors = process::descriptors() - descriptors;
  const long more_heap = process::heap_in_use() - heap;

  const Deeds& deeds = World::deeds();
  printf("rounds     %d of %.0f s, %ld opens, %ld unplugged, %ld refusals, %ld silences\n", rounds,
         kRoundSeconds, s_totals.opens, deeds.unplugged, deeds.refusals, deeds.silences);
  printf("requests   %ld from %d threads, %ld of them in peace, %ld failed\n", long(s_totals.requests),
         kRequesters, long(s_totals.in_peace), long(s_totals.failed));
  printf("beside     %ld reports, %ld scans, %ld pages, %ld captures of %ld bytes, %ld monitors\n",
         deeds.reports, s_totals.scans, s_totals.pages, s_totals.captures, s_totals.trace_bytes,
         s_totals.monitors);
  printf("wrong      %ld\n", long(s_totals.wrong));
  printf("left over  %+ld threads, %+ld descriptors, %+ld bytes of heap\n", more_threads, more_descriptors,
         more_heap);
  // Only in peace must a request succeed: a library that is hardly ever open has shown nothing.
  const bool busy =
      s_totals.in_peace > s_totals.requests / kLeastInPeace && s_totals.opens > rounds && deeds.unplugged > 0;
  if (!busy) fprintf(stderr, "stress: too little happened for a verdict\n");
  constexpr long kHeapSlack = 2 * 1024;
  return busy && s_totals.wrong == 0 && more_threads <= 0 && more_descriptors <= 0 && more_heap < kHeapSlack
             ? 0
             : 1;
}
