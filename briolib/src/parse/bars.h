// The modem's signal bars: "+GTBARS", answered and unsolicited.
#ifndef BRIOLIB_PARSE_BARS_H
#define BRIOLIB_PARSE_BARS_H

#include <stdint.h>

namespace brio::parse {

enum BarsField : uint32_t {
  kBarsMode = 1u << 0,
  kBarsRat = 1u << 1,
  kBarsBars = 1u << 2,
  kBarsRssi = 1u << 3,
  kBarsEcno = 1u << 4,
};

struct BarsReport {
  uint32_t fields;  // BarsField bits of the fields that were there and not empty
  int32_t mode;
  int32_t rat;
  int32_t bars;
  int32_t rssi;
  int32_t ecno;
};

// The whole line that answers "AT+GTBARS?", prefix included; cut up in place.
BarsReport parse_bars_answer(char* line);
// Text behind "+GTBARS:" of an unsolicited report; cut up in place.
BarsReport parse_bars_report(char* payload);

}  // namespace brio::parse

#endif
