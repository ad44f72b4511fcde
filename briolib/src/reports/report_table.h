// The result names that the library knows. at_parse finds them; the rows are in life/report_table.cpp, above
// every parser.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace brio {

struct ReportRow {
  const char* name;  // without "+" and ":"
  // Takes the text after the name and its colon, which it may cut, and the arguments of at_parse.
  void (*parse)(char* rest, void* argument_a, void* argument_b);
  const char* log_name;  // in the debug line with the text; null: none
  bool silent;           // no line of at_parse: the parser logs its own
};

extern const ReportRow kReports[];  // sorted by name
extern const size_t kReportCount;

// ---- What the rows call beside the exported parsers. The layers above define it.

// The domains that the modem registers for. A domain is a row in brio_common/registration.cpp, its place here
// and the row of its report.
enum Domain { kCs, kPs };

// Stores and logs the text after a registration line's name, cut up in place. May raise events.
void registration_line(Domain which, char* payload, bool is_query);

// Network time.
void report_ctzv(char* rest, void* argument_a, void* argument_b);
void report_ciev(char* rest, void* argument_a, void* argument_b);

// SIM: card status, ICCID, elementary files.
void report_gtsimstatus(char* rest, void* argument_a, void* argument_b);
void report_ccid(char* rest, void* argument_a, void* argument_b);
void report_crsm(char* rest, void* argument_a, void* argument_b);

// Counts a short message that needs clearing. Event thread.
void briolib_need_clear_sms();
// How many that are, counted from 255 on. Nothing in the library asks.
uint32_t briolib_sms_to_clear();

}  // namespace brio
