#include "parse/signal.h"

#include <string.h>

#include "base/fields.h"

namespace brio::parse {
namespace {

std::optional<uint16_t> prv_sixteenth(std::optional<int32_t> value) {
  if (!value) return std::nullopt;
  return static_cast<uint16_t>(*value / 16);
}

}  // namespace

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

// +BAS: 320,-160,1
//       1 measurement a, sixteenths  2 measurement b, sixteenths  3 antenna in use
BasReport parse_bas(char* text, bool is_answer) {
  FieldReader fields(text);
  if (is_answer && strchr(text, ':') != nullptr) fields.next(':');
  BasReport report;
  report.value_a = prv_sixteenth(fields.number());
  report.value_b = prv_sixteenth(fields.number());
  report.antenna = fields.byte();
  return report;
}

}  // namespace brio::parse
