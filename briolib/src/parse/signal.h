// The modem's signal bars ("+GTBARS") and its antennas ("+BAS"), answered and unsolicited.
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

struct BasReport {
  std::optional<uint16_t> value_a;  // divided by 16, two's complement
  std::optional<uint16_t> value_b;
  std::optional<uint8_t> antenna;
};

// The line "+BAS: ..." (`is_answer`) or the text after "+BASURC:"; cut up in place.
BasReport parse_bas(char* text, bool is_answer);

}  // namespace brio::parse
