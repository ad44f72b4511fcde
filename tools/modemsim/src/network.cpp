// Registration, network selection and the serving cell.
#include <algorithm>

#include "handlers.h"

namespace modemsim {
namespace {

bool in_service(const State& state) {
  return state.radio != 0 && state.cops_mode != 2;
}

bool is_home(const State& state, const std::string& numeric) {
  return !numeric.empty() && state.imsi.compare(0, numeric.size(), numeric) == 0;
}

void leave_network(Session& s) {
  State& state = s.state;
  if (state.cops_mode == 0 && is_known(state)) s.last = current_network(state);
  set_stat(state, 0);
}

// `entry` may be null: the network is not in the list of operators.
void join_network(Session& s, const std::string& numeric, const Operator* entry) {
  State& state = s.state;
  if (numeric == s.last.numeric && (entry == nullptr || entry->rat == s.last.rat)) {
    enter_network(state, s.last);
    return;
  }
  set_stat(state, is_home(state, numeric) ? 1 : 5);
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
    join_network(s, best->numeric, best);
  } else {
    join_network(s, s.last.numeric.empty() ? state.operator_numeric : s.last.numeric, nullptr);
  }
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

}  // namespace

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
  if (!in_service(state) || !is_registered(state)) {
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
    join_network(s, found->numeric, &*found);
  } else {
    join_network(s, arguments[2], nullptr);
    if (rat >= 0) state.rat = rat;
  }
  return kOk;
}

std::string clock_query(Session& s, const Arguments&) {
  return answer("+CCLK: \"" + s.state.clock + "\"");
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

void boot(Session& session) {
  State& state = session.state;
  const bool was_away = !in_service(state);
  reset_session(state);
  if (!was_away) return;
  if (state.cops_mode == 2) state.cops_mode = 0;
  join_automatically(session);
}

void move_to_network(Session& session, const std::string& numeric) {
  if (!in_service(session.state)) return;
  const auto& operators = session.state.operators;
  const auto found = std::find_if(operators.begin(), operators.end(),
                                  [&](const Operator& entry) { return entry.numeric == numeric; });
  leave_network(session);
  if (found == operators.end()) {
    join_network(session, numeric, nullptr);
    return;
  }
  join_network(session, numeric, &*found);
}

}  // namespace modemsim
