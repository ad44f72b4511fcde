#include "commands.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "state.h"

namespace modemsim {
namespace {

// Numbers of +CME ERROR, 3GPP TS 27.007.
enum CmeError {
  kNotAllowed = 3,
  kSimMissing = 10,
  kSimFailure = 13,
  kSimBusy = 14,
  kNoService = 30,
  kNetworkForbidden = 32
};

std::string cme(int number) {
  return format("\r\n+CME ERROR: %d\r\n", number);
}
std::string line(const std::string& text) {
  return "\r\n" + text + "\r\n";
}
std::string answer(const std::string& text) {
  return line(text) + kOk;
}

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

bool to_number(const std::string& text, int& value) {
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0') return false;
  value = static_cast<int>(number);
  return true;
}

// Takes the one argument when it is one of `allowed`.
bool take(const Arguments& arguments, std::initializer_list<int> allowed, int& value) {
  int number = 0;
  if (arguments.size() != 1 || !to_number(arguments[0], number)) return false;
  if (std::find(allowed.begin(), allowed.end(), number) == allowed.end()) return false;
  value = number;
  return true;
}

bool take_flag(const Arguments& arguments, bool& flag) {
  int value = 0;
  if (!take(arguments, {0, 1}, value)) return false;
  flag = value == 1;
  return true;
}

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

bool in_service(const State& state) {
  return state.radio != 0 && state.cops_mode != 2;
}
bool is_registered(int stat) {
  return stat == 1 || stat == 5;
}

// -- Basics
// --------------------------------------------------------------------------------------------------

std::string ok(Session&, const Arguments&) {
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

// -- Network
// -------------------------------------------------------------------------------------------------

bool is_home(const State& state, const std::string& numeric) {
  return !numeric.empty() && state.imsi.compare(0, numeric.size(), numeric) == 0;
}

void leave_network(Session& s) {
  State& state = s.state;
  const bool is_somewhere = state.cs_stat != 0 || state.ps_stat != 0;
  if (state.cops_mode == 0 && is_somewhere) s.last = current_network(state);
  state.cs_stat = state.ps_stat = 0;
}

// `entry` may be null: the network is not in the list of operators.
void join_network(Session& s, const std::string& numeric, const Operator* entry) {
  State& state = s.state;
  if (numeric == s.last.numeric && (entry == nullptr || entry->rat == s.last.rat)) {
    enter_network(state, s.last);
    return;
  }
  state.cs_stat = state.ps_stat = is_home(state, numeric) ? 1 : 5;
  if (state.operator_numeric != numeric) state.plmn_text = numeric;
  state.operator_numeric = numeric;
  if (entry == nullptr) return;
  state.rat = entry->rat;
  if (entry->lac >= 0) state.lac = entry->lac;
  if (entry->cell_id >= 0) state.cell_id = entry->cell_id;
  if (entry->tac >= 0) state.tac = entry->tac;
  if (entry->arfcn >= 0) state.arfcn = entry->arfcn;
  if (entry->band >= 0) state.band = entry->band;
  if (!entry->band_text.empty()) state.band_text = entry->band_text;
}

// The home network first, then where the modem was, then the first one that is not forbidden.
void join_automatically(Session& s) {
  const State& state = s.state;
  const Operator* best = nullptr;
  int best_rank = 0;
  for (const Operator& entry : state.operators) {
    if (entry.stat == 3) continue;
    const int rank = is_home(state, entry.numeric) ? 3 : entry.numeric == s.last.numeric ? 2 : 1;
    if (rank > best_rank) {
      best = &entry;
      best_rank = rank;
    }
  }
  if (best != nullptr) {
    const Operator chosen = *best;
    join_network(s, chosen.numeric, &chosen);
  } else {
    join_network(s, s.last.numeric.empty() ? state.operator_numeric : s.last.numeric, nullptr);
  }
}

std::string radio_query(Session& s, const Arguments&) {
  return answer(format("+CFUN: %d", s.state.radio));
}

std::string radio_set(Session& s, const Arguments& arguments) {
  int on = 0;
  if (!take(arguments, {0, 1}, on)) return kError;
  if (on == 0 && s.state.radio != 0) leave_network(s);
  const bool switched_on = on == 1 && s.state.radio == 0;
  s.state.radio = on;
  const bool automatic = s.state.cops_mode == 0 && !s.last.numeric.empty();
  if (switched_on && s.state.cops_mode != 2) {
    join_network(s, automatic ? s.last.numeric : s.state.operator_numeric, nullptr);
  }
  return kOk;
}

std::string operator_query(Session& s, const Arguments&) {
  const State& state = s.state;
  if (!in_service(state) || !(is_registered(state.cs_stat) || is_registered(state.ps_stat))) {
    return answer(format("+COPS: %d", state.cops_mode));
  }
  std::string name = state.operator_numeric;
  for (const Operator& entry : state.operators) {
    if (state.cops_format == 2 || entry.numeric != state.operator_numeric) continue;
    name = state.cops_format == 0 ? entry.long_name : entry.short_name;
    break;
  }
  return answer(format("+COPS: %d,%d,\"", state.cops_mode, state.cops_format) + name +
                format("\",%d", state.rat));
}

std::string operator_scan(Session& s, const Arguments&) {
  if (s.state.radio == 0) return cme(kNotAllowed);
  std::string text;
  for (const Operator& entry : s.state.operators) {
    if (!text.empty()) text += ",";
    text += "(" + std::to_string(entry.stat) + ",\"" + entry.long_name + "\",\"" + entry.short_name +
            "\",\"" + entry.numeric + "\"," + std::to_string(entry.rat) + ")";
  }
  return answer("+COPS: " + text + ",,(0-4),(0-2)");
}

std::string operator_select(Session& s, const Arguments& arguments) {
  State& state = s.state;
  int mode = 0;
  int name_format = 0;
  if (arguments.empty() || !to_number(arguments[0], mode)) return kError;
  if (arguments.size() > 1 && !to_number(arguments[1], name_format)) return kError;
  if (mode == 3) {
    if (arguments.size() != 2 || name_format < 0 || name_format > 2) return kError;
    state.cops_format = name_format;
    return kOk;
  }
  if (mode == 2) {
    leave_network(s);
    state.cops_mode = 2;
    return kOk;
  }
  if (state.radio == 0) return cme(kNotAllowed);
  if (mode == 0) {
    if (state.cops_mode != 0) {
      if (state.cops_mode != 2) leave_network(s);
      state.cops_mode = 0;
      join_automatically(s);
    }
    return kOk;
  }
  if ((mode != 1 && mode != 4) || arguments.size() < 3 || arguments[2].empty()) return kError;
  int rat = -1;
  if (arguments.size() > 3 && !to_number(arguments[3], rat)) return kError;
  const auto wanted = [&](const Operator& entry) {
    const std::string& name = name_format == 2   ? entry.numeric
                              : name_format == 1 ? entry.short_name
                                                 : entry.long_name;
    return name == arguments[2] && (rat < 0 || entry.rat == rat);
  };
  const auto found = std::find_if(state.operators.begin(), state.operators.end(), wanted);
  if (found == state.operators.end() && !(state.operators.empty() && name_format == 2)) {
    if (mode == 1) return cme(kNoService);
    state.cops_mode = 0;
    join_automatically(s);
    return kOk;
  }
  if (found != state.operators.end() && found->stat == 3) return cme(kNetworkForbidden);
  leave_network(s);
  state.cops_mode = mode;
  if (found != state.operators.end()) {
    const Operator chosen = *found;
    join_network(s, chosen.numeric, &chosen);
  } else {
    join_network(s, arguments[2], nullptr);
    if (rat >= 0) state.rat = rat;
  }
  return kOk;
}

std::string creg_query(Session& s, const Arguments&) {
  return answer(format("+CREG: %d,", s.state.creg_mode) +
                registration_fields(s.state, true, s.state.creg_mode));
}

std::string creg_set(Session& s, const Arguments& arguments) {
  return take(arguments, {0, 1, 2, 99}, s.state.creg_mode) ? kOk : kError;
}

std::string cgreg_query(Session& s, const Arguments&) {
  return answer(format("+CGREG: %d,", s.state.cgreg_mode) +
                registration_fields(s.state, false, s.state.cgreg_mode));
}

std::string cgreg_set(Session& s, const Arguments& arguments) {
  return take(arguments, {0, 1, 2, 99}, s.state.cgreg_mode) ? kOk : kError;
}

std::string time_reports(Session& s, const Arguments& arguments) {
  return take_flag(arguments, s.state.time_reports) ? kOk : kError;
}

std::string reject_reports(Session& s, const Arguments& arguments) {
  return take_flag(arguments, s.state.reject_reports) ? kOk : kError;
}

std::string clock_query(Session& s, const Arguments&) {
  return answer("+CCLK: \"" + s.state.clock + "\"");
}

// The modem's own numbers of the access technology: 1 GSM without packet data, 2 GPRS, 3 EDGE, 4 WCDMA, 5
// HSDPA, 6 HSUPA, 7 HSPA, 8 LTE. 0 is none.
int vendor_rat(int rat) {
  switch (rat) {
    case 0:
      return 2;
    case 1:
      return 1;
    case 2:
      return 4;
    case 3:
      return 3;
    case 4:
      return 5;
    case 5:
      return 6;
    case 6:
      return 7;
    case 7:
      return 8;
    default:
      return 0;
  }
}

// +GTSCINFO: 1,8,1,310410,0,0,LTE_BAND_4,0x2F01,0x01,0x1694,0x01C2D3E4
//            service, rat, -, PLMN, NMO, -, band, LAC or (LTE) TAC, RAC, channel, cell
std::string cell_query(Session& s, const Arguments&) {
  const State& state = s.state;
  if (!in_service(state)) return answer("+GTSCINFO: 0,0");
  const int rat = vendor_rat(state.rat);
  return answer(format("+GTSCINFO: 1,%d,1,%s,%d,0,%s,0x%04X,0x%02X,0x%04X,0x%08X", rat,
                       state.plmn_text.c_str(), state.nmo, state.band_text.c_str(),
                       static_cast<unsigned>(rat == 8 ? state.tac : state.lac) & 0xFFFFU,
                       static_cast<unsigned>(state.rac), static_cast<unsigned>(state.arfcn),
                       static_cast<unsigned>(state.cell_id)));
}

// +GTLTEINFO: 3,1,1,310,410,2F01,01C2D3E4
//             EMM state and substate, RRC state, MCC, MNC, TAC, cell
std::string lte_query(Session& s, const Arguments&) {
  const State& state = s.state;
  return answer(format("+GTLTEINFO: %d,%d,%d,%s,%s,%04X,%08X", state.emm_state, state.emm_substate,
                       state.rrc_state, mcc_of(state.operator_numeric).c_str(),
                       mnc_of(state.operator_numeric).c_str(), static_cast<unsigned>(state.tac),
                       static_cast<unsigned>(state.cell_id)));
}

// +GTSCSTAT: 1,13,1,3,7,1
//            PDP, MM state and substate, GMM state and substate, RRC
std::string states_query(Session& s, const Arguments&) {
  const State& state = s.state;
  return answer(format("+GTSCSTAT: %d,%d,%d,%d,%d,%d", state.pdp_state, state.mm_state, state.mm_substate,
                       state.gmm_state, state.gmm_substate, state.rrc_state));
}

// -- Signal and antennas
// -------------------------------------------------------------------------------------

std::string bars_query(Session& s, const Arguments&) {
  return answer(format("+GTBARS: %d,", s.state.bars_reports ? 1 : 0) + bars_fields(s.state));
}

std::string bars_reports(Session& s, const Arguments& arguments) {
  return take_flag(arguments, s.state.bars_reports) ? kOk : kError;
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

std::string body_sar(Session& s, const Arguments& arguments) {
  return take_flag(arguments, s.state.body_sar) ? kOk : kError;
}

// -- SIM
// -----------------------------------------------------------------------------------------------------

std::string sim_status(Session& s, const Arguments&) {
  return answer(format("+GTSIMSTATUS: %d,%d", s.state.card_status, s.state.lock_status));
}

std::string iccid_query(Session& s, const Arguments&) {
  const std::string error = sim_error(s.state);
  return error.empty() ? answer("+CCID: " + s.state.iccid) : error;
}

std::string imsi_query(Session& s, const Arguments&) {
  const std::string error = sim_error(s.state);
  return error.empty() ? answer("+CIMI: " + s.state.imsi) : error;
}

// READ BINARY (176) of the files that the card has: AT+CRSM=176,id,P1,P2,length. Length 0 reads all; a file
// that is shorter than asked for is given as far as it goes.
std::string sim_file_read(Session& s, const Arguments& arguments) {
  constexpr int kReadBinary = 176;
  const std::string error = sim_error(s.state);
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
// -------------------------------------------------------------------------------------------

std::string carrier_query(Session& s, const Arguments&) {
  return answer(format("+GTFDCAR: %d", s.state.carrier_id));
}

std::string carrier_set(Session& s, const Arguments& arguments) {
  int carrier = 0;
  if (arguments.size() != 1 || !to_number(arguments[0], carrier) || carrier < 0 || carrier > 65535)
    return kError;
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

std::string fake_security(Session& s, const Arguments& arguments) {
  return take_flag(arguments, s.state.fake_security) ? kOk : kError;
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
    {"AT+CFUN", Form::kRead, radio_query, "", "radio on or off"},
    {"AT+CFUN", Form::kSet, radio_set, "0|1", "radio off, on"},
    {"AT+COPS", Form::kRead, operator_query, "", "serving network"},
    {"AT+COPS", Form::kTest, operator_scan, "", "network scan (takes scan_time; \"^\" aborts it)"},
    {"AT+COPS", Form::kSet, operator_select, "0 | 1,2,\"PLMN\"[,rat] | 2 | 3,format | 4,...",
     "automatic, manual, leave the network, name format"},
    {"^", Form::kPlain, ok, "", "aborts a scan that is running"},
    {"AT+CREG", Form::kRead, creg_query, "", "circuit-switched registration"},
    {"AT+CREG", Form::kSet, creg_set, "0|1|2|99", "reports of it"},
    {"AT+CGREG", Form::kRead, cgreg_query, "", "packet-switched registration"},
    {"AT+CGREG", Form::kSet, cgreg_set, "0|1|2|99", "reports of it"},
    {"AT+CTZR", Form::kSet, time_reports, "0|1", "time zone reports"},
    {"AT+GTOTAREJECT", Form::kSet, reject_reports, "0|1", "reject reports"},
    {"AT+CCLK", Form::kRead, clock_query, "", "network time"},
    {"AT+GTSCINFO", Form::kRead, cell_query, "", "serving cell"},
    {"AT+GTLTEINFO", Form::kRead, lte_query, "", "LTE states"},
    {"AT+GTSCSTAT", Form::kRead, states_query, "", "GSM and WCDMA states"},
    {"AT+GTBARS", Form::kRead, bars_query, "", "signal"},
    {"AT+GTBARS", Form::kSet, bars_reports, "0|1", "signal reports"},
    {"AT@EPHY:EPHY_BAS_STATUS", Form::kCall, bas_status, "0|1|2", "antennas: reports off, on, ask"},
    {"AT@EPHY:EPHY_BAS_SET", Form::kCall, bas_set, "0|1|2", "antenna 0, 1, automatic"},
    {"AT@GTICOM:SIO_PSVCTRL", Form::kCall, one_argument, "0", "power saving of the port"},
    {"AT+BODYSARON", Form::kSet, body_sar, "0|1", "body SAR back-off"},
    {"AT+GTSIMSTATUS", Form::kRead, sim_status, "", "card and lock status"},
    {"AT+CCID", Form::kPlain, iccid_query, "", "ICCID"},
    {"AT+CCID", Form::kRead, iccid_query, "", "ICCID"},
    {"AT+CIMI", Form::kPlain, imsi_query, "", "IMSI"},
    {"AT+CRSM", Form::kSet, sim_file_read, "176,file,0,0,length", "reads a file of the SIM"},
    {"AT+GTFDCAR", Form::kRead, carrier_query, "", "carrier configuration"},
    {"AT+GTFDCAR", Form::kSet, carrier_set, "number", "selects it"},
    {"AT+CGDCONT", Form::kRead, context_query, "", "data context"},
    {"AT+CGDCONT", Form::kSet, context_set, "1,\"IP\",\"APN\",...", "sets it"},
    {"AT+CGMM", Form::kPlain, model_query, "", "model"},
    {"AT+GTMODINFO", Form::kPlain, modem_query, "", "firmware, IMEI, serial, hardware, fault count"},
    {"AT+GTMODINFO", Form::kRead, modem_query, "", "the same"},
    {"AT+CMGD", Form::kSet, messages_delete, "1,4", "deletes short messages"},
    {"AT*FAKECFG", Form::kSet, fake_security, "0|1", "fake security configuration"},
    {"AT*MRUCLEAR", Form::kPlain, ok, "", "forgets the last networks"},
    {"AT+XSYSTRACE", Form::kSet, trace_set, "0|...", "trace off, on"},
    {"AT+TRACE", Form::kSet, trace_set, "0|...", "trace off, on"},
};

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
  return kCommands;
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
  if (command.name != "AT+COPS" || command.form != Form::kSet || command.arguments.empty())
    return Milliseconds(0);
  const std::string& mode = command.arguments[0];
  const bool selects = mode == "1" || mode == "4" || (mode == "0" && state.cops_mode != 0);
  return selects ? state.registration_time : Milliseconds(0);
}

std::string answer_command(const std::string& text, Session& session) {
  Parsed parsed;
  if (!parse_command(text, parsed)) return kError;
  for (const Command& command : kCommands) {
    if (command.form == parsed.form && parsed.name == command.name)
      return command.run(session, parsed.arguments);
  }
  return kError;
}

}  // namespace modemsim
