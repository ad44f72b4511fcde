// The result names that the library knows. at_parse finds them; the rows are in life/report_table.cpp, above
// every parser.
#pragma once

#include <stddef.h>

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

}  // namespace brio
