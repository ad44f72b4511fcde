// The device, what the library can know of it, what the host asks, and what happens to the modem.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "endurance.h"
#include "kit/clock.h"
#include "kit/process.h"
#include "lab/functions.h"
#include "trace_piece.h"

static endurance::Relaxed<long> s_handled;  // reports whose parser has returned

// The event thread passes two nulls; a response callback never does.
extern "C" uint32_t __wrap_at_parse(char* line, void* argument_a, void* argument_b) {
  const uint32_t status = at_parse(line, argument_a, argument_b);
  if (argument_a == nullptr && argument_b == nullptr) s_handled += 1;
  return status;
}

namespace endurance {
namespace {

using std::to_string;
using namespace std::string_literals;
using K = const Known&;

constexpr char kFile[] = "a piece of a SIM file";

// A network, its technology, and what callers of the library and of the host interface know that as.
struct Place {
  const char* numeric;
  int stat, rat;
  const char *mode, *host_mode;
};
constexpr Place kPlaces[] = {{"23415", 1, 7, "5", "4"},
                             {"26201", 5, 2, "3", "1"},
                             {"20404", 5, 0, "1", "3"},
                             {"310410", 5, 3, "2", "2"}};
constexpr const char* kClocks[] = {"26/03/07,09:05:00-28", "26/03/07,17:05:00+04", "26/07/07,18:05:00+08"};
constexpr int kAntennas[][3] = {{320, 288, 0}, {160, 480, 1}, {16, 32, 0}};

// SIM files that all differ, in length as well.
constexpr unsigned kFirstFile = 40000, kFiles = 300;
std::string contents(unsigned file) {
  std::string text;
  for (unsigned i = 0; i <= file % 20; i++) text += to_string(file);
  return text;
}

State first_state() {
  State state;
  state.imsi = "234151234567890";
  state.iccid = "89441000301234567890";
  state.carrier_id = 202;  // with a proximity monitor
  state.apn = "internet";
  state.bas_detail = "";  // in pieces, that line fails the request: nothing tells it from an answer
  state.operator_numeric = state.plmn_text = kPlaces[0].numeric;
  for (const Place& place : kPlaces)
    state.operators.push_back({1, "At (home)", "", place.numeric, place.rat});
  state.operators.push_back({3, "Not for us", "", "23410", 7});
  for (unsigned i = kFirstFile; i < kFirstFile + kFiles; i++)
    state.files[static_cast<int>(i)] = contents(10 * i);
  return state;
}

// Home and roaming by 1 and 2, denied 3, anything else 0.
int registration(int stat) {
  return stat == 1 ? 1 : stat == 5 ? 2 : stat == 3 ? 3 : 0;
}

// ---- What the answers must be

std::string zone(K known) {
  return to_string(900 * atoi(known.modem.clock.c_str() + known.modem.clock.find_first_of("+-")));
}
std::string serving(K known) {
  const std::string& numeric = known.modem.operator_numeric;
  return known.serves() ? numeric.substr(0, 3) + " " + to_string(atoi(numeric.c_str() + 3)) : known.plmn;
}
std::string plmn(K known) {
  const std::string text = known.network ? known.modem.operator_numeric : BRIO_PLMN_UNKNOWN BRIO_PLMN_UNKNOWN;
  return lab::quoted(text.substr(0, 3) + '\0' + (text.substr(3) + std::string(2, '\0')).substr(0, 4));
}
std::string antennas(K known) {
  const int raw[] = {known.modem.bas_a / 16, known.modem.bas_b / 16}, first = known.modem.antenna == 1;
  return "value_a=" + to_string(raw[first]) + " value_b=" + to_string(raw[1 - first]) +
         " antenna=" + to_string(known.modem.antenna);
}
template <auto kMode>
std::string mode(K known) {
  const auto here =
      std::find_if(std::begin(kPlaces), std::end(kPlaces), [&](auto& each) { return each.rat == known.rat; });
  return here != std::end(kPlaces) ? here->*kMode : "0";
}
std::string scan_list(K known) {
  std::string list;
  for (const auto& each : known.modem.operators) {
    const bool here = known.network && each.numeric == known.modem.operator_numeric && each.rat == known.rat;
    if (each.stat == 3) continue;
    list += (here && each.rat != 3 ? "2," : "1,") + each.numeric.substr(0, 3) + "," + each.numeric.substr(3) +
            "," + to_string(each.rat) + ",\"\",\"" + each.long_name + "\",\"\";";  // it knows no EDGE
  }
  return lab::quoted(list);
}
std::string identity(K known) {
  return "iccid=" + lab::quoted(known.modem.iccid) + " imsi=" + lab::quoted(known.modem.imsi);
}
std::string modem_info(K known) {
  return "fw_ver=" + lab::quoted(known.modem.firmware) + " serial=" + lab::quoted(known.modem.serial) +
         " imei=" + lab::quoted(known.modem.imei) + " hw_ver=" + lab::quoted(known.modem.hardware) +
         " fault_ct=0";
}
std::string nothing(K) {
  return "";
}

constexpr uint32_t kFailed = BRIO_STATUS_FAILURE, kTimeout = BRIO_STATUS_TIMEOUT,
                   kAway = BRIO_STATUS_UNAVAILABLE, kHostFailed = WABS_STATUS_LIBRARY_FAILURE,
                   kScans = WABS_STATUS_SCAN_RUNNING, kError = BLPKT_STATUS_ERROR,
                   kLate = BLPKT_STATUS_TIMEOUT;

}  // namespace

const std::vector<Operation> kOperations = {
    {kFile, kAnyone, nothing, kError, kLate, "AT+CRSM=176"},
    {"brio_get_sim_info", kAnyone, identity, kFailed, kFailed, "AT+CIMI"},
    {"brio_get_modem_info", kAnyone, modem_info, kFailed, kFailed},
    {"brio_get_sim_plmn_info 1", kAnyone, [](K) { return "home_mcc=\"234\" home_mnc=\"15\""s; }, kFailed,
     kFailed},
    {"brio_get_wn3_sim_status", kAnyone,
     [](K k) { return to_string(k.modem.card_status == 3 ? SIM_STATUS_OK : NO_SIM); }, kFailed, kTimeout,
     "AT+GTSIMSTATUS?"},
    {"brio_get_network_time", kAnyone,
     [](K k) { return "time_zone=" + to_string(atoi(zone(k).c_str()) / 900) + " dst=0"; }, kTimeout, kTimeout,
     "AT+CCLK?"},
    {"brio_get_bas_status", kAnyone, antennas, kTimeout, kTimeout, "AT@EPHY:EPHY_BAS_STATUS(2)"},
    {"brio_get_mcc_mnc xxxxxxxx", kAnyone, plmn},
    {"brio_get_carrier_id", kAnyone, [](K k) { return to_string(k.modem.carrier_id); }},
    {"brio_get_data_service_mode", kAnyone, mode<&Place::mode>},
    {"brio_get_roaming_status", kAnyone, [](K k) { return to_string(k.cs % 3); }},
    {"brio_get_pdp_context_activation_allowed", kAnyone, [](K k) { return k.attached() ? "1 1"s : "0 0"; }},
    {"brio_get_curr_lte_ant", kCrowd, [](K k) { return to_string(k.modem.antenna); }, kAway, kAway},
    {"briolib_update_lte_info", kCrowd, nothing, kFailed, kTimeout},
    {"briolib_get_gtscinfo", kCrowd, nothing, kFailed, kTimeout},
    {"briolib_get_gtscstat", kCrowd, nothing, kFailed, kTimeout},
    {"brio_get_current_network", kCrowd, nothing},
    {"brio_clear_sms", kCrowd, nothing, kTimeout, kTimeout},
    {"brio_clear_mru", kCrowd, nothing, kFailed, kTimeout},
    {"brio_atcmd_set_auto_mode", kCrowd, nothing, kFailed, kTimeout},
    {"brio_set_lte_ant 3", kCrowd, nothing, kFailed, kTimeout},
    {"brio_set_sar_pwr 1", kCrowd, nothing, kError, kLate},
    {"wabs_get_bars", kHost,
     [](K k) { return to_string(k.attached() ? uint32_t(std::max(k.bars, 1)) : WABS_BARS_NOT_ATTACHED); },
     kHostFailed, kHostFailed},
    {"wabs_get_data_service_mode", kHost, mode<&Place::host_mode>, kHostFailed, kHostFailed},
    {"wabs_get_roaming_status", kHost, [](K k) { return k.cs == 1   ? "0"s
                                                        : k.cs == 2 ? "1"
                                                                    : "8"; },
     kHostFailed, kHostFailed},
    {"wabs_get_mcc_mnc", kHost, serving, kHostFailed, kHostFailed},
    {"wabs_get_module_time", kHost, zone, kHostFailed, kHostFailed},
    {"wabs_get_imsi 16", kHost, [](K k) { return lab::quoted(k.modem.imsi); }},
    {"wabs_get_radio_serial_number 16", kHost, [](K k) { return lab::quoted(k.modem.imei); }},
    {"wabs_get_radio_cert_param1 24", kHost, [](K k) { return lab::quoted(k.modem.iccid); }},
    {"wabs_get_firmware_version 64", kHost, [](K k) { return lab::quoted(k.modem.firmware); }},
    {"wabs_get_hplmn_mcc_mnc", kHost, [](K) { return "234 15"s; }, kHostFailed, kHostFailed},
    {"wabs_do_manual_nw_scan 3072", kAlone, scan_list, kHostFailed, kScans, "AT+COPS=?"},
};

const std::vector<Trouble> kTroubles = {
    {"an error", kRefused, true, [](Fault& fault) { fault.replace = true, fault.reply = "\r\nERROR\r\n"; }},
    {"a CME error", kRefused, true,
     [](Fault& fault) { fault.replace = true, fault.reply = "\r\n+CME ERROR: 14\r\n"; }},
    {"silence", kUnheard, true, [](Fault& fault) { fault.silent = true; }},
    {"blank lines", kNone, true, [](Fault& fault) { fault.before = "\r\n\r\n\r\n"; }},
    {"joined lines", kNone, true, [](Fault& fault) { fault.joined = true; }},
    {"junk", kSpoilt, false, [](Fault& fault) { fault.before = "\r\n~~ \x01\x02 junk\r\n\r\n$$\r\n"; }},
    {"unplugging", kGone, false, [](Fault& fault) { fault.unplug = true; }},
};

void complain(const std::string& what) {
  const long count = g_tally.wrong += 1;
  if (count <= 30) fprintf(stderr, "endurance: %s\n", what.c_str());
  if (count == 50) fprintf(stderr, "endurance: gives up\n"), _exit(1);
}

const Operation& operation(const char* line) {
  return *std::find_if(kOperations.begin(), kOperations.end(), [&](auto& each) { return each.line == line; });
}

Answer call(const std::string& line) {
  lab::Arguments words(line);
  const std::string name = words.text(), result = lab::calls().at(name)(words);
  const size_t end = std::min(result.find(' '), result.size() - 1);
  return {static_cast<uint32_t>(std::stoul(result)), result.substr(end + 1), ""};
}

Answer ask(const Operation& what) {
  if (what.line != kFile) return call(what.line);
  const unsigned file = kFirstFile + below(kFiles);
  Answer answer = call("request AT+CRSM=176," + to_string(file) + ",0,0,0 type=2 prefix=+CRSM");
  answer.wanted = lab::quoted("+CRSM: 144,0,\"" + contents(10 * file) + "\"") + " \"OK\"";
  return answer;
}

void judge(const Operation& what, const Answer& answer, uint32_t allowed, const std::vector<Known>& known,
           const char* circumstances) {
  // Of a record, its last fields.
  const auto is_it = [&](const std::string& wanted) {
    const std::string text = " " + answer.text, end = " " + wanted;
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
  };
  const auto says = [&](K each) { return is_it(what.truth(each)); };
  const bool right =
      answer.wanted.empty() ? std::any_of(known.begin(), known.end(), says) : is_it(answer.wanted);
  if ((allowed & bits({answer.status})) != 0 && (answer.status != 0 || right)) return;
  complain(what.line + " " + circumstances + ": status " + to_string(answer.status) + ", " + answer.text +
           " for " + (answer.wanted.empty() ? what.truth(known.back()) : answer.wanted));
}

const std::vector<Known>& possible() {
  static const std::vector<Known> s_possible = [] {
    std::vector<Known> all(2);
    for (Known& known : all)
      known.modem = first_state(), known.modem.carrier_id = 0xFFFF, known.modem.clock = "+0";
    all[1].plmn = "0 0";
    for (int i = 0; i < 6; i++) {
      Known here;
      here.modem = first_state();
      const Place& place = kPlaces[i % 4];
      const auto& raw = kAntennas[i % 3];
      here.modem.operator_numeric = place.numeric, here.modem.rat = place.rat,
      here.modem.clock = kClocks[i % 3];
      here.modem.cs_stat = here.modem.ps_stat = place.stat;
      here.modem.bas_a = raw[0], here.modem.bas_b = raw[1], here.modem.antenna = raw[2];
      here.see();
      here.network = true;
      here.bars = i;
      all.push_back(here);
    }
    return all;
  }();
  return s_possible;
}

void Known::see() {
  cs = registration(modem.cs_stat);
  if (cs == 0 && ps == 0) leave();
  const int now = registration(modem.ps_stat);
  (now == 3 ? cs : ps) = now;  // a denied packet registration counts as a circuit-switched one
  if (cs == 0 && ps == 0) leave();
  if (now != 0) rat = modem.rat;
}

// ---- What happens

// Networks change by way of a search.
void change_network(Modem& modem) {
  modem.update([](State& state) {
    const Place& place = one_of(kPlaces);
    const int now = registration(state.cs_stat);
    const bool is_denied = now != 0 && now != 3 && below(8) == 0;
    state.cs_stat = state.ps_stat = now == 0 ? place.stat : is_denied ? 3 : 2;
    state.cs_reject_cause = state.ps_reject_cause = is_denied ? 13 : 0;
    if (now == 0) state.operator_numeric = state.plmn_text = place.numeric, state.rat = place.rat;
  });
}

void change_something(Modem& modem) {
  static constexpr const char* kReports[] = {
      "+CMTI: \"SM\",1", "+GTOTAREJECT: 1,5,7,262,01",           "RING", "+GTBARS:", "+CREG: ",
      "+CTZV: x,\"y\"",  "+STKPCI: 0,\"D009810301010082028182\""};  // the event thread reads the ICCID then
  const auto& raw = one_of(kAntennas);
  const std::string clock = one_of(kClocks), time = ",\"" + clock.substr(0, 17) + "\"";
  const std::string zone = to_string(atoi(clock.c_str() + 17));
  std::string junk = below(2) == 0 ? "+UNHEARD: " : "~";
  const int bars = static_cast<int>(below(6));
  switch (below(8)) {
    case 0:
      return change_network(modem);
    case 1:
      return modem.update(
          [&](State& state) { state.bas_a = raw[0], state.bas_b = raw[1], state.antenna = raw[2]; });
    case 2:
      modem.with_state([&](State& state) { state.clock = clock; });
      return modem.urc(below(2) == 0 ? "+CTZV: " + zone + time : "+CIEV: 9" + time + "," + zone + ",0");
    case 3:
      return modem.urc(one_of(kReports));
    case 4:
      for (unsigned i = below(1500); i > 0; i--) junk += static_cast<char>(' ' + below(220));
      return modem.urc(junk);
    default:
      return modem.update([&](State& state) { state.bars = bars, state.rssi = 12 * bars; });
  }
}

// ---- The device

Device::Device() : modem(first_state()) {
  modem.observe([this](const modemsim::Traffic& traffic) { observe(traffic); });
  root.rest_sensor();
  root.write("/var/local/wan/debug/trace_filter.cfg", "AT+XSYSTRACE=1\n");
  brio_set_root_dir(root.dir().c_str());
  if (!modem.start(root.dir())) complain("the modem does not start: " + modem.error()), _exit(1);
}

void Device::hold_scans() {
  Fault fault;
  fault.command = "AT+COPS=?";
  fault.silent = true;
  modem.fault(fault);
  holds_scans_ = true;
}

// Modem's thread.
void Device::observe(const modemsim::Traffic& traffic) {
  if (traffic.to_modem) {
    g_tally.commands += 1;
    scan_ = holds_scans_ && traffic.bytes == "AT+COPS=?";
    (scan_ ? scans_asked : asked) += 1;
  }
  // Nobody waits for what never comes, but for a scan that is held.
  if (!traffic.to_modem && traffic.port == Port::kQuery && traffic.bytes.empty() && !scan_)
    test_clock::expire_wait();
  if (traffic.port != Port::kUrc) return;
  for (const char c : traffic.bytes) {
    if (c != '\r' && c != '\n') {
      line_ += c;
    } else if (!std::exchange(line_, "").empty() && listens_) {
      said_ += 1;
      g_tally.reports += 1;
    }
  }
}

void Device::listen(bool on) {
  listens_ = on;
  said_ = long(s_handled);
}

// With the patience that a busy machine and a sanitizer need.
void Device::settle() {
  for (int i = 0; i < 6; i++) {
    modem.wait_written();
    if (!listens_ || process::eventually([this] { return s_handled == said_; })) return;
  }
  complain(to_string(said_ - s_handled) + " reports were not handled");
  said_ = long(s_handled);
}

long Device::captured() {
  long size = 0;
  for (const auto& entry : std::filesystem::directory_iterator(root.path("/mnt/us")))
    size += long(entry.file_size());
  return size;
}

void Device::check_traces() {
  for (const auto& entry : std::filesystem::directory_iterator(root.path("/mnt/us"))) {
    const std::string name = "/mnt/us/" + entry.path().filename().string();
    if (!bench::piece_of_trace(root.read(name).value_or(""))) complain("a hole in the trace " + name);
    root.remove(name);
  }
}

}  // namespace endurance
