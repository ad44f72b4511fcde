#include "parse/bars.h"

#include "base/fields.h"

namespace brio::parse {

// +GTBARS: 0,7,4,60,30     answer: mode (not examined), then as the report
// +GTBARS: 7,4,60,30       report: 1 access technology  2 bars  3 RSSI  4 Ec/No
BarsReport parse_bars(char* text, bool is_answer) {
  FieldReader fields(text);
  if (is_answer) fields.next();
  BarsReport report;
  report.rat = fields.number();
  report.bars = fields.number();
  report.rssi = fields.number();
  report.ecno = fields.number();
  return report;
}

}  // namespace brio::parse
