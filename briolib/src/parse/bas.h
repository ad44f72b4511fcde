// The BAS antenna status: "+BAS" answered, "+BASURC" unsolicited.
#ifndef BRIOLIB_PARSE_BAS_H
#define BRIOLIB_PARSE_BAS_H

#include <stdint.h>

namespace brio::parse {

enum BasField : uint32_t { kBasValueA = 1u << 0, kBasValueB = 1u << 1, kBasAntenna = 1u << 2 };

struct BasReport {
  uint32_t fields;   // BasField bits of the fields that were there and not empty
  uint16_t value_a;  // divided by 16, two's complement
  uint16_t value_b;
  uint8_t antenna;
};

// The line "+BAS: ..." (`is_answer`) or the text behind "+BASURC:"; cut up in place.
BasReport parse_bas(char* text, bool is_answer);

}  // namespace brio::parse

#endif
