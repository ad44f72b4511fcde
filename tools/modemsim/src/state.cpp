#include "state.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace modemsim {
namespace {

constexpr int kIccidFile = 12258;

// What the registration reports of every domain say of the cell.
constexpr int State::*kCell[] = {&State::cell_id, &State::rat, &State::band};

}  // namespace

std::string format(const char* text, ...) {
  va_list arguments;
  va_start(arguments, text);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker misses va_start above
  const int length = std::vsnprintf(nullptr, 0, text, arguments);
  va_end(arguments);
  std::string result(static_cast<std::size_t>(std::max(0, length)), '\0');
  va_start(arguments, text);
  std::vsnprintf(result.data(), result.size() + 1, text, arguments);
  va_end(arguments);
  return result;
}

std::map<int, std::string> default_sim_files() {
  return {
      // User list: Germany 01, Canada 720, each with its access technologies.
      {28512,
       "62F2104080"
       "03022780C0"},
      // Operator list: the home network, 311-180, Mexico 020 and 03.
      {28513,
       "1300144000"
       "1301814000"
       "3304208000"
       "33F4300080"},
      {28514, "1300144000"},
      {28531,
       "A1B2C3D4"
       "112233"
       "1300142F01"
       "01"
       "00"},
      {28539,
       "130062"
       "130013"
       "FFFFFF"
       "FFFFFF"},
      {28542,
       "C0FFEE01"
       "1300142F01"
       "00"
       "00"},
      {28633,
       "1300144000"
       "130014C080"
       "FFFFFF0000"},
      {28643,
       "0BF6130014800102DEADBEEF"
       "1300142F01"
       "00"},
  };
}

const std::vector<Report> kReports = {
    {"+GTBARS",
     {"bars_reports", &State::bars_reports},
     bars_fields,
     {&State::bars, &State::rssi, &State::ecno}},
    {"+BASURC",
     {"bas_reports", &State::bas_reports},
     bas_fields,
     {&State::bas_a, &State::bas_b, &State::antenna}},
    {"+CTZV", {"time_reports", &State::time_reports}, nullptr, {}},
    {"+GTOTAREJECT", {"reject_reports", &State::reject_reports}, nullptr, {}},
};

Reported reported(const State& state) {
  Reported values;
  const auto add = [&](int State::*member) { values.emplace_back(member, state.*member); };
  for (int State::*member : kCell) add(member);
  for (const Domain& domain : kDomains) add(domain.stat.member), add(domain.area);
  for (const Report& report : kReports) std::for_each(report.watched.begin(), report.watched.end(), add);
  return values;
}

bool is_registered(int stat) {
  return stat == 1 || stat == 5;
}

bool is_registered(const State& state) {
  return std::any_of(std::begin(kDomains), std::end(kDomains),
                     [&](const Domain& domain) { return is_registered(state.*domain.stat.member); });
}

bool is_known(const State& state) {
  return std::any_of(std::begin(kDomains), std::end(kDomains),
                     [&](const Domain& domain) { return state.*domain.stat.member != 0; });
}

void set_stat(State& state, int stat) {
  for (const Domain& domain : kDomains) state.*domain.stat.member = stat;
}

std::string registration_fields(const State& state, const Domain& domain) {
  const int stat = state.*domain.stat.member;
  const int cause = state.*domain.reject_cause.member;
  const int mode = state.*domain.mode.member;
  const bool rejected = stat == 3 && cause != 0;
  std::string text = std::to_string(stat);
  if (mode < 2 || !(is_registered(stat) || rejected)) return text;
  text += format(",\"%04X\",\"%08X\",%d", static_cast<unsigned>(state.*domain.area) & 0xFFFFU,
                 static_cast<unsigned>(state.cell_id), state.rat);
  if (mode == 99) text += "," + std::to_string(state.band);
  if (rejected) text += format(",\"0\",\"%d\"", cause);
  return text;
}

std::vector<std::string> reports_of_change(const Reported& before, const State& now) {
  std::vector<std::string> lines;
  const auto changed = [&](int State::*member) {
    const auto was =
        std::find_if(before.begin(), before.end(), [&](const auto& value) { return value.first == member; });
    return was->second != now.*member;
  };
  const bool cell = std::any_of(std::begin(kCell), std::end(kCell), changed);
  for (const Domain& domain : kDomains) {
    const int mode = now.*domain.mode.member;
    const bool moved = mode >= 2 && (cell || changed(domain.area)) && is_registered(now.*domain.stat.member);
    if (mode == 0 || !(changed(domain.stat.member) || moved)) continue;
    lines.push_back("+" + std::string(domain.name) + ": " + registration_fields(now, domain));
  }
  for (const Report& report : kReports) {
    const bool on = now.*report.on.member;
    if (!on || std::none_of(report.watched.begin(), report.watched.end(), changed)) continue;
    lines.push_back(std::string(report.name) + ": " + report.fields(now));
  }
  return lines;
}

Network current_network(const State& state) {
  Network network = {state.operator_numeric, state.plmn_text, {},        state.rat,   state.lac,
                     state.cell_id,          state.tac,       state.rac, state.arfcn, state.band,
                     state.band_text};
  for (std::size_t i = 0; i < std::size(kDomains); i++) network.stat[i] = state.*kDomains[i].stat.member;
  return network;
}

void enter_network(State& state, const Network& network) {
  for (std::size_t i = 0; i < std::size(kDomains); i++) state.*kDomains[i].stat.member = network.stat[i];
  state.operator_numeric = network.numeric;
  state.plmn_text = network.plmn_text;
  state.rat = network.rat;
  state.lac = network.lac;
  state.cell_id = network.cell_id;
  state.tac = network.tac;
  state.rac = network.rac;
  state.arfcn = network.arfcn;
  state.band = network.band;
  state.band_text = network.band_text;
}

std::string mcc_of(const std::string& numeric) {
  return numeric.substr(0, 3);
}
std::string mnc_of(const std::string& numeric) {
  return numeric.size() > 3 ? numeric.substr(3) : "";
}

std::string ctzv_line(const std::string& clock) {
  const std::size_t sign = clock.find_first_of("+-");
  const int zone = sign == std::string::npos ? 0 : std::atoi(clock.c_str() + sign);
  return "+CTZV: " + std::to_string(zone) + ",\"" + clock.substr(0, sign) + "\"";
}

std::string ciev_line(const std::string& clock, int dst) {
  const std::size_t sign = clock.find_first_of("+-");
  const std::string zone = sign == std::string::npos ? "+0" : clock.substr(sign);
  return "+CIEV: 9,\"" + clock.substr(0, sign) + "\"," + zone + "," + std::to_string(dst);
}

std::string reject_line(int procedure, int cause, int mcc, int mnc) {
  return format("+GTOTAREJECT: 1,%d,%d,%03d,%02d", procedure, cause, mcc, mnc);
}

std::string refresh_line() {
  return "+STKPCI: 0,\"D009810301010082028182\"";
}

std::string bas_fields(const State& state) {
  return format("%d,%d,%d", state.bas_a, state.bas_b, state.antenna);
}

std::string bars_fields(const State& state) {
  if (state.radio == 0) return format("%d,0,0,0", state.rat);
  return format("%d,%d,%d,%d", state.rat, state.bars, state.rssi, state.ecno);
}

// EF ICCID holds the digits with the two of each byte swapped, filled up with F.
std::string sim_file(const State& state, int id) {
  const auto found = state.files.find(id);
  if (found != state.files.end()) return found->second;
  if (id != kIccidFile) return "";
  std::string digits = state.iccid.substr(0, 20);
  digits.resize(20, 'F');
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) std::swap(digits[i], digits[i + 1]);
  return digits;
}

void reset_settings(State& state) {
  state.echo = true;
  state.cmee = State().cmee;
  state.cops_format = 0;
  for (const Domain& domain : kDomains) state.*domain.mode.member = 0;
  for (const Report& report : kReports) state.*report.on.member = false;
}

void reset_session(State& state) {
  reset_settings(state);
  state.trace_on = false;
  state.radio = 1;
}

}  // namespace modemsim
