// Reject causes of the network, and the flag that tells the rest of the device to stop retrying.
#include <string.h>

#include "base/fields.h"
#include "base/files.h"
#include "base/guards.h"
#include "base/log.h"
#include "base/paths.h"
#include "brio_common/shared_data.h"
#include "parse/registration.h"

constexpr char kLogTag[] = "briolib/src/brio_common";

using namespace brio;

namespace {

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
