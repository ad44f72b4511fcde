// The device, its events, the host's questions and the answers that they must get.
#include <regex.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "brio/brio.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"
#include "brio/wabs.h"
#include "endurance.h"
#include "functions.h"
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

constexpr struct {
  const char* numeric;
  int stat, rat;
} kPlaces[] = {{"23415", 1, 7}, {"26201", 5, 2}, {"20404", 5, 0}, {"310410", 5, 3}};
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
  state.carrier_id = 202;  // with a proximity monitor
  state.apn = "internet";
  state.bas_detail = "";  // in pieces, that line fails the request: nothing tells it from an answer
  for (const auto& place : kPlaces) state.operators.push_back({1, "At (home)", "", place.numeric, place.rat});
  state.operators.push_back({3, "Not for us", "", "23410", 7});
  for (unsigned i = kFirstFile; i < kFirstFile + kFiles; i++)
    state.files[static_cast<int>(i)] = contents(10 * i);
  return state;
}

// What was learned. Written before there are threads.
std::array<std::map<std::string, std::set<std::string>>, kSituations + 1> s_known;

bool documented(const std::string& name, const std::string& shown) {
  std::string answer = "[0-5].*";  // of a plain request
  for (const auto& function : fuzz::kFunctions)
    if (name == function.name) answer = function.answer + std::string("|[13]( .*)?");  // or the gate's
  regex_t compiled;
  expect(regcomp(&compiled, ("^(" + answer + ")$").c_str(), REG_EXTENDED | REG_NOSUB) == 0, answer);
  const bool fits = regexec(&compiled, shown.c_str(), 0, nullptr, 0) == 0;
  regfree(&compiled);
  return fits;
}

}  // namespace

const std::vector<Operation> kOperations = {{"wabs_get_bars", kHost},
                                            {kFile, kAnyone},
                                            {"brio_get_sim_info", kAnyone},
                                            {"brio_get_modem_info", kAnyone},
                                            {"brio_get_sim_plmn_info 1", kAnyone},
                                            {"brio_get_wn3_sim_status", kAnyone},
                                            {"brio_get_network_time", kAnyone},
                                            {"brio_get_bas_status", kAnyone},
                                            {"brio_get_mcc_mnc xxxxxxxx", kAnyone},
                                            {"brio_get_carrier_id", kAnyone},
                                            {"brio_get_data_service_mode", kAnyone},
                                            {"brio_get_roaming_status", kAnyone},
                                            {"brio_get_pdp_context_activation_allowed", kAnyone},
                                            {"brio_get_curr_lte_ant", kAnyone},
                                            {"briolib_update_lte_info", kCrowd},
                                            {"briolib_get_gtscinfo", kCrowd},
                                            {"briolib_get_gtscstat", kCrowd},
                                            {"brio_get_current_network", kCrowd},
                                            {"brio_clear_sms", kCrowd},
                                            {"brio_clear_mru", kCrowd},
                                            {"brio_atcmd_set_auto_mode", kCrowd},
                                            {"brio_set_lte_ant 3", kCrowd},
                                            {"brio_set_sar_pwr 1", kCrowd},
                                            {"wabs_get_data_service_mode", kHost},
                                            {"wabs_get_roaming_status", kHost},
                                            {"wabs_get_mcc_mnc", kHost},
                                            {"wabs_get_module_time", kHost},
                                            {"wabs_get_imsi 16", kHost},
                                            {"wabs_get_radio_serial_number 16", kHost},
                                            {"wabs_get_radio_cert_param1 24", kHost},
                                            {"wabs_get_firmware_version 64", kHost},
                                            {"wabs_get_hplmn_mcc_mnc", kHost},
                                            {"wabs_do_manual_nw_scan 3072", kAlone}};

const std::vector<Trouble> kTroubles = {
    {kFails, true, [](Fault& fault) { fault.replace = true, fault.reply = "\r\nERROR\r\n"; }},
    {kFails, true, [](Fault& fault) { fault.replace = true, fault.reply = "\r\n+CME ERROR: 14\r\n"; }},
    {kFails, true, [](Fault& fault) { fault.silent = true; }},
    {kNone, true, [](Fault& fault) { fault.before = "\r\n\r\n\r\n"; }},
    {kNone, true, [](Fault& fault) { fault.joined = true; }},
    {kFails, false, [](Fault& fault) { fault.before = "\r\n~~ \x01\x02 junk\r\n\r\n$$\r\n"; }},
    {kGone, false, [](Fault& fault) { fault.unplug = true; }},
};

void complain(const std::string& what) {
  const long count = g_tally.wrong += 1;
  if (count <= 30) fprintf(stderr, "endurance: %s\n", what.c_str());
  if (count == 50) fprintf(stderr, "endurance: gives up\n"), _exit(1);
}

Answer call(const std::string& line) {
  lab::Arguments words(line);
  const std::string result = lab::calls().at(words.text())(words);
  const size_t end = std::min(result.find(' '), result.size() - 1);
  return {static_cast<uint32_t>(std::stoul(result)), result.substr(end + 1), ""};
}

Answer call(const Operation& what) {
  g_tally.asked += 1;
  if (what.line != kFile) return call(std::string(what.line));
  const unsigned file = kFirstFile + below(kFiles);
  Answer answer = call("request AT+CRSM=176," + to_string(file) + ",0,0,0 type=2 prefix=+CRSM");
  answer.wanted = lab::quoted("+CRSM: 144,0,\"" + contents(10 * file) + "\"") + " \"OK\"";
  return answer;
}

void learn(Device& device) {
  for (unsigned i = 0; i < kSituations; i++) {
    const unsigned situation = (i + kNetworks) % kSituations;  // the first ones know no network yet
    situate(device.modem, situation);
    expect(wabs_open() == 0, "wabs_open of a healthy modem");
    for (const auto& what : kOperations) {
      if (what.who == kCrowd || what.line == kFile || (what.who == kAlone && situation >= kNetworks))
        continue;
      call("wabs_get_current_network");
      const Answer answer = call(what);
      expect(answer.status == 0, std::string(what.line) + " of a healthy modem");
      for (const unsigned each : {situation, kSituations}) s_known[each][what.line].insert(answer.text);
    }
    call("wabs_set_auto_mode");
    wabs_close();
  }
}

void judge(const Operation& what, const Answer& answer, bool disturbed, unsigned situation,
           bool opened_whole) {
  // Where no network serves, the host keeps the last one.
  const auto& known = s_known[situation < kNetworks ? situation : kSituations];
  const auto found = known.find(what.line);
  const bool right = !answer.wanted.empty()
                         ? answer.text == answer.wanted
                         : what.who == kCrowd || !opened_whole ||
                               (found != known.end() && found->second.count(answer.text) != 0);
  const std::string shown = to_string(answer.status) + (answer.text.empty() ? "" : " ") + answer.text;
  if (answer.status == 0 ? right
                         : disturbed && documented(std::string(what.line, strcspn(what.line, " ")), shown))
    return;
  std::string all = answer.wanted;
  if (found != known.end())
    for (const auto& each : found->second) all += " or " + each;
  complain(std::string(what.line) + (disturbed ? " disturbed: " : ": ") + shown + " for " + all);
}

// ---- What happens

void situate(Modem& modem, unsigned situation) {
  const bool registered = situation < kNetworks;
  const auto& place = kPlaces[situation % 4];
  const auto& raw = kAntennas[situation % 3];
  const std::string clock = kClocks[situation % 3];
  modem.update([&](State& state) {
    for (const modemsim::Domain& domain : modemsim::kDomains) {
      state.*domain.stat.member = registered ? place.stat : situation == kNetworks ? 2 : 3;
      state.*domain.reject_cause.member = registered || situation == kNetworks ? 0 : 13;
    }
    state.bas_a = raw[0], state.bas_b = raw[1], state.antenna = raw[2];
    if (!registered) return;
    state.operator_numeric = state.plmn_text = place.numeric, state.rat = place.rat;
    state.bars = static_cast<int>(2 + situation % 4);  // with fewer, the library goes by reports for good
    state.rssi = 12 * state.bars, state.clock = clock;
  });
  const std::string time = ",\"" + clock.substr(0, 17) + "\"", zone = to_string(atoi(clock.c_str() + 17));
  if (registered) modem.urc(below(2) == 0 ? "+CTZV: " + zone + time : "+CIEV: 9" + time + "," + zone + ",0");
}

unsigned next_situation(unsigned situation) {
  if (situation == kNetworks) return below(kNetworks);
  return situation < kNetworks && below(8) == 0 ? kNetworks + 1 : kNetworks;
}

void report_something(Modem& modem) {
  static constexpr const char* kReports[] = {
      "+CMTI: \"SM\",1", "+GTOTAREJECT: 1,5,7,262,01",           "RING", "+GTBARS:", "+CREG: ",
      "+CTZV: x,\"y\"",  "+STKPCI: 0,\"D009810301010082028182\""};  // the event thread reads the ICCID then
  if (below(3) != 0) return modem.urc(one_of(kReports));
  std::string junk = below(2) == 0 ? "+UNHEARD: " : "~";
  for (unsigned i = below(1500); i > 0; i--) junk += static_cast<char>(' ' + below(220));
  modem.urc(junk);
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
    test_clock::keep_wait();  // the request before is over
    if (traffic.bytes == "ATE0") echoes = false;
    scan_ = holds_scans_ && traffic.bytes == "AT+COPS=?";
    (scan_ ? scans_asked : asked) += 1;
  }
  // Only a held scan is waited for.
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

// Patient enough for a busy machine and a sanitizer.
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
