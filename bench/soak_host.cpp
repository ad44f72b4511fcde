#include "soak_host.h"

#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "brio/brio.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "kit/clock.h"
#include "nipc/nipc_standin.h"
#include "trace_piece.h"

namespace soak {
namespace {

constexpr double kBarsPeriod = 91;
constexpr uint32_t kPreset = 7777;

// Registration as +CREG tells it: 1 home, 2 roaming, 3 denied, 0 anything else.
int registration(int stat) {
  return stat == 1 ? 1 : stat == 5 ? 2 : stat == 3 ? 3 : 0;
}

uint32_t host_mode(int rat) {
  switch (rat) {
    case 0:
      return 3;
    case 3:
      return 2;
    case 2:
    case 4:
    case 5:
    case 6:
      return 1;
    case 7:
      return 4;
    default:
      return 0;
  }
}

// What a network scan shall give: "stat,mcc,mnc,rat,"",name,"";" of every operator that is not forbidden.
std::string scan_list(const State& state, int rat_family) {
  std::string list;
  for (const auto& entry : state.operators) {
    if (entry.stat == 3) continue;
    const bool current =
        entry.numeric == state.operator_numeric && entry.rat == rat_family && entry.stat == 1;
    list += number(current ? 2 : entry.stat) + "," + entry.numeric.substr(0, 3) + "," +
            entry.numeric.substr(3) + "," + number(entry.rat) + ",\"\",\"" + entry.long_name + "\",\"\";";
  }
  return list;
}

}  // namespace

void fill_disk(bool full) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = full ? 0 : limit.rlim_max;
  setrlimit(RLIMIT_FSIZE, &limit);
}

// A failure where there was no cause is a lost answer; everything else that differs is a wrong one.
void Host::check(const char* name, uint32_t status, uint32_t wanted_status, const std::string& got,
                 const std::string& wanted) {
  g_tally.host_calls++;
  if (status == wanted_status && (status != 0 || got == wanted)) return;
  long& count = wanted_status == 0 && status != 0 ? g_tally.lost_answers : g_tally.wrong;
  complain(count, "day " + number(static_cast<long>(device_.now() / 86400)) + ": " + name + ": status " +
                      number(status) + " for " + number(wanted_status) + ", " + got + " for " + wanted);
}

// ---- What the library can know

void Host::see(const State& state) {
  // +CREG first. A denied packet registration counts as a denied circuit-switched one and leaves its own.
  const auto clear = [this] {
    seen_.rat = 255;
    seen_.network = seen_.bars_valid = false;
    seen_.bars = 255;
  };
  seen_.cs = registration(state.cs_stat);
  if (seen_.cs == 0 && seen_.ps == 0) clear();
  const int ps = registration(state.ps_stat);
  if (ps == 3) {
    seen_.cs = 3;
  } else {
    seen_.ps = ps;
    if (ps == 0 && seen_.cs == 0) clear();
  }
  if (ps == 1 || ps == 2 || (ps == 3 && state.ps_reject_cause != 0)) seen_.rat = state.rat;
}

void Host::change(const std::function<void(State&)>& change) {
  const State before = device_.truth();
  device_.change(change);
  const State after = device_.truth();
  if (!open_) return;
  see(after);
  const bool signal_changed =
      before.bars != after.bars || before.rssi != after.rssi || before.ecno != after.ecno;
  if (after.bars_reports && signal_changed) seen_.bars = after.bars;
}

void Host::bars_report(int bars) {
  device_.report("+GTBARS: 7," + number(bars) + ",50,20");
  seen_.bars = bars;
}

// ---- Life

void Host::open(uint32_t wanted) {
  device_.listen(true);
  device_.opening(true);
  const uint32_t status = wabs_open();
  device_.opening(false);
  check("wabs_open", status, wanted, "", "");
  open_ = status == WABS_STATUS_OK;
  test_clock::keep_wait();
  if (!open_) {
    device_.listen(false);
    check("wabs_is_blib_open", 0, 0, number(wabs_is_blib_open()), "0");
    return;
  }
  device_.settle();
  at_open_ = device_.truth();
  const uint32_t mcc = seen_.mcc, mnc = seen_.mnc;
  seen_ = Seen();
  seen_.mcc = mcc;
  seen_.mnc = mnc;
  see(at_open_);
  traced_ = 0;
}

void Host::close() {
  if (open_) device_.settle();
  device_.listen(false);
  check("wabs_close", wabs_close(), 0, "", "");
  open_ = false;
  check_files();
}

// A trace file holds what the modem sent.
void Host::check_files() {
  for (const auto& entry : std::filesystem::directory_iterator(device_.root().dir() + "/mnt/us")) {
    const std::string bytes = device_.root().read("/mnt/us/" + entry.path().filename().string()).value_or("");
    const bool whole = bytes.size() == traced_ && bench::piece_of_trace(bytes);
    check("trace file", 0, 0, whole ? "whole" : "torn", "whole");
    std::filesystem::remove(entry.path());
  }
}

void Host::recover() {
  for (int i = 0; i < 10000 && briolib_check_library_status() == BRIO_STATUS_OK; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  uint32_t value = 0;
  check("status gate", 0, 0, number(briolib_check_library_status()), number(BRIO_STATUS_FATAL));
  check("bars of a lost modem", wabs_get_bars(&value), WABS_STATUS_LIBRARY_FAILURE, "", "");
  check("roaming of a lost modem", wabs_get_roaming_status(&value), WABS_STATUS_LIBRARY_FAILURE, "", "");
  device_.listen(false);
  open_ = false;
  traced_ = 0;
  wabs_close();
  std::filesystem::remove_all(device_.root().dir() + "/mnt/us");
  std::filesystem::create_directory(device_.root().dir() + "/mnt/us");
  open(WABS_STATUS_LIBRARY_FAILURE);  // it is still away
  if (!device_.modem().plug()) complain(g_tally.wrong, "the modem does not come back");
  open();
}

// ---- Questions

void Host::reader_in_front(bool on) {
  reader_ = on;
  NipcStandinSetProperty("com.quarto.appmgrd", "activeApp",
                         on ? "com.quarto.shelf.viewer" : "com.quarto.home");
}

void Host::poll() {
  const State truth = device_.truth();
  const long polls = device_.polls();
  const bool reports_asked = device_.reports_asked();
  uint32_t bars = 0;
  const uint32_t status = wabs_get_bars(&bars);
  const bool attached = seen_.ps == 1 || seen_.ps == 2;
  if (!attached) {
    check("bars without a network", status, 0, number(bars), number(WABS_BARS_NOT_ATTACHED));
    see(truth);  // it may have asked for the registration
  } else {
    if (device_.polls() != polls) {
      seen_.bars = truth.bars;
      seen_.bars_valid = true;
      seen_.polled_at = device_.now();
    } else if (!seen_.bars_valid) {
      complain(g_tally.wrong, "bars were never asked for");
    } else if (!reader_ && device_.now() - seen_.polled_at >= kBarsPeriod + 1) {
      // The modem reports low signal by itself. After a reopening it does not, and the library goes by the
      // last value on purpose.
      if (!reports_asked) complain(g_tally.wrong, "bars are too old");
      if (!truth.bars_reports) g_tally.held_bars++;
    }
    check("wabs_get_bars", status, 0, number(bars), number(seen_.bars == 0 ? 1 : seen_.bars));
    // Asked for together with the bars; a modem that was refused since then names none.
    seen_.network = seen_.network || registration(truth.ps_stat) == seen_.ps;
  }

  uint32_t mode = 9, roaming = 9, mcc = kPreset, mnc = kPreset;
  const uint32_t mode_status = wabs_get_data_service_mode(&mode);
  check("wabs_get_data_service_mode", mode_status, 0, number(mode), number(host_mode(seen_.rat)));
  const uint32_t roaming_status = wabs_get_roaming_status(&roaming);
  check("wabs_get_roaming_status", roaming_status, 0, number(roaming),
        number(seen_.cs == 1   ? 0
               : seen_.cs == 2 ? 1
                               : 8));
  const uint32_t mcc_status = wabs_get_mcc_mnc(&mcc, &mnc);
  if (attached && seen_.network) {
    seen_.mcc = static_cast<uint32_t>(atoi(truth.operator_numeric.substr(0, 3).c_str()));
    seen_.mnc = static_cast<uint32_t>(atoi(truth.operator_numeric.substr(3).c_str()));
  }
  // Without a network: the last one, or untouched.
  const bool untouched = !(attached && seen_.network) && mcc == kPreset && mnc == kPreset;
  check("wabs_get_mcc_mnc", mcc_status, 0, untouched ? "untouched" : number(mcc) + "-" + number(mnc),
        untouched ? "untouched" : number(seen_.mcc) + "-" + number(seen_.mnc));
}

void Host::ask_time() {
  time_t utc = 0;
  int32_t offset = 0;
  const uint32_t status = wabs_get_module_time(&utc, &offset);
  check("wabs_get_module_time", status, 0, number(offset), number(zone_of(device_.truth()) * 900));
}

void Host::ask_identity() {
  char text[64];
  const struct {
    const char* name;
    uint32_t (*get)(char*, uint32_t);
    const std::string& wanted;
  } texts[] = {{"IMSI", wabs_get_imsi, at_open_.imsi},
               {"IMEI", wabs_get_radio_serial_number, at_open_.imei},
               {"ICCID", wabs_get_radio_cert_param1, at_open_.iccid},
               {"firmware", wabs_get_firmware_version, at_open_.firmware}};
  for (const auto& row : texts) {
    const uint32_t status = row.get(text, sizeof(text));
    check(row.name, status, 0, text, row.wanted);
  }
  uint32_t mcc = 0, mnc = 0;
  const uint32_t status = wabs_get_hplmn_mcc_mnc(&mcc, &mnc);
  check("wabs_get_hplmn_mcc_mnc", status, 0, number(mcc) + "-" + number(mnc), "234-15");
}

void Host::visit_page(Random& random, bool disk_full) {
  if (disk_full) fill_disk(true);
  const int pages = 1 + static_cast<int>(random() % 8);
  for (int i = 0; i < pages; i++) {
    char page[8192];
    const uint32_t status = wabs_get_log_string(page, sizeof(page), 1);
    if (page_left_) {  // the first call of a visit only takes note of it
      check("page of a new visit", status, 0, page, "");
      page_left_ = false;
      continue;
    }
    const std::string text = page;
    std::string missing;
    for (const std::string& part :
         {"2.1  Firmware Version:  " + at_open_.firmware + " \n", "2.7  IMEI:  " + at_open_.imei + " \n",
          std::string("2.4  Carrier ID:  202 \n"),
          "(" + number(seen_.cs) + ") \n3.2 PS Reg Status:", "(" + number(seen_.ps) + ") \n4  **"}) {
      if (text.find(part) == std::string::npos) missing += part;
    }
    check("page", status, 0, missing, "");
    device_.advance(3);
  }
  if (disk_full) {
    fill_disk(false);
  } else if (pages > 2) {
    const std::string wanted = "\nLOCI: " + device_.truth().files.at(kLociFile) + "\n";
    const std::string text = device_.root().read("/var/local/wan/static_info").value_or("");
    const bool there = text.find(wanted) != std::string::npos;
    check("static information file", 0, 0, there ? wanted : "something else", wanted);
  }
  check("wabs_exit_611_logging", wabs_exit_611_logging(), 0, "", "");
  page_left_ = true;
}

// Errors, silence and an abort by another thread; kJoined: nothing is wrong.
void Host::scan(Random& random, Trouble trouble) {
  wabs_get_current_network();
  static constexpr int kFamilies[] = {0, -1, 2, 0, 2, 2, 2, 7};
  const int family = seen_.rat < 8 ? kFamilies[seen_.rat] : -1;
  const bool known = seen_.network && seen_.rat < 8;
  State before = device_.truth();
  if (!known) before.operator_numeric.clear();

  modemsim::Fault fault;
  fault.command = "AT+COPS=?";
  fault.times = 1;
  fault.silent = trouble == Trouble::kSilence;
  fault.replace = trouble == Trouble::kError;
  fault.reply = "\r\nERROR\r\n";
  if (fault.silent || fault.replace) device_.modem().fault(fault);
  char list[1024] = "";
  const uint32_t status = wabs_do_manual_nw_scan(list, sizeof(list));
  const uint32_t wanted = fault.silent    ? uint32_t{WABS_STATUS_SCAN_RUNNING}
                          : fault.replace ? uint32_t{WABS_STATUS_LIBRARY_FAILURE}
                                          : uint32_t{WABS_STATUS_OK};
  check("wabs_do_manual_nw_scan", status, wanted, list, scan_list(before, family));
  device_.settle();
  see(device_.truth());
  if (random() % 2 == 0) poll();
  check("wabs_set_auto_mode", wabs_set_auto_mode(), 0, "", "");
  device_.settle();
  see(device_.truth());
}

void Host::grip() {
  for (const bool near : {true, false}) {
    device_.root().sensor("prox_diff", near ? 200 : 0);
    for (int i = 0; i < 2; i++) {
      if (!test_clock::tick()) complain(g_tally.wrong, "the sensor's monitor does not poll");
    }
    device_.modem().wait_written();
    const std::string got = number(__atomic_load_n(&g_pre_sar_mode, __ATOMIC_RELAXED)) +
                            (device_.truth().body_sar ? " back-off" : " full power");
    check("hand at the sensor", 0, 0, got, near ? "1 back-off" : "0 full power");
  }
}

void Host::trace(uint64_t bytes) {
  device_.modem().stream_trace(bytes);
  traced_ += bytes;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  uint64_t size = 0;
  while (size < traced_ && std::chrono::steady_clock::now() < end) {
    size = 0;
    for (const auto& entry : std::filesystem::directory_iterator(device_.root().dir() + "/mnt/us")) {
      size += entry.file_size();
    }
  }
  check("trace", 0, 0, number(static_cast<long>(size)), number(static_cast<long>(traced_)));
}

}  // namespace soak
