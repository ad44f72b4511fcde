#include "commands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "at_errors.h"
#include "handlers.h"
#include "text.h"

namespace modemsim {
namespace {

// "" when the SIM can be read, otherwise the error.
std::string sim_error(const State& state) {
  switch (state.card_status) {
    case 3:
      return "";
    case 2:
    case 5:
      return cme(kSimMissing);
    case 0:
    case 1:
    case 4:
      return cme(kSimBusy);
    default:
      return cme(kSimFailure);
  }
}

// -- Basics

std::string ok(Session&, const Arguments&) {
  return kOk;
}

template <bool State::*flag>
std::string set_flag(Session& s, const Arguments& arguments) {
  int value = 0;
  if (!take(arguments, {0, 1}, value)) return kError;
  s.state.*flag = value == 1;
  return kOk;
}

std::string echo_off(Session& s, const Arguments&) {
  s.state.echo = false;
  return kOk;
}

std::string echo_on(Session& s, const Arguments&) {
  s.state.echo = true;
  return kOk;
}

std::string reset(Session& s, const Arguments&) {
  reset_settings(s.state);
  return kOk;
}

std::string identity(Session& s, const Arguments&) {
  return line(s.state.manufacturer) + line(s.state.model) + line("Revision: " + s.state.firmware) +
         answer("IMEI: " + s.state.imei);
}

std::string imei_query(Session& s, const Arguments&) {
  return answer("+CGSN: " + s.state.imei);
}

std::string manufacturer_query(Session& s, const Arguments&) {
  return answer("+CGMI: " + s.state.manufacturer);
}

std::string firmware_query(Session& s, const Arguments&) {
  return answer("+CGMR: " + s.state.firmware);
}

std::string error_form_query(Session& s, const Arguments&) {
  return answer(format("+CMEE: %d", s.state.cmee));
}

std::string error_form_test(Session&, const Arguments&) {
  return answer("+CMEE: (0-2)");
}

std::string error_form_set(Session& s, const Arguments& arguments) {
  return take(arguments, {0, 1, 2}, s.state.cmee) ? kOk : kError;
}

// -- Signal and antennas

// Steps of 2 dB, where the modem's own units are steps of 1 dB.
std::string quality_query(Session& s, const Arguments&) {
  const bool heard = s.state.radio != 0 && s.state.rssi >= 0 && s.state.rssi < 64;
  return answer(format("+CSQ: %d,99", heard ? s.state.rssi / 2 : 99));
}

std::string bars_query(Session& s, const Arguments&) {
  return answer(format("+GTBARS: %d,", s.state.bars_reports ? 1 : 0) + bars_fields(s.state));
}

// 0 and 1 switch the reports, 2 only asks; each tells the present values and, on a line of its own, details
// for people.
std::string bas_status(Session& s, const Arguments& arguments) {
  int what = 0;
  if (!take(arguments, {0, 1, 2}, what)) return kError;
  if (what < 2) s.state.bas_reports = what == 1;
  std::string text = line("+BAS: " + bas_fields(s.state));
  if (!s.state.bas_detail.empty()) text += line(s.state.bas_detail);
  return text + kOk;
}

std::string bas_set(Session& s, const Arguments& arguments) {
  if (!take(arguments, {0, 1, 2}, s.state.antenna_lock)) return kError;
  if (s.state.antenna_lock < 2) s.state.antenna = s.state.antenna_lock;
  return kOk;
}

std::string one_argument(Session&, const Arguments& arguments) {
  return arguments.size() == 1 ? kOk : kError;
}

// -- SIM

std::string sim_status(Session& s, const Arguments&) {
  return answer(format("+GTSIMSTATUS: %d,%d", s.state.card_status, s.state.lock_status));
}

std::string pin_query(Session& s, const Arguments&) {
  std::string error = sim_error(s.state);
  const int lock = s.state.lock_status;
  return error.empty() ? answer(lock == 1   ? "+CPIN: SIM PIN"
                                : lock == 2 ? "+CPIN: SIM PUK"
                                            : "+CPIN: READY")
                       : error;
}

std::string iccid_query(Session& s, const Arguments&) {
  std::string error = sim_error(s.state);
  return error.empty() ? answer("+CCID: " + s.state.iccid) : error;
}

std::string imsi_query(Session& s, const Arguments&) {
  std::string error = sim_error(s.state);
  return error.empty() ? answer("+CIMI: " + s.state.imsi) : error;
}

// READ BINARY (176) of the files that the card has: AT+CRSM=176,id,P1,P2,length. Length 0 reads all; a file
// that is shorter than asked for is given as far as it goes.
std::string sim_file_read(Session& s, const Arguments& arguments) {
  constexpr int kReadBinary = 176;
  std::string error = sim_error(s.state);
  if (!error.empty()) return error;
  int value[5] = {};
  if (arguments.size() < 2 || arguments.size() > 5) return kError;
  for (std::size_t i = 0; i < arguments.size(); i++) {
    if (!to_number(arguments[i], value[i])) return kError;
  }
  if (value[0] != kReadBinary) return answer("+CRSM: 109,0,\"\"");
  const std::string contents = sim_file(s.state, value[1]);
  if (contents.empty()) return answer("+CRSM: 106,130,\"\"");
  const std::size_t offset = 2 * static_cast<std::size_t>((value[2] & 0xFF) * 256 + (value[3] & 0xFF));
  if (offset >= contents.size()) return answer("+CRSM: 107,0,\"\"");
  const std::size_t length = value[4] > 0 ? 2 * static_cast<std::size_t>(value[4]) : std::string::npos;
  return answer("+CRSM: 144,0,\"" + contents.substr(offset, length) + "\"");
}

// -- Configuration

std::string carrier_query(Session& s, const Arguments&) {
  return answer(format("+GTFDCAR: %d", s.state.carrier_id));
}

std::string carrier_set(Session& s, const Arguments& arguments) {
  int carrier = 0;
  if (arguments.size() != 1 || !to_number(arguments[0], carrier) || carrier < 0 || carrier > 65535) {
    return kError;
  }
  s.state.carrier_id = carrier;
  return kOk;
}

std::string context_query(Session& s, const Arguments&) {
  return answer("+CGDCONT: 1,\"" + s.state.pdp_type + "\",\"" + s.state.apn + "\",\"\",0,0");
}

// The modem has one context; AT+CGDCONT=1 alone empties it.
std::string context_set(Session& s, const Arguments& arguments) {
  if (arguments.empty() || arguments[0] != "1") return kError;
  if (arguments.size() == 1) s.state.apn.clear();
  if (arguments.size() > 1) s.state.pdp_type = arguments[1];
  if (arguments.size() > 2) s.state.apn = arguments[2];
  return kOk;
}

std::string model_query(Session& s, const Arguments&) {
  return answer("+CGMM: " + s.state.model);
}

std::string modem_query(Session& s, const Arguments&) {
  const State& state = s.state;
  return answer("+GTMODINFO: \"" + state.firmware + "\",\"" + state.imei + "\",\"" + state.serial + "\",\"" +
                state.hardware + "\"," + std::to_string(state.fault_count));
}

std::string messages_delete(Session&, const Arguments& arguments) {
  return arguments.empty() || arguments.size() > 2 ? kError : kOk;
}

std::string trace_set(Session& s, const Arguments& arguments) {
  if (arguments.empty() || arguments[0].empty()) return kError;
  s.state.trace_on = arguments[0] != "0";
  return kOk;
}

const std::vector<Command> kCommands = {
    {"AT", Form::kPlain, ok, "", "is the modem there"},
    {"ATE0", Form::kPlain, echo_off, "", "echo off"},
    {"ATE1", Form::kPlain, echo_on, "", "echo on"},
    {"ATI", Form::kPlain, identity, "", "manufacturer, model, firmware, IMEI"},
    {"ATZ", Form::kPlain, reset, "", "echo on, reports off, errors as numbers"},
    {"AT&F", Form::kPlain, reset, "", "the same"},
    {"ATV1", Form::kPlain, ok, "", "results in words; there are no others"},
    {"ATQ0", Form::kPlain, ok, "", "results at all; the same"},
    {"AT+CMEE", Form::kRead, error_form_query, "", "form of errors"},
    {"AT+CMEE", Form::kTest, error_form_test, "", "which there are"},
    {"AT+CMEE", Form::kSet, error_form_set, "0|1|2", "ERROR, +CME ERROR with a number, with words"},
    {"AT+CFUN", Form::kRead, radio_query, "", "radio on or off"},
    {"AT+CFUN", Form::kSet, radio_set, "0|1", "radio off, on"},
    {"AT+COPS", Form::kRead, operator_query, "", "serving network"},
    {"AT+COPS", Form::kTest, operator_scan, "", "network scan (takes scan_time; \"^\" aborts it)"},
    {"AT+COPS", Form::kSet, operator_select, "0 | 1,2,\"PLMN\"[,rat] | 2 | 3,format | 4,...",
     "automatic, manual, leave the network, name format"},
    {"^", Form::kPlain, ok, "", "aborts a scan that is running"},
    {"AT+CTZR", Form::kSet, set_flag<&State::time_reports>, "0|1", "time zone reports"},
    {"AT+GTOTAREJECT", Form::kSet, set_flag<&State::reject_reports>, "0|1", "reject reports"},
    {"AT+CCLK", Form::kRead, clock_query, "", "network time"},
    {"AT+GTSCINFO", Form::kRead, cell_query, "", "serving cell"},
    {"AT+GTLTEINFO", Form::kRead, lte_query, "", "LTE states"},
    {"AT+GTSCSTAT", Form::kRead, states_query, "", "GSM and WCDMA states"},
    {"AT+CSQ", Form::kPlain, quality_query, "", "signal, 0 to 31 (half of rssi), 99 without"},
    {"AT+GTBARS", Form::kRead, bars_query, "", "signal"},
    {"AT+GTBARS", Form::kSet, set_flag<&State::bars_reports>, "0|1", "signal reports"},
    {"AT@EPHY:EPHY_BAS_STATUS", Form::kCall, bas_status, "0|1|2", "antennas: reports off, on, ask"},
    {"AT@EPHY:EPHY_BAS_SET", Form::kCall, bas_set, "0|1|2", "antenna 0, 1, automatic"},
    {"AT@GTICOM:SIO_PSVCTRL", Form::kCall, one_argument, "0", "power saving of the port"},
    {"AT+BODYSARON", Form::kSet, set_flag<&State::body_sar>, "0|1", "body SAR back-off"},
    {"AT+GTSIMSTATUS", Form::kRead, sim_status, "", "card and lock status"},
    {"AT+CPIN", Form::kRead, pin_query, "", "does the SIM wait for its PIN"},
    {"AT+CCID", Form::kPlain, iccid_query, "", "ICCID"},
    {"AT+CCID", Form::kRead, iccid_query, "", "ICCID"},
    {"AT+CIMI", Form::kPlain, imsi_query, "", "IMSI"},
    {"AT+CRSM", Form::kSet, sim_file_read, "176,file,0,0,length", "reads a file of the SIM"},
    {"AT+GTFDCAR", Form::kRead, carrier_query, "", "carrier configuration"},
    {"AT+GTFDCAR", Form::kSet, carrier_set, "number", "selects it"},
    {"AT+CGDCONT", Form::kRead, context_query, "", "data context"},
    {"AT+CGDCONT", Form::kSet, context_set, "1,\"IP\",\"APN\",...", "sets it"},
    {"AT+CGMM", Form::kPlain, model_query, "", "model"},
    {"AT+CGMI", Form::kPlain, manufacturer_query, "", "manufacturer"},
    {"AT+CGMR", Form::kPlain, firmware_query, "", "firmware"},
    {"AT+CGSN", Form::kPlain, imei_query, "", "IMEI"},
    {"AT+GTMODINFO", Form::kPlain, modem_query, "", "firmware, IMEI, serial, hardware, fault count"},
    {"AT+GTMODINFO", Form::kRead, modem_query, "", "the same"},
    {"AT+CMGD", Form::kSet, messages_delete, "1,4", "deletes short messages"},
    {"AT*FAKECFG", Form::kSet, set_flag<&State::fake_security>, "0|1", "fake security configuration"},
    {"AT*MRUCLEAR", Form::kPlain, ok, "", "forgets the last networks"},
    {"AT+XSYSTRACE", Form::kSet, trace_set, "0|...", "trace off, on"},
    {"AT+TRACE", Form::kSet, trace_set, "0|...", "trace off, on"},
};

// A basic command of V.250 is a letter, or & and a letter. How long that is at `at`; 0 for another command.
std::size_t basic_name(const std::string& text, std::size_t at) {
  const std::size_t letter = at < text.size() && text[at] == '&' ? at + 1 : at;
  return letter < text.size() && std::isalpha(text[letter] & 0xFF) != 0 ? letter + 1 - at : 0;
}

std::size_t end_of_basic(const std::string& text, std::size_t at) {
  const bool dials = std::toupper(text[at] & 0xFF) == 'D';
  at += basic_name(text, at);
  return std::min(text.size(), dials ? text.find(';', at) : text.find_first_not_of("0123456789=?", at));
}

std::size_t end_of_extended(const std::string& text, std::size_t at) {
  bool quoted = false;
  while (at < text.size() && (quoted || text[at] != ';')) {
    if (text[at++] == '"') quoted = !quoted;
  }
  return at;
}

// ATZ is ATZ0.
bool same_name(const std::string& name, const std::string& known) {
  if (name == known) return true;
  const std::size_t bare = 2 + basic_name(known, 2);
  if (bare == 2) return false;
  return (known.size() == bare && name == known + "0") || (name.size() == bare && name + "0" == known);
}

// Errors of this modem are numbers; `form` is AT+CMEE's.
std::string error_in_form(const std::string& answer, int form) {
  int code = 0;
  if (form == 1 || std::sscanf(answer.c_str(), "\r\n+CME ERROR: %d", &code) != 1) return answer;
  return form == 0 ? kError : line("+CME ERROR: " + at_log::meaning_of_cme(code));
}

// Splits at commas outside quotes; quotes are taken off.
bool split_arguments(const std::string& text, Arguments& arguments) {
  bool quoted = false;
  std::string field;
  for (const char c : text) {
    if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      arguments.push_back(field);
      field.clear();
    } else if (c != ' ' || quoted) {
      field += c;
    }
  }
  arguments.push_back(field);
  return !quoted;
}

}  // namespace

const std::vector<Command>& command_table() {
  static const std::vector<Command> s_table = [] {
    std::vector<Command> table = kCommands;
    for (const Domain& domain : kDomains) {
      const auto query = [&domain](Session& s, const Arguments&) {
        return answer(format("+%s: %d,", domain.name, s.state.*domain.mode.member) +
                      registration_fields(s.state, domain));
      };
      const auto set = [&domain](Session& s, const Arguments& arguments) {
        return take(arguments, {0, 1, 2, 99}, s.state.*domain.mode.member) ? kOk : kError;
      };
      table.push_back({std::string("AT+") + domain.name, Form::kRead, query, "", domain.what});
      table.push_back({std::string("AT+") + domain.name, Form::kSet, set, "0|1|2|99", "reports of it"});
    }
    return table;
  }();
  return s_table;
}

const char* mark_of(Form form) {
  switch (form) {
    case Form::kPlain:
      return "";
    case Form::kRead:
      return "?";
    case Form::kTest:
      return "=?";
    case Form::kSet:
      return "=";
    case Form::kCall:
      return "(";
  }
  return "";
}

std::vector<std::string> known_commands() {
  std::vector<std::string> names;
  for (const Command& command : command_table()) names.push_back(command.name + mark_of(command.form));
  return names;
}

std::vector<std::string> split_line(const std::string& line) {
  if (upper(line.substr(0, 2)) != "AT") return {line};
  std::vector<std::string> commands;
  for (std::size_t at = 2; at < line.size();) {
    if (line[at] == ' ' || line[at] == ';') {
      at++;
      continue;
    }
    const std::size_t end = basic_name(line, at) > 0 ? end_of_basic(line, at) : end_of_extended(line, at);
    std::string text = line.substr(at, end - at);
    text.erase(text.find_last_not_of(' ') + 1);
    commands.push_back("AT" + text);
    at = end;
  }
  if (commands.empty()) commands.emplace_back("AT");
  return commands;
}

bool parse_command(const std::string& text, Parsed& parsed) {
  const std::size_t end = text.find_first_of("?=(");
  parsed.name = upper(text.substr(0, end));
  if (end == std::string::npos) return true;
  const std::string rest = text.substr(end);
  if (rest == "?") {
    parsed.form = Form::kRead;
    return true;
  }
  if (rest == "=?") {
    parsed.form = Form::kTest;
    return true;
  }
  if (rest[0] == '?') return false;
  parsed.form = rest[0] == '=' ? Form::kSet : Form::kCall;
  if (parsed.form == Form::kSet) return split_arguments(rest.substr(1), parsed.arguments);
  return rest.back() == ')' && split_arguments(rest.substr(1, rest.size() - 2), parsed.arguments);
}

bool is_scan(const Parsed& command) {
  return command.form == Form::kTest && command.name == "AT+COPS";
}

Milliseconds command_time(const Parsed& command, const State& state) {
  if (is_scan(command)) return state.scan_time;
  if (command.name != "AT+COPS" || command.form != Form::kSet || command.arguments.empty()) {
    return Milliseconds(0);
  }
  const std::string& mode = command.arguments[0];
  const bool selects = mode == "1" || mode == "4" || (mode == "0" && state.cops_mode != 0);
  return selects ? state.registration_time : Milliseconds(0);
}

std::string answer_command(const std::string& text, Session& session) {
  Parsed parsed;
  if (!parse_command(text, parsed)) return kError;
  for (const Command& command : command_table()) {
    if (command.form == parsed.form && same_name(parsed.name, command.name)) {
      return error_in_form(command.run(session, parsed.arguments), session.state.cmee);
    }
  }
  return kError;
}

}  // namespace modemsim
