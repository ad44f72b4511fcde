#include "brio_common/time_reports.h"

#include <string.h>

#include "base/log.h"
#include "base/text.h"
#include "brio_common/shared_data.h"
#include "parse/time_report.h"

static constexpr char kLogTag[] = "briolib/src/at_parse";

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
  if (report.parts > 0) BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:year: %d\n", BLIB_HERE, time.year);
  if (report.parts > 1) BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:month: %d\n", BLIB_HERE, time.month);
  if (report.parts > 2) BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:day: %d\n", BLIB_HERE, time.day);
  if (report.clock == nullptr) return;
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:time string: %s\n", BLIB_HERE, report.clock);
  if (report.parts > 3) BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:hour: %d\n", BLIB_HERE, time.hour);
  if (report.parts > 4) BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:minute: %d\n", BLIB_HERE, time.minute);
  if (report.parts > 5) BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:second: %d\n", BLIB_HERE, time.second);
}

}  // namespace

void report_ctzv(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  if (*rest == '\0') {
    BLIB_E("E blib:%s:%d:prv_at_parse_ctzv:  line_ptr invalid:\n", BLIB_HERE);
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:prv_at_parse_ctzv %s\n", BLIB_HERE, rest);
  TimeReport report = parse::parse_ctzv(rest);
  if (report.outcome == TimeOutcome::kTooShort) {
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:prv_at_parse_ctzv skip parsing due to invalid len str = %s\n",
           BLIB_HERE, report.rest);
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:CTZV TimeZone string = %s\n", BLIB_HERE, report.zone);
  if (report.outcome == TimeOutcome::kNoTime) {
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:prv_at_parse_ctzv NO TIME INFO: %s\n", BLIB_HERE, report.rest);
    return;
  }
  prv_log_parts(report);
  if (report.outcome == TimeOutcome::kComplete) prv_store_time(report.time);
}

void report_ciev(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  if (*rest == '\0') {
    BLIB_E("E blib:%s:%d:prv_at_parse_ciev:  line_ptr=  invalid:\n", BLIB_HERE);
    return;
  }
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:prv_at_parse_ciev %s\n", BLIB_HERE, rest);
  TimeReport report = parse::parse_ciev(rest);
  if (report.outcome == TimeOutcome::kNotTime) return;
  if (report.outcome == TimeOutcome::kWrongLength) {
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:prv_at_parse_ciev skip parsing due to invalid len str = %s\n",
           BLIB_HERE, report.rest);
    return;
  }
  if (report.parts > 0) {
    char year[32];  // a report of the right length has no longer field
    copy_text(year, sizeof(year), report.date, strcspn(report.date, "/"));
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:date: %s, year: %s\n", BLIB_HERE, report.date, year);
  }
  if (report.clock != nullptr) {
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:time string = %s\n", BLIB_HERE, report.clock);
  }
  if (report.zone != nullptr) {
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:timezone string = %s\n", BLIB_HERE, report.zone);
  }
  if (report.dst != nullptr) {
    BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:dst string = %s\n", BLIB_HERE, report.dst);
  }
  if (report.outcome != TimeOutcome::kComplete) return;
  const network_time& time = report.time;
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:time_info date = %d/%d/%d\n", BLIB_HERE, time.year, time.month,
         time.day);
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:time_info time = %d:%d:%d\n", BLIB_HERE, time.hour, time.minute,
         time.second);
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:time_info timezone = %d\n", BLIB_HERE, time.time_zone);
  BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:time_info dst = %d\n", BLIB_HERE, time.dst);
  prv_store_time(time);
}

}  // namespace brio
