// The network that the modem is camped on: operator, cell, protocol states, time zone; stored short messages.
#include "parse/serving.h"

#include <string.h>

#include "base/fields.h"
#include "base/log.h"
#include "base/log_text.h"
#include "base/text.h"
#include "brio/brio_at.h"
#include "brio_common/library_state.h"
#include "brio_common/shared_data.h"
#include "channel/request.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

// The first characters of an answer, as far as a parser looks at them, and their copy for the log. It is
// masked before it is cut: the late answer to another question, an IMSI say, keeps its length.
template <size_t N>
void prv_cut(const char* line, char (&text)[N], char (&log_text)[N]) {
  copy_text(text, N, line);
  copy_text(log_text, N, masked_line(line).c_str());
}

// `text` is the operator where it was found whole, else the answer; as the log may show it.
void prv_log_cops_failure(parse::CopsResult result, const char* text) {
  switch (result) {
    case parse::CopsResult::kOk:
      break;
    case parse::CopsResult::kNoOperator:
      BLIB_D(BRIO_LOG_DEBUG, "no valid MCCMNC found %s", text);
      break;
    case parse::CopsResult::kNoClosingQuote:
      BLIB_W(":no valid MCCMNC found %s:", text);
      break;
    case parse::CopsResult::kBadLength:
      BLIB_W(":no valid MCCMNC found, incorrect len %s:", text);
      break;
    case parse::CopsResult::kBadFormat:
      BLIB_W(":no valid MCCMNC found, incorrect format %s:", text);
      break;
  }
}

// Response callback of "AT+COPS?" (read thread).
uint32_t recv_func_prv_briolib_update_mcc_mnc(const ATResponse* response, void*, uint16_t) {
  using parse::CopsResult;
  const char* line = answer_line_for("recv_func_prv_briolib_update_mcc_mnc", response);
  if (line == nullptr) return BRIO_STATUS_INVALID;
  char text[parse::kCopsTextMax + 1];
  char log_text[sizeof(text)];
  prv_cut(line, text, log_text);
  BLIB_D(BRIO_LOG_DEBUG, "AT+COPS: %s", log_text);

  parse::CopsAnswer answer;
  const CopsResult result = parse::parse_cops(text, &answer);
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
  if (answer.mode) {
    BLIB_D(BRIO_LOG_DEBUG, "OP Mode %d", static_cast<uint8_t>(*answer.mode));
    UrcDataLock lock;
    data.cops_mode = *answer.mode;
  }
  if (result != CopsResult::kOk) {
    char* shown = log_text;
    if (answer.name != nullptr) {
      shown += answer.name - text;
      shown[strlen(answer.name)] = '\0';
    }
    prv_log_cops_failure(result, shown);
    return BRIO_STATUS_FAILURE;
  }
  UrcDataLock lock;
  memcpy(data.mcc, answer.mcc, sizeof(data.mcc));
  memcpy(data.mnc, answer.mnc, sizeof(data.mnc));
  return BRIO_STATUS_OK;
}

// The answer's line; null with an error line where there is none (`operation`) or an empty one (`callback`).
char* prv_serving_line(const ATResponse* response, const char* operation, const char* callback) {
  char* line = answer_line(response);
  if (line == nullptr) {
    BLIB_E("%s:at_resp is invalid:", operation);
  } else if (*line == '\0') {
    BLIB_E("%s:resp is invalid:", callback);
    line = nullptr;
  }
  return line;
}

// Response callback of "AT+GTLTEINFO?" (read thread).
uint32_t recv_func_at_req_get_lte_info(const ATResponse* response, void*, uint16_t) {
  char* line = prv_serving_line(response, "briolib_update_lte_info", "recv_func_at_req_get_lte_info");
  if (line == nullptr) return BRIO_STATUS_INVALID;
  brio_atcmd_data data;
  {
    UrcDataLock lock;
    if (at_tok_start(&line) == 0) parse::parse_lte_info(line, &g_brio_lib_atcmd_data);
    data = g_brio_lib_atcmd_data;
  }
  BLIB_D(BRIO_LOG_DEBUG,
         "emm_state[%d] emm_substate[%d] rrc_state[%d] mcc %.3s mnc %.3s tac 0x%x cell id 0x%x",
         data.emm_state, data.emm_substate, data.rrc_state, data.mcc, data.mnc, data.tac, data.cell_id);
  return BRIO_STATUS_OK;
}

void prv_store_serving_cell(const parse::ServingCell& cell) {
  UrcDataLock lock;
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
  if (cell.plmn_text != nullptr) copy_padded(data.plmn_text, sizeof(data.plmn_text), cell.plmn_text);
  store(cell.nmo, &data.nmo);
  if (cell.band_text != nullptr) copy_padded(data.band_text, sizeof(data.band_text), cell.band_text);
  store(cell.lac, &data.lac);
  store(cell.tac, &data.tac);
  store(cell.rac, &data.rac);
  store(cell.arfcn, &data.arfcn);
}

// Texts as far as the record holds them.
void prv_log_serving_cell(const parse::ServingCell& cell) {
  if (cell.rat) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: RAT[%d]", *cell.rat);
  if (cell.plmn_text != nullptr) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: PLMN %.9s", cell.plmn_text);
  if (cell.nmo) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: NMO [%d]", *cell.nmo);
  if (cell.band_text != nullptr) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: BAND %.29s", cell.band_text);
  if (cell.lac) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: LAC 0X%X", *cell.lac);
  if (cell.tac) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: TAC 0X%X", *cell.tac);
  if (cell.rac) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: RAC 0X%X", *cell.rac);
  if (cell.arfcn) BLIB_D(BRIO_LOG_DEBUG, "GTSCINFO: ARFCN 0X%X", *cell.arfcn);
}

// Response callback of "AT+GTSCINFO?" (read thread).
uint32_t recv_func_at_req_get_gtscinfo(const ATResponse* response, void*, uint16_t) {
  char* line = prv_serving_line(response, "recv_func_at_req_get_gtscinfo", "recv_func_at_req_get_gtscinfo");
  if (line == nullptr) return BRIO_STATUS_INVALID;
  BLIB_D(BRIO_LOG_PARSE, "recv_func_at_req_get_gtscinfo callback %s", line);
  if (at_tok_start(&line) != 0) return BRIO_STATUS_INVALID;
  const parse::ServingCell cell = parse::parse_serving_cell(line);
  prv_store_serving_cell(cell);
  prv_log_serving_cell(cell);
  return BRIO_STATUS_OK;
}

struct StateRow {
  const char* name;
  uint8_t brio_atcmd_data::*field;
};
// In the order of parse::ProtocolStates.
constexpr StateRow kStates[] = {
    {"PDP_STATE", &brio_atcmd_data::pdp_state},       {"MM_STATE", &brio_atcmd_data::mm_state},
    {"MM_SUBSTATE", &brio_atcmd_data::mm_substate},   {"GMM_STATE", &brio_atcmd_data::gmm_state},
    {"GMM_SUBSTATE", &brio_atcmd_data::gmm_substate}, {"RRC_STATE", &brio_atcmd_data::rrc_state},
};
static_assert(sizeof(kStates) / sizeof(kStates[0]) == parse::ProtocolStates().size());

// Response callback of "AT+GTSCSTAT?" (read thread).
uint32_t recv_func_at_req_get_gtscstat(const ATResponse* response, void*, uint16_t) {
  char* line = prv_serving_line(response, "briolib_get_gtscstat", "recv_func_at_req_get_gtscstat");
  if (line == nullptr) return BRIO_STATUS_INVALID;
  BLIB_D(BRIO_LOG_PARSE, "get_gtscstat callback called %s", line);
  if (at_tok_start(&line) != 0) return BRIO_STATUS_INVALID;
  const parse::ProtocolStates states = parse::parse_protocol_states(line);
  {
    UrcDataLock lock;
    for (size_t i = 0; i < states.size(); i++) store(states[i], &(g_brio_lib_atcmd_data.*kStates[i].field));
  }
  for (size_t i = 0; i < states.size(); i++) {
    if (states[i]) BLIB_D(BRIO_LOG_DEBUG, "GTSCSTAT: %s[%d]", kStates[i].name, *states[i]);
  }
  return BRIO_STATUS_OK;
}

// Response callback of "AT+CCLK?" (read thread); the user data is the zone, an int32_t.
uint32_t recv_func_prv_briolib_get_timezone(const ATResponse* response, void* user_data, uint16_t) {
  if (response == nullptr || response->intermediates == nullptr || user_data == nullptr) {
    BLIB_E("recv_func_prv_briolib_get_timezone::response is invalid");
    return BRIO_STATUS_INVALID;
  }
  const char* line = response->intermediates->line;
  if (line == nullptr || *line == '\0') {
    BLIB_W(":no valid tz info found, bad response[%d]:", response->status);
    return BRIO_STATUS_FAILURE;
  }
  char text[parse::kClockTextMax + 1];
  char log_text[sizeof(text)];
  prv_cut(line, text, log_text);
  BLIB_D(BRIO_LOG_DEBUG, "atcmd AT+CCLK %s", log_text);
  const std::optional<int32_t> zone = parse::parse_clock_zone(text);
  if (!zone) {
    BLIB_W(":no valid tz info found %s:", log_text);
    return BRIO_STATUS_FAILURE;
  }
  *static_cast<int32_t*>(user_data) = *zone;
  BLIB_PLAIN("Timezone info updated[%d]::", *zone);
  return BRIO_STATUS_OK;
}

}  // namespace

uint32_t briolib_update_mcc_mnc(void) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  uint32_t result = query("AT+COPS?", NUMERIC, "+COPS", recv_func_prv_briolib_update_mcc_mnc);
  return result == BLPKT_STATUS_SUCCESS ? BRIO_STATUS_OK : BRIO_STATUS_TIMEOUT;
}

uint32_t briolib_update_lte_info(void) {
  return briolib_translate_status(
      query("AT+GTLTEINFO?", SINGLELINE, "+GTLTEINFO", recv_func_at_req_get_lte_info), 0);
}

uint32_t briolib_get_gtscinfo(void) {
  return briolib_translate_status(
      query("AT+GTSCINFO?", SINGLELINE, "+GTSCINFO", recv_func_at_req_get_gtscinfo), 0);
}

uint32_t briolib_get_gtscstat(void) {
  return briolib_translate_status(
      query("AT+GTSCSTAT?", SINGLELINE, "+GTSCSTAT", recv_func_at_req_get_gtscstat), 0);
}

uint32_t brio_get_network_time(network_time* record) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  if (record == nullptr) return BRIO_STATUS_INVALID;
  int32_t zone = 0;
  uint32_t result = query("AT+CCLK?", NUMERIC, "+CCLK", recv_func_prv_briolib_get_timezone, &zone);
  if (result != BLPKT_STATUS_SUCCESS) return BRIO_STATUS_TIMEOUT;
  *record = {};
  record->time_zone = zone;
  return BRIO_STATUS_OK;
}

void briolib_update_time_info(const network_time* record) {
  static_assert(sizeof(g_brio_lib_atcmd_data.time_info) == sizeof(*record), "time_info holds a network_time");
  if (record == nullptr) return;
  memcpy(g_brio_lib_atcmd_data.time_info, record, sizeof(*record));
}

void briolib_send_time_event(const network_time* record) {
  // Hosts rely on the size 4; the 16-byte record at the pointer is whole.
  briolib_exec_event_callback(BRIO_EVENT_TIME_INFO, 4, record);
}

uint32_t brio_get_data_service_mode(uint32_t* out) {
  if (out == nullptr) return BRIO_STATUS_INVALID;
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  enum DataServiceMode : uint32_t { kNone = 0, kGsm = 1, kEdge = 2, kUmts = 3, kLte = 5 };
  // By access technology of 3GPP TS 27.007.
  static constexpr DataServiceMode kModes[] = {kGsm, kNone, kUmts, kEdge, kUmts, kUmts, kUmts, kLte};
  const uint8_t rat = shared_value(&brio_atcmd_data::rat);
  *out = rat < sizeof(kModes) / sizeof(kModes[0]) ? kModes[rat] : kNone;
  return BRIO_STATUS_OK;
}

uint32_t briolib_plmn_get_mcc_mnc(const uint8_t plmn[3], char* mcc, char* mnc) {
  if (plmn == nullptr || mcc == nullptr || mnc == nullptr) return BRIO_STATUS_INVALID;
  parse::plmn_to_text(plmn, mcc, mnc);
  return BRIO_STATUS_OK;
}

uint32_t briolib_mccmnc_to_plmn(const char* mcc, const char* mnc, uint8_t plmn[3]) {
  if (mcc == nullptr || mnc == nullptr || plmn == nullptr) return BRIO_STATUS_INVALID;
  parse::text_to_plmn(mcc, mnc, plmn);
  return BRIO_STATUS_OK;
}

uint32_t brio_clear_sms(void) {
  uint32_t status = briolib_check_library_status();
  if (status != BRIO_STATUS_OK) return status;
  if (send_command("AT+CMGD=1,4") != BLPKT_STATUS_SUCCESS) {
    BLIB_E("clearSMS::failed to clear SMS");
    return BRIO_STATUS_TIMEOUT;
  }
  return BRIO_STATUS_OK;
}
