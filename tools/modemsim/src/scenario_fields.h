// The members of State as a scenario file names them. One table per type; each row is the member's own name.
// Those of registration and reports are in their rows (state.cpp).
#ifndef MODEMSIM_SCENARIO_FIELDS_H
#define MODEMSIM_SCENARIO_FIELDS_H

#include <string>

#include "modemsim/modem.h"

namespace modemsim {

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
};

inline constexpr TextField kTextFields[] = {
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

}  // namespace modemsim

#endif
