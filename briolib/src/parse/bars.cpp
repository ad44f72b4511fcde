#include "parse/bars.h"

#include "base/text.h"

namespace brio::parse {
namespace {

struct Field {
  BarsField bit;
  int32_t BarsReport::*value;
};

template <size_t N>
BarsReport prv_take_fields(char* text, const Field (&order)[N]) {
  BarsReport report = {};
  char* cursor = text;
  for (const Field& field : order) {
    const char* token = next_field(&cursor, ',');
    if (token == nullptr) break;
    if (*skip_spaces(token) == '\0') continue;
    report.*field.value = decimal(token);
    report.fields |= field.bit;
  }
  return report;
}

constexpr Field kAnswerOrder[] = {
    {kBarsMode, &BarsReport::mode}, {kBarsRat, &BarsReport::rat},   {kBarsBars, &BarsReport::bars},
    {kBarsRssi, &BarsReport::rssi}, {kBarsEcno, &BarsReport::ecno},
};

constexpr Field kReportOrder[] = {
    {kBarsRat, &BarsReport::rat},
    {kBarsBars, &BarsReport::bars},
    {kBarsRssi, &BarsReport::rssi},
    {kBarsEcno, &BarsReport::ecno},
};

}  // namespace

//   +GTBARS: 0,7,4,60,30
//            | | | |  `- 5 Ec/No
//            | | | `---- 4 RSSI
//            | | `------ 3 bars
//            | `-------- 2 access technology
//            `---------- 1 mode; it stands behind the prefix and reads as 0
BarsReport parse_bars_answer(char* line) {
  return prv_take_fields(line, kAnswerOrder);
}

//   +GTBARS: 7,4,60,30
//            | | |  `- 4 Ec/No
//            | | `---- 3 RSSI
//            | `------ 2 bars
//            `-------- 1 access technology
BarsReport parse_bars_report(char* payload) {
  return prv_take_fields(payload, kReportOrder);
}

}  // namespace brio::parse
