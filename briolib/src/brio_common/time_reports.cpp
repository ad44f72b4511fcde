// Network time results: +CTZV and indicator 9 of +CIEV.
#include <string.h>

#include "base/log.h"
#include "base/text.h"
#include "brio_common/shared_data.h"
#include "parse/time_report.h"
#include "reports/report_table.h"

constexpr char kLogTag[] = "briolib/src/at_parse";

namespace brio {
namespace {

using parse::TimeOutcome;
using parse::TimeReport;

void prv_store_time(const network_time& time) {
  {
    UrcDataLock lock;
    briolib_update_time_info(&time);
  }
  briolib_send_time_event(&time);
}

void prv_log_parts(const TimeReport& report) {
  const network_time& time = report.time;
  if (report.parts > 0) BLIB_D(BRIO_LOG_DEBUG, "year: %d\n", time.year);
  if (report.parts > 1) BLIB_D(BRIO_LOG_DEBUG, "month: %d\n", time.month);
  if (report.parts > 2) BLIB_D(BRIO_LOG_DEBUG, "day: %d\n", time.day);
  if (report.clock == nullptr) return;
  BLIB_D(BRIO_LOG_DEBUG, "time string: %s\n", report.clock);
  if (report.parts > 3) BLIB_D(BRIO_LOG_DEBUG, "hour: %d\n", time.hour);
  if (report.parts > 4) BLIB_D(BRIO_LOG_DEBUG, "minute: %d\n", time.minute);
  if (report.parts > 5) BLIB_D(BRIO_LOG_DEBUG, "second: %d\n", time.second);
}

}  // namespace

void report_ctzv(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  if (*rest == '\0') {
    BLIB_E("prv_at_parse_ctzv:  line_ptr invalid:\n");
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "prv_at_parse_ctzv %s\n", rest);
  TimeReport report = parse::parse_ctzv(rest);
  if (report.outcome == TimeOutcome::kTooShort) {
    BLIB_D(BRIO_LOG_DEBUG, "prv_at_parse_ctzv skip parsing due to invalid len str = %s\n", report.rest);
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "CTZV TimeZone string = %s\n", report.zone);
  if (report.outcome == TimeOutcome::kNoTime) {
    BLIB_D(BRIO_LOG_DEBUG, "prv_at_parse_ctzv NO TIME INFO: %s\n", report.rest);
    return;
  }
  prv_log_parts(report);
  if (report.outcome == TimeOutcome::kComplete) prv_store_time(report.time);
}

void report_ciev(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  if (*rest == '\0') {
    BLIB_E("prv_at_parse_ciev:  line_ptr=  invalid:\n");
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "prv_at_parse_ciev %s\n", rest);
  TimeReport report = parse::parse_ciev(rest);
  if (report.outcome == TimeOutcome::kNotTime) return;
  if (report.outcome == TimeOutcome::kWrongLength) {
    BLIB_D(BRIO_LOG_DEBUG, "prv_at_parse_ciev skip parsing due to invalid len str = %s\n", report.rest);
    return;
  }
  if (report.parts > 0) {
    char year[32];  // a report of the right length has no longer field
    copy_text(year, sizeof(year), report.date, strcspn(report.date, "/"));
    BLIB_D(BRIO_LOG_DEBUG, "date: %s, year: %s\n", report.date, year);
  }
  if (report.clock != nullptr) BLIB_D(BRIO_LOG_DEBUG, "time string = %s\n", report.clock);
  if (report.zone != nullptr) BLIB_D(BRIO_LOG_DEBUG, "timezone string = %s\n", report.zone);
  if (report.dst != nullptr) BLIB_D(BRIO_LOG_DEBUG, "dst string = %s\n", report.dst);
  if (report.outcome != TimeOutcome::kComplete) return;
  const network_time& time = report.time;
  BLIB_D(BRIO_LOG_DEBUG, "time_info date = %d/%d/%d\n", time.year, time.month, time.day);
  BLIB_D(BRIO_LOG_DEBUG, "time_info time = %d:%d:%d\n", time.hour, time.minute, time.second);
  BLIB_D(BRIO_LOG_DEBUG, "time_info timezone = %d\n", time.time_zone);
  BLIB_D(BRIO_LOG_DEBUG, "time_info dst = %d\n", time.dst);
  prv_store_time(time);
}

}  // namespace brio
