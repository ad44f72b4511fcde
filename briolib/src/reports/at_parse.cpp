// Finds the parser of a result line.
#include <string.h>

#include "base/log.h"
#include "base/log_text.h"
#include "brio/at_lines.h"
#include "brio/briolib.h"
#include "parse/sim.h"
#include "reports/report_table.h"

constexpr char kLogTag[] = "briolib/src/at_parse";

using namespace brio;

namespace {

const ReportRow* prv_find(const char* name) {
  size_t low = 0;
  size_t high = kReportCount;
  while (low < high) {
    size_t middle = (low + high) / 2;
    int order = strcmp(name, kReports[middle].name);
    if (order == 0) return &kReports[middle];
    if (order < 0) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

// The command is the argument of "+CRSM" lines only.
bool prv_iccid_file_read(const char* name, const void* argument_a) {
  return str_starts_with(name, "CRSM") != 0 &&
         parse::crsm_file(static_cast<const char*>(argument_a)) == parse::SimFile::kIccid;
}

// What its parser left of the text after the name, for the log.
LogText prv_log_rest(const char* name, const char* rest, const void* argument_a) {
  if (strcmp(name, "CCID") == 0) return masked_identity(rest);
  if (strcmp(name, "CRSM") == 0) {
    return masked_sim_file(rest, prv_iccid_file_read(name, argument_a));
  }
  return LogText(rest);
}

}  // namespace

void at_parse_init() {
  for (size_t i = 0; i < kReportCount; i++) {
    BLIB_D(BRIO_LOG_DISPATCH, "prefix_to_parser map[%zu]: %s\n", i, kReports[i].name);
  }
}

uint32_t at_parse(char* line, void* argument_a, void* argument_b) {
  if (line == nullptr) return BRIO_STATUS_FAILURE;
  char* name = line + strspn(line, "+:");
  const bool iccid = prv_iccid_file_read(name, argument_a);
  BLIB_D(BRIO_LOG_DISPATCH, "at_parse input:%s\n", masked_line(line, iccid).c_str());
  if (*line != '+') {
    BLIB_W(":line doesn't start with + skip parse%s:\n", masked_line(line, iccid).c_str());
    return BRIO_STATUS_FAILURE;
  }
  name = line + 1 + strspn(line + 1, ":");
  if (*name == '\0') return BRIO_STATUS_OK;
  char* rest = name + strcspn(name, ":");
  if (*rest == ':') *rest++ = '\0';

  const ReportRow* row = prv_find(name);
  if (row == nullptr) {
    BLIB_W(":No URC Callback func avail %s:\n", masked_line(name).c_str());
    return BRIO_STATUS_FAILURE;
  }
  if (row->log_name != nullptr) BLIB_D(BRIO_LOG_PARSE, "prv_at_parse_%s %s\n", row->log_name, rest);
  row->parse(rest, argument_a, argument_b);
  if (!row->silent) BLIB_PLAIN("URC::+%s: %s\n", name, prv_log_rest(name, rest, argument_a).c_str());
  return BRIO_STATUS_OK;
}
