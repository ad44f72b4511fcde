// The modem's signal bars: "+GTBARS", answered and unsolicited.
#pragma once

#include <stdint.h>

#include <optional>

namespace brio::parse {

struct BarsReport {
  std::optional<int32_t> rat;
  std::optional<int32_t> bars;
  std::optional<int32_t> rssi;
  std::optional<int32_t> ecno;
};

// The whole line that answers "AT+GTBARS?", prefix included, or the text after "+GTBARS:" of an unsolicited
// report; cut up in place.
BarsReport parse_bars(char* text, bool is_answer);

}  // namespace brio::parse
