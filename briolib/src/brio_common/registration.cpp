// Unsolicited results on and off, registration state and its reject causes, SIM refresh.
#include <stdio.h>
#include <string.h>

#include "base/fields.h"
#include "base/files.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/relaxed.h"
#include "base/text.h"
#include "brio/brio_at.h"
#include "brio_common/library_state.h"
#include "brio_common/shared_data.h"
#include "channel/brio_blpkt.h"
#include "channel/request.h"
#include "parse/registration.h"
#include "parse/sim.h"
#include "reports/report_table.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

// The latest report when the file was last read. Event thread only.
uint32_t s_refreshed_up_to;
// The latest report when the reading's answer came: a relaxed word, written by the read thread.
uint32_t s_reports_at_answer;

uint32_t prv_send(const char* command) {
  return send_command(command, NO_RESULT);
}

uint32_t prv_send_bas(const char* command) {
  return query(command, SINGLELINE, kBasPrefix, nullptr);
}

// Response callback of the domains' queries, "AT+CREG?" and so on (read thread).
uint32_t recv_func_prv_briolib_get_reg(const ATResponse* response, void*, uint16_t) {
  char* line = answer_line_for("recv_func_prv_briolib_get_reg", response);
  if (line == nullptr) return BRIO_STATUS_INVALID;
  uint32_t result = at_parse(skip_spaces(line), nullptr, line);
  BLIB_D(BRIO_LOG_MODEM_INFO, "atcmd creg/cgreg blpkt_ret:%d", result);
  return result;
}

// Response callback of the ICCID file's reading (read thread). The user data is the text of the command.
uint32_t recv_func_prv_briolib_get_crsm(const ATResponse* response, void* user_data, uint16_t) {
  relaxed_store(s_reports_at_answer, blpkt_last_report());
  char* line = answer_line_for("recv_func_prv_briolib_get_crsm", response);
  if (line == nullptr) return BRIO_STATUS_INVALID;
  line = skip_spaces(line);
  BLIB_D(BRIO_LOG_DEBUG, "get crsm [%s]",
         parse::crsm_log_text(line, static_cast<const char*>(user_data)).c_str());
  uint32_t result = at_parse(line, user_data, nullptr);
  BLIB_D(BRIO_LOG_DEBUG, "atcmd crsm blpkt_ret[%d]", result);
  return result;
}

// Registration states of 3GPP TS 27.007 that count here.
enum Stat : int32_t { kStatHome = 1, kStatDenied = 3, kStatRoaming = 5 };

bool prv_store_stat(int32_t stat, uint8_t& status) {
  status = stat == kStatHome      ? kHome
           : stat == kStatRoaming ? kRoaming
           : stat == kStatDenied  ? kDenied
                                  : kNotRegistered;
  return true;
}

bool prv_store_ps_stat(int32_t stat, uint8_t& status) {
  uint32_t attached = 0;
  bool may_be_off = false;
  switch (stat) {
    case kStatHome:
    case kStatRoaming:
      status = stat == kStatHome ? kHome : kRoaming;
      attached = 1;
      break;
    case kStatDenied:
      // A denied PS registration is kept in the CS field, and the PS field keeps its value. This is meant.
      g_brio_lib_atcmd_data.cs_reg_status = kDenied;
      break;
    default:
      status = kNotRegistered;
      may_be_off = true;
      break;
  }
  memcpy(s_prev_pdp_event, s_pdp_event, sizeof(s_pdp_event));
  s_pdp_event[0] = attached;
  s_pdp_event[1] = attached;
  // With the lock held, so that two threads' events come in the order of their values.
  if (s_pdp_event[0] != s_prev_pdp_event[0]) {
    briolib_exec_event_callback(BRIO_EVENT_PDP_ACTIVATION_ALLOWED, sizeof(s_pdp_event), s_pdp_event);
  }
  return may_be_off;
}

struct DomainRow {
  const char* result;                // of its lines and, after "AT+", of its commands
  const char* name;                  // in the log
  bool logs_roaming;                 // as registered
  size_t cause;                      // place in reject_bytes (brio_types.h), which the page shows
  uint8_t brio_atcmd_data::*status;  // kNotRegistered (0) while it is not registered
  uint16_t brio_atcmd_data::*area;
  // Fills `status`. True when the modem may be registered for no domain now.
  bool (*store_stat)(int32_t stat, uint8_t& status);
};
constexpr DomainRow kDomains[] = {
    // by Domain
    {"CREG", "CS", false, 1, &brio_atcmd_data::cs_reg_status, &brio_atcmd_data::lac, prv_store_stat},
    {"CGREG", "PS", true, 2, &brio_atcmd_data::ps_reg_status, &brio_atcmd_data::lac, prv_store_ps_stat},
};
constexpr size_t kRegistrationCommandSize = 16;

// That hardware names the band in its registration lines, in the reporting mode 99 only.
bool prv_names_band() {
  return shared_value(&brio_atcmd_data::wan_type) == BRIO_WAN_TYPE_OSPREY;
}

void prv_enable_startup_urcs() {
  prv_send("AT+COPS=3,2");
  const int mode = prv_names_band() ? 99 : 2;
  for (const DomainRow& domain : kDomains) {
    char command[kRegistrationCommandSize];
    snprintf(command, sizeof(command), "AT+%s=%d", domain.result, mode);
    prv_send(command);
  }
  prv_send("AT+CTZR=1");
  prv_send("AT+GTOTAREJECT=1");
  prv_send("AT+GTBARS=0");
}

void prv_log_tokens(const char* payload, bool is_query, bool with_band) {
  constexpr int kBandIndex = 5;
  int index = is_query ? 0 : 1;
  for (const char* token = payload; token != nullptr;) {
    const size_t length = strcspn(token, ",");
    BLIB_D(BRIO_LOG_REG, "PARSE_REG:index[%d]token[%.*s]", index, static_cast<int>(length), token);
    if (index == kBandIndex && with_band) {
      with_band = false;  // the band and the field after it count as one
    } else {
      index++;
    }
    token = token[length] == ',' ? token + length + 1 : nullptr;
  }
}

// Serving-cell data is worthless once the modem is registered for no domain: true when it was cleared.
bool prv_clear_if_unregistered() {
  for (const DomainRow& domain : kDomains) {
    if (g_brio_lib_atcmd_data.*domain.status != kNotRegistered) return false;
  }
  briolib_init_atcmd_data(1);
  return true;
}

// True when serving-cell data was cleared.
bool prv_store_registration(const parse::Registration& line, const DomainRow& domain) {
  UrcDataLock lock;
  brio_atcmd_data& data = g_brio_lib_atcmd_data;
  bool cleared = false;
  // The registration state first: it may clear what the other fields then fill.
  if (line.stat) cleared = domain.store_stat(*line.stat, data.*domain.status) && prv_clear_if_unregistered();
  store(line.lac, &(data.*domain.area));
  store(line.cell_id, &data.cell_id);
  store(line.rat, &data.rat);
  store(line.band, &data.band);
  store(line.reject_cause, &data.reject_bytes[domain.cause]);
  if (data.rat < kRatUnknown) data.rat_valid = 1;
  return cleared;
}

void prv_log_registration(const parse::Registration& line, const DomainRow& domain, bool cleared) {
  if (line.stat) {
    BLIB_D(BRIO_LOG_REG, "PARSE_REG:reg_status[%d]", *line.stat);
    if (*line.stat == kStatHome || (*line.stat == kStatRoaming && domain.logs_roaming)) {
      BLIB_D(BRIO_LOG_REG, "PARSE_REG:%s REGISTERED", domain.name);
    }
  }
  if (cleared) BLIB_D(BRIO_LOG_DEREG, "CS PS de-reg, clearing cache");
  if (line.lac) BLIB_D(BRIO_LOG_REG, "PARSE_REG:LAC[%d]", *line.lac);
  if (line.cell_id) BLIB_D(BRIO_LOG_REG, "PARSE_REG:CELL_ID[%d]", *line.cell_id);
  if (line.rat) BLIB_D(BRIO_LOG_REG, "PARSE_REG:RAT[%d]", *line.rat);
  if (line.reject_type) BLIB_D(BRIO_LOG_REG, "PARSE_REG:%s_REJECT_TYPE[%d]", domain.name, *line.reject_type);
  if (line.reject_cause) {
    BLIB_D(BRIO_LOG_REG, "PARSE_REG:%s_REJECT_CAUSE[%d]", domain.name, *line.reject_cause);
  }
}

// ---- Reject causes of the network, and the flag that tells the rest of the device to stop retrying

constexpr size_t kPayloadTooShort = 7;

struct ProcedureRow {
  uint8_t procedure;
  const char* name;
};
// A row's place tells where its report is kept: the cause in reject_bytes, from 1 on, MCC and MNC as a pair
// in reject_words. The CS and PS causes are shared with the registration lines: the last report wins.
constexpr ProcedureRow kProcedures[] = {{1, "CS"}, {3, "PS"}, {4, "SM"}, {5, "EMM"}, {6, "ESM"}};
constexpr size_t kProcedureCount = sizeof(kProcedures) / sizeof(kProcedures[0]);

void prv_briolib_create_fatal_reject_flag() {
  // The file's presence is the whole message.
  Descriptor flag(open_output(kFatalRejectFile, O_WRONLY | O_TRUNC, 0644));
  if (!flag.valid()) BLIB_E("prv_briolib_create_fatal_reject_flag::FATAL Reject Flag create failure");
}

void prv_briolib_check_fatal_reject(uint8_t procedure, uint8_t cause) {
  if (!parse::is_fatal_reject(procedure, cause)) return;
  BLIB_I("prv_briolib_check_fatal_reject:PROC:%d Rej Cause:%d:Fatal Reject cause received", procedure, cause);
  prv_briolib_create_fatal_reject_flag();
}

}  // namespace

uint32_t s_pdp_event[2];
uint32_t s_prev_pdp_event[2];

uint32_t briolib_atcmd_enable_urc(uint32_t mode) {
  switch (mode) {
    case kStartupReports:
      prv_enable_startup_urcs();
      return BRIO_STATUS_OK;
    case kBasReportsOn:
      prv_send("AT@GTICOM:SIO_PSVCTRL(0)");
      return briolib_translate_status(prv_send_bas("AT@EPHY:EPHY_BAS_STATUS(1)"), 0);
    case kBasReportsOff:
      prv_send_bas("AT@EPHY:EPHY_BAS_STATUS(0)");
      return briolib_translate_status(prv_send("AT@GTICOM:SIO_PSVCTRL(0)"), 0);
    case kBarsReportsOn:
      return briolib_translate_status(prv_send("AT+GTBARS=1"), 0);
    case kBarsReportsOff:
      return briolib_translate_status(prv_send("AT+GTBARS=0"), 0);
    default:
      return BRIO_STATUS_OK;
  }
}

uint32_t brio_atcmd_enable_urc(uint32_t mode) {
  // The modes above 1 are used on the way down, when the library may already be failing: they pass no gate.
  if (mode <= kBasReportsOn) {
    const uint32_t status = gate("brio_atcmd_enable_urc");
    if (status != BRIO_STATUS_OK) return status;
  }
  return briolib_atcmd_enable_urc(mode);
}

uint32_t briolib_atcmd_query_reg_status(void) {
  uint32_t status = BLPKT_STATUS_SUCCESS;
  for (const DomainRow& domain : kDomains) {
    char command[kRegistrationCommandSize];
    char prefix[kRegistrationCommandSize];
    snprintf(command, sizeof(command), "AT+%s?", domain.result);
    snprintf(prefix, sizeof(prefix), "+%s", domain.result);
    status = query(command, SINGLELINE, prefix, recv_func_prv_briolib_get_reg);
  }
  return status;
}

void briolib_parse_reg_status(char* payload, int32_t is_cs, int32_t is_query) {
  registration_line(is_cs != 0 ? kCs : kPs, payload, is_query != 0);
}

void brio::registration_line(Domain which, char* payload, bool is_query) {
  const DomainRow& domain = kDomains[which];
  if (payload == nullptr) {
    BLIB_E("briolib_parse_reg_status:reg_payload is NULL:");
    UrcDataLock lock;
    brio_atcmd_data& data = g_brio_lib_atcmd_data;
    if (data.rat < kRatUnknown) data.rat_valid = 1;
    return;
  }
  const bool with_band = prv_names_band();
  if (log_on(BRIO_LOG_REG)) prv_log_tokens(payload, is_query, with_band);
  const parse::Registration line = parse::parse_registration(payload, is_query, with_band);
  const bool cleared = prv_store_registration(line, domain);
  prv_log_registration(line, domain, cleared);
  if (is_query) return;
  char summary[parse::kRegistrationSummarySize];
  parse::registration_summary(line, summary);
  BLIB_PLAIN("URC::+%s: %s", domain.result, summary);
}

void briolib_parse_stkpci(char* payload) {
  if (payload == nullptr) {
    BLIB_E("briolib_parse_stkpci:stkpci_str is NULL:");
    return;
  }
  BLIB_D(BRIO_LOG_REG, "PARSE_STKPCI:stkpci_urc_payload_pointer: %p", static_cast<void*>(payload));
  BLIB_D(BRIO_LOG_REG, "string: %s", payload);
  if (strlen(payload) < parse::kProactiveCommandMin) {
    BLIB_D(BRIO_LOG_REG, "Proactive command is much smaller then REFRESH: %s", payload);
    return;
  }
  if (!parse::is_usim_refresh(payload)) return;
  BLIB_D(BRIO_LOG_REG, "Refresh command for USIM Init and Full File Change Notification");
  // What came while the file was being read, or before, asks for that reading: a SIM that reports faster than
  // it is read would otherwise keep the channel.
  const uint32_t report = blpkt_report_in_hand();
  if (report != 0 && static_cast<int32_t>(report - s_refreshed_up_to) <= 0) return;
  // The parser of the answer learns from the command which file it holds; it only reads that text.
  const char* command = parse::kReadIccidCommand;
  const uint32_t status =
      query(command, SINGLELINE, "+CRSM", recv_func_prv_briolib_get_crsm, const_cast<char*>(command));
  if (report == 0) return;
  s_refreshed_up_to =
      status == BLPKT_STATUS_SUCCESS ? relaxed_load(s_reports_at_answer) : blpkt_last_report();
}

void briolib_parse_gtotareject(char* payload) {
  if (payload == nullptr || strlen(payload) <= kPayloadTooShort) {
    BLIB_E("briolib_parse_gtotareject:URC payload is invalid:");
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "gtotareject: %s", payload);
  const parse::RejectReport report = parse::parse_reject(payload);
  if (!report.procedure) return;
  BLIB_D(BRIO_LOG_DEBUG, "GTOTAREJECT: PROCEDURE[%d]", *report.procedure);
  size_t place = 0;
  while (place < kProcedureCount && kProcedures[place].procedure != *report.procedure) place++;
  if (place == kProcedureCount) return;
  {
    UrcDataLock lock;
    brio_atcmd_data& data = g_brio_lib_atcmd_data;
    store(report.cause, &data.reject_bytes[place + 1]);
    store(report.mcc, &data.reject_words[2 * place]);
    store(report.mnc, &data.reject_words[2 * place + 1]);
  }
  const char* name = kProcedures[place].name;
  if (report.cause) {
    BLIB_D(BRIO_LOG_DEBUG, "GTOTAREJECT: %s_REJ_CAUSE[%d]", name, *report.cause);
    prv_briolib_check_fatal_reject(*report.procedure, *report.cause);
  }
  if (report.mcc) BLIB_D(BRIO_LOG_DEBUG, "GTOTAREJECT: %s_REJ_MCC[%d]", name, *report.mcc);
  if (report.mnc) BLIB_D(BRIO_LOG_DEBUG, "GTOTAREJECT: %s_REJ_MNC[%d]", name, *report.mnc);
}

uint32_t briolib_get_rej_causes(void) {
  return BRIO_STATUS_OK;
}
