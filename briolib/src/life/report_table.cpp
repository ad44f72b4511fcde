// A row for each result name of the modem, and what the short ones do.
#include "reports/report_table.h"

#include "base/log.h"
#include "brio/briolib.h"
#include "brio_common/time_reports.h"
#include "channel/brio_blpkt.h"
#include "services/brio_bars.h"
#include "services/sim_reports.h"

static constexpr char kLogTag[] = "briolib/src/at_parse";

namespace brio {
namespace {

// A flag that at_parse's caller passes as a pointer-sized value.
int32_t prv_flag(const void* argument) {
  return argument != nullptr ? 1 : 0;
}

void prv_creg(char* rest, void* /*argument_a*/, void* is_query) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_creg %s\n", BLIB_HERE, rest);
  briolib_parse_reg_status(rest, 1, prv_flag(is_query));
}

void prv_cgreg(char* rest, void* /*argument_a*/, void* is_query) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_cgreg %s\n", BLIB_HERE, rest);
  briolib_parse_reg_status(rest, 0, prv_flag(is_query));
}

void prv_stkpci(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_stkpci %s\n", BLIB_HERE, rest);
  briolib_parse_stkpci(rest);
}

void prv_gtbars(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_gtbars %s\n", BLIB_HERE, rest);
  briolib_parse_gtbars(rest);
}

void prv_gtotareject(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_gtotareject %s\n", BLIB_HERE, rest);
  briolib_parse_gtotareject(rest);
}

void prv_bas_status(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  BLIB_D(BRIO_LOG_PARSE, "D blib:%s:%d:prv_at_parse_bas_status %s\n", BLIB_HERE, rest);
  briolib_parse_bas_status(rest, nullptr);
}

void prv_sms(char* /*rest*/, void* /*argument_a*/, void* /*argument_b*/) {
  briolib_need_clear_sms();
}

}  // namespace

constexpr ReportRow kReports[kReportCount] = {
    {"BASURC", prv_bas_status, false},
    {"CCID", report_ccid, false},
    {"CGREG", prv_cgreg, true},
    {"CIEV", report_ciev, false},
    {"CMT", prv_sms, false},
    {"CMTI", prv_sms, false},
    {"CREG", prv_creg, true},
    {"CRSM", report_crsm, false},
    {"CTZV", report_ctzv, false},
    {"GTBARS", prv_gtbars, false},
    {"GTOTAREJECT", prv_gtotareject, false},
    {"GTSIMSTATUS", report_gtsimstatus, false},
    {"STKPCI", prv_stkpci, false},
};

namespace {

constexpr bool prv_before(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) {
    a++;
    b++;
  }
  return *a < *b;
}

constexpr bool prv_sorted() {
  for (size_t i = 1; i < kReportCount; i++) {
    if (!prv_before(kReports[i - 1].name, kReports[i].name)) return false;
  }
  return true;
}
static_assert(prv_sorted(), "rows are sorted by name, and no name comes twice");

}  // namespace

const ReportParser kReportParser = at_parse;

}  // namespace brio
