#include "parse/bas.h"

#include <string.h>

#include "base/fields.h"

namespace brio::parse {
namespace {

std::optional<uint16_t> prv_sixteenth(std::optional<int32_t> value) {
  if (!value) return std::nullopt;
  return static_cast<uint16_t>(*value / 16);
}

}  // namespace

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
