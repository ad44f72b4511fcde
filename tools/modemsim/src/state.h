// What a change of the state makes the modem say, and how the state looks on the wire.
#ifndef MODEMSIM_STATE_H
#define MODEMSIM_STATE_H

#include <array>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "modemsim/modem.h"

namespace modemsim {

// A report that a command switches on and off: a row in state.cpp.
struct Report {
  const char* name;  // "+GTBARS"
  FlagField on;
  std::string (*fields)(const State& state);  // null: sent only when a scenario says so
  std::vector<int State::*> watched;          // a change of one of these is reported
};
extern const std::vector<Report> kReports;

// The members of the state that are reported, as they were.
using Reported = std::vector<std::pair<int State::*, int>>;
Reported reported(const State& state);

// The reports that are due when the state was `before` and is now `now`, without line ends.
std::vector<std::string> reports_of_change(const Reported& before, const State& now);

bool is_registered(int stat);
bool is_registered(const State& state);  // for some domain
bool is_known(const State& state);       // some domain has a stat other than 0
void set_stat(State& state, int stat);   // of all domains

// The fields of a domain's report: "1,"1A2B","01C2D3E4",7".
std::string registration_fields(const State& state, const Domain& domain);

// The network and cell where the modem is.
struct Network {
  std::string numeric, plmn_text;
  std::array<int, std::size(kDomains)> stat{};
  int rat = 0, lac = 0, cell_id = 0, tac = 0, rac = 0, arfcn = 0, band = 0;
  std::string band_text;
};

Network current_network(const State& state);
void enter_network(State& state, const Network& network);

// "310410" and two-digit codes such as "26201" by the way they are stored.
std::string mcc_of(const std::string& numeric);
std::string mnc_of(const std::string& numeric);

// +CTZV and +CIEV lines for a clock text of AT+CCLK? ("26/03/07,09:05:00-28").
std::string ctzv_line(const std::string& clock);
std::string ciev_line(const std::string& clock, int dst);
std::string reject_line(int procedure, int cause, int mcc, int mnc);
// The SIM toolkit command REFRESH, NAA initialisation and full file change notification (ETSI TS 102 223).
std::string refresh_line();
std::string bas_fields(const State& state);
std::string bars_fields(const State& state);

// Contents of a SIM file or "" when the card has none such.
std::string sim_file(const State& state, int id);

// What ATZ sets back: echo, form of errors, report modes.
void reset_settings(State& state);
// What the modem forgets when it loses its power: the settings and the trace.
void reset_session(State& state);

std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));

}  // namespace modemsim

#endif
