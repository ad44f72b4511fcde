// A row for each result name of the modem, and what the short ones do.
#include "reports/report_table.h"

#include <string_view>

#include "brio/briolib.h"
#include "channel/brio_blpkt.h"

namespace brio {
namespace {

// Parsers that need the text alone.
template <void (*parse)(char*)>
void prv_text(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  parse(rest);
}

template <Domain domain>
void prv_registration(char* rest, void* /*argument_a*/, void* is_query) {
  registration_line(domain, rest, is_query != nullptr);
}

void prv_bas(char* rest, void* /*argument_a*/, void* /*argument_b*/) {
  briolib_parse_bas_status(rest, nullptr);
}

void prv_sms(char* /*rest*/, void* /*argument_a*/, void* /*argument_b*/) {
  briolib_need_clear_sms();
}

}  // namespace

constexpr ReportRow kReports[] = {
    {"BASURC", prv_bas, "bas_status", false},
    {"CCID", report_ccid, nullptr, false},
    {"CGREG", prv_registration<kPs>, "cgreg", true},
    {"CIEV", report_ciev, nullptr, false},
    {"CMT", prv_sms, nullptr, false},
    {"CMTI", prv_sms, nullptr, false},
    {"CREG", prv_registration<kCs>, "creg", true},
    {"CRSM", report_crsm, nullptr, false},
    {"CTZV", report_ctzv, nullptr, false},
    {"GTBARS", prv_text<briolib_parse_gtbars>, "gtbars", false},
    {"GTOTAREJECT", prv_text<briolib_parse_gtotareject>, "gtotareject", false},
    {"GTSIMSTATUS", report_gtsimstatus, nullptr, false},
    {"STKPCI", prv_text<briolib_parse_stkpci>, "stkpci", false},
};
constexpr size_t kReportCount = sizeof(kReports) / sizeof(kReports[0]);

namespace {

constexpr bool prv_sorted() {
  for (size_t i = 1; i < kReportCount; i++) {
    if (std::string_view(kReports[i - 1].name) >= kReports[i].name) return false;
  }
  return true;
}
static_assert(prv_sorted(), "rows are sorted by name, and no name comes twice");

}  // namespace

const ReportParser kReportParser = at_parse;

}  // namespace brio
