// The result names that the library knows. at_parse finds them; the rows are in life/report_table.cpp, above
// every parser.
#ifndef BRIOLIB_REPORTS_REPORT_TABLE_H
#define BRIOLIB_REPORTS_REPORT_TABLE_H

#include <stddef.h>

namespace brio {

struct ReportRow {
  const char* name;  // without "+" and ":"
  // Takes the text after the name and its colon, which it may cut, and the arguments of at_parse.
  void (*parse)(char* rest, void* argument_a, void* argument_b);
  bool silent;  // no line of at_parse: the parser logs its own
};

constexpr size_t kReportCount = 13;
extern const ReportRow kReports[kReportCount];  // sorted by name

}  // namespace brio

#endif
