// What the simulated modem knows, and the names of it in scenario files and sessions.
#ifndef MODEMSIM_MODEM_STATE_H
#define MODEMSIM_MODEM_STATE_H

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace modemsim {

using Milliseconds = std::chrono::milliseconds;

// One operator of a network scan, 3GPP TS 27.007 +COPS. The cell values take effect when the modem registers
// there; -1 and "" keep what the state holds.
struct Operator {
  int stat = 1;  // 0 unknown, 1 available, 2 current, 3 forbidden
  std::string long_name = {};
  std::string short_name = {};
  std::string numeric = {};  // MCC and MNC digits
  int rat = 7;
  int lac = -1, cell_id = -1, tac = -1, arfcn = -1, band = -1;
  std::string band_text = {};
};

// The files of the SIM that the default State holds (network 310410); the ICCID file is made from
// State::iccid.
std::map<int, std::string> default_sim_files();

// What the modem knows. Defaults are a working device on a home LTE network.
struct State {
  // Identity
  std::string manufacturer = "Simulated";
  std::string model = "L816";
  std::string firmware = "L816_18000.1000.00.24.01.01";
  std::string imei = "356938035643809";
  std::string serial = "SN1234567890";
  std::string hardware = "V1.0.1";
  int fault_count = 0;
  // SIM
  int card_status = 3;  // 3 ready; 0, 1, 4 busy; 2, 5 no card
  int lock_status = 0;  // AT+CPIN?: 1 SIM PIN, 2 SIM PUK, else ready
  std::string imsi = "310410123456789";
  std::string iccid = "89014103211118510720";
  // EF id (decimal, as in AT+CRSM) -> hexadecimal contents. 12258 overrides the file made from `iccid`. A
  // file that is missing answers 106,130 (not found).
  std::map<int, std::string> files = default_sim_files();
  // Registration: stat of 3GPP TS 27.007. 1 home, 5 roaming, 0 and 2 not registered, 3 denied
  int cs_stat = 1;
  int ps_stat = 1;
  // Shown in the domain's lines while its stat is 3 and the cause is not 0.
  int cs_reject_cause = 0, ps_reject_cause = 0;
  int lac = 0x1A2B;
  int cell_id = 0x01C2D3E4;
  int rat = 7;
  int band = 104;  // shown in registration lines in mode 99
  // Serving network
  std::string operator_numeric = "310410";
  int cops_mode = 0;
  int cops_format = 0;  // AT+COPS=3,n: 0 long name, 1 short name, 2 digits. A name that is not known: digits
  std::vector<Operator> operators;    // of a scan. While empty, every PLMN can be selected by hand
  Milliseconds scan_time{0};          // how long AT+COPS=? takes
  Milliseconds registration_time{0};  // how long AT+COPS=0 and AT+COPS=1 take when they change the network
  int tac = 0x2F01;
  int rac = 1;
  int arfcn = 5780;
  std::string plmn_text = "310410";
  std::string band_text = "LTE_BAND_4";
  int nmo = 0;
  int emm_state = 3, emm_substate = 1, rrc_state = 1;
  int pdp_state = 1, mm_state = 13, mm_substate = 1, gmm_state = 3, gmm_substate = 7;
  // Signal, in the modem's units
  int bars = 4;
  int rssi = 60;
  int ecno = 30;
  bool bars_reports = false;  // AT+GTBARS=1
  // Antennas: raw values of +BAS
  int bas_a = 320, bas_b = 288, antenna = 0;
  int antenna_lock = 2;                         // EPHY_BAS_SET: 0, 1 one antenna, 2 automatic
  std::string bas_detail = "EPHY: BAS status";  // a line between +BAS and OK; "" for none
  bool bas_reports = false;
  // Configuration
  int carrier_id = 201;
  std::string pdp_type = "IP";
  std::string apn = "broadband";
  int radio = 1;  // AT+CFUN
  // 0 off, 1 stat only, 2 with the cell, 99 with cell and band
  int creg_mode = 0, cgreg_mode = 0;
  bool time_reports = false;    // AT+CTZR=1
  bool reject_reports = false;  // AT+GTOTAREJECT=1
  bool echo = true;             // until ATE0
  int cmee = 1;                 // AT+CMEE, errors: 0 ERROR, 1 numbers (of this modem from the start), 2 words
  bool body_sar = false;
  bool fake_security = false;
  bool trace_on = false;                       // AT+XSYSTRACE=, AT+TRACE=
  std::string clock = "26/03/07,09:05:00-28";  // AT+CCLK?
};

// The members as a scenario file names them, one table per type; each row is the member's own name. Those of
// registration are in kDomains, those of reports in kReports (src/state.cpp).
struct NumberField {
  const char* name;
  int State::*member;
  long long low, high;
};

struct TextField {
  const char* name;
  std::string State::*member;
};

struct FlagField {
  const char* name;
  bool State::*member;
};

struct TimeField {
  const char* name;
  Milliseconds State::*member;
};

inline constexpr NumberField kNumberFields[] = {
    {"fault_count", &State::fault_count, 0, 65535},
    {"card_status", &State::card_status, 0, 255},
    {"lock_status", &State::lock_status, 0, 255},
    {"lac", &State::lac, 0, 0xFFFF},
    {"cell_id", &State::cell_id, 0, 0x7FFFFFFF},
    {"rat", &State::rat, 0, 255},
    {"band", &State::band, 0, 65535},
    {"cops_mode", &State::cops_mode, 0, 4},
    {"cops_format", &State::cops_format, 0, 2},
    {"tac", &State::tac, 0, 0xFFFF},
    {"rac", &State::rac, 0, 0xFF},
    {"arfcn", &State::arfcn, 0, 0xFFFF},
    {"nmo", &State::nmo, 0, 255},
    {"emm_state", &State::emm_state, 0, 255},
    {"emm_substate", &State::emm_substate, 0, 255},
    {"rrc_state", &State::rrc_state, 0, 255},
    {"pdp_state", &State::pdp_state, 0, 255},
    {"mm_state", &State::mm_state, 0, 255},
    {"mm_substate", &State::mm_substate, 0, 255},
    {"gmm_state", &State::gmm_state, 0, 255},
    {"gmm_substate", &State::gmm_substate, 0, 255},
    {"bars", &State::bars, 0, 255},
    {"rssi", &State::rssi, -200, 255},
    {"ecno", &State::ecno, -200, 255},
    {"bas_a", &State::bas_a, -32768, 32767},
    {"bas_b", &State::bas_b, -32768, 32767},
    {"antenna", &State::antenna, 0, 255},
    {"antenna_lock", &State::antenna_lock, 0, 2},
    {"carrier_id", &State::carrier_id, 0, 65535},
    {"radio", &State::radio, 0, 1},
    {"cmee", &State::cmee, 0, 2},
};

inline constexpr TextField kTextFields[] = {
    {"manufacturer", &State::manufacturer},
    {"model", &State::model},
    {"firmware", &State::firmware},
    {"imei", &State::imei},
    {"serial", &State::serial},
    {"hardware", &State::hardware},
    {"imsi", &State::imsi},
    {"iccid", &State::iccid},
    {"operator_numeric", &State::operator_numeric},
    {"plmn_text", &State::plmn_text},
    {"band_text", &State::band_text},
    {"bas_detail", &State::bas_detail},
    {"pdp_type", &State::pdp_type},
    {"apn", &State::apn},
    {"clock", &State::clock},
};

inline constexpr FlagField kFlagFields[] = {
    {"echo", &State::echo},
    {"body_sar", &State::body_sar},
    {"fake_security", &State::fake_security},
    {"trace_on", &State::trace_on},
};

inline constexpr TimeField kTimeFields[] = {
    {"scan_time", &State::scan_time},
    {"registration_time", &State::registration_time},
};

// Names of 3GPP TS 31.102 for the files that the modem library reads.
struct SimFileName {
  const char* name;
  int number;
};

inline constexpr SimFileName kSimFileNames[] = {
    {"EF_ICCID", 12258},     {"EF_PLMNwAcT", 28512}, {"EF_OPLMNwAcT", 28513},
    {"EF_HPLMNwAcT", 28514}, {"EF_PSLOCI", 28531},   {"EF_FPLMN", 28539},
    {"EF_LOCI", 28542},      {"EF_EHPLMN", 28633},   {"EF_EPSLOCI", 28643},
};

// A domain that the modem registers for: its row makes its commands, its report and its members in scenario
// files, where `stat`, `reject_cause` and `reg_mode` set those of all domains.
struct Domain {
  const char* name;  // "CREG": of the report and, after "AT+", of the commands
  const char* what;  // for the list of commands
  int State::*area;
  NumberField stat, reject_cause, mode;
};
inline constexpr Domain kDomains[] = {
    {"CREG",
     "circuit-switched registration",
     &State::lac,
     {"cs_stat", &State::cs_stat, 0, 10},
     {"cs_reject_cause", &State::cs_reject_cause, 0, 255},
     {"creg_mode", &State::creg_mode, 0, 99}},
    {"CGREG",
     "packet-switched registration",
     &State::lac,
     {"ps_stat", &State::ps_stat, 0, 10},
     {"ps_reject_cause", &State::ps_reject_cause, 0, 255},
     {"cgreg_mode", &State::cgreg_mode, 0, 99}},
};

}  // namespace modemsim

#endif
