// Reject causes of the network, and the flag that tells the rest of the device to stop retrying.
#include <string.h>

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

// Where the report of one procedure is kept: the cause in reject_bytes, MCC and MNC in reject_words. The CS
// and PS causes are shared with the registration lines: the last report wins.
struct RejectPlace {
  uint8_t procedure;
  uint8_t cause_byte;
  uint8_t mcc_word;
  uint8_t mnc_word;
  const char* cause_name;
  const char* mcc_name;
  const char* mnc_name;
};
constexpr RejectPlace kPlaces[] = {
    {1, 1, 0, 1, "CS_REJ_CAUSE", "CS_REJ_MCC", "CS_REJ_MNC"},
    {3, 2, 2, 3, "PS_REJ_CAUSE", "PS_REJ_MCC", "PS_REJ_MNC"},
    {4, 3, 4, 5, "SM_REJ_CAUSE", "SM_REJ_MCC", "SM_REJ_MNC"},
    {5, 4, 6, 7, "EMM_REJ_CAUSE", "EMM_REJ_MCC", "EMM_REJ_MNC"},
    {6, 5, 8, 9, "ESM_REJ_CAUSE", "ESM_REJ_MCC", "ESM_REJ_MNC"},
};

const RejectPlace* prv_find_place(uint8_t procedure) {
  for (const RejectPlace& place : kPlaces) {
    if (place.procedure == procedure) return &place;
  }
  return nullptr;
}

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

void prv_log_value(const char* name, int value) {
  BLIB_D(BRIO_LOG_DEBUG, "GTOTAREJECT: %s[%d]", name, value);
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
  const RejectPlace* place = prv_find_place(*report.procedure);
  if (place == nullptr) return;
  {
    UrcDataLock lock;
    brio_atcmd_data& data = g_brio_lib_atcmd_data;
    if (report.cause) data.reject_bytes[place->cause_byte] = *report.cause;
    if (report.mcc) data.reject_words[place->mcc_word] = *report.mcc;
    if (report.mnc) data.reject_words[place->mnc_word] = *report.mnc;
  }
  if (report.cause) {
    prv_log_value(place->cause_name, *report.cause);
    prv_briolib_check_fatal_reject(*report.procedure, *report.cause);
  }
  if (report.mcc) prv_log_value(place->mcc_name, *report.mcc);
  if (report.mnc) prv_log_value(place->mnc_name, *report.mnc);
}

uint32_t briolib_get_rej_causes(void) {
  return BRIO_STATUS_OK;
}
