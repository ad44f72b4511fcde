#include "parse/bas.h"

#include <string.h>

#include "base/text.h"

namespace brio::parse {
namespace {

uint16_t prv_sixteenth(const char* field) {
  return static_cast<uint16_t>(decimal(field) / 16);
}

}  // namespace

//   +BAS: 320,-160,1
//         |   |    `- 3 antenna in use
//         |   `------ 2 measurement b, sixteenths
//         `---------- 1 measurement a, sixteenths
BasReport parse_bas(char* text, bool is_answer) {
  BasReport report = {};
  char* cursor = text;
  if (is_answer) {
    char* colon = strchr(text, ':');
    if (colon != nullptr) cursor = colon + 1;
    cursor = skip_spaces(cursor);
  }
  const char* field = next_field(&cursor, ',');
  if (field == nullptr) return report;
  if (*skip_spaces(field) != '\0') {
    report.value_a = prv_sixteenth(field);
    report.fields |= kBasValueA;
  }
  field = next_field(&cursor, ',');
  if (field == nullptr) return report;
  if (*skip_spaces(field) != '\0') {
    report.value_b = prv_sixteenth(field);
    report.fields |= kBasValueB;
  }
  field = next_field(&cursor, ',');
  if (field == nullptr) return report;
  if (*skip_spaces(field) != '\0') {
    report.antenna = static_cast<uint8_t>(decimal(field));
    report.fields |= kBasAntenna;
  }
  return report;
}

}  // namespace brio::parse
