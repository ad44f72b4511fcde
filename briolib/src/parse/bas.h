// The BAS antenna status: "+BAS" answered, "+BASURC" unsolicited.
#pragma once

#include <stdint.h>

#include <optional>

namespace brio::parse {

struct BasReport {
  std::optional<uint16_t> value_a;  // divided by 16, two's complement
  std::optional<uint16_t> value_b;
  std::optional<uint8_t> antenna;
};

// The line "+BAS: ..." (`is_answer`) or the text after "+BASURC:"; cut up in place.
BasReport parse_bas(char* text, bool is_answer);

}  // namespace brio::parse
