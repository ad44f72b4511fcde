// The text of an answer's line after the result name.
#pragma once

#include <string.h>

#include "base/text.h"

namespace brio::parse {

// Text after the first ":" of `line`, white space skipped; null for a null line or one without ":".
inline const char* answer_payload(const char* line) {
  const char* colon = line != nullptr ? strchr(line, ':') : nullptr;
  return colon != nullptr ? skip_spaces(colon + 1) : nullptr;
}

// The first value of an answer, without quotes and blanks around it, cut to `capacity`: all that an answer of
// one value needs. A line without ":" is taken whole. False for a null line.
bool answer_text(const char* line, char* text, size_t capacity);

// The number that is all of a line without a result name, the form of 3GPP TS 27.007 (AT+CIMI, AT+CGSN=3),
// blanks skipped before it; null when the line is anything else. Blanks may follow it.
const char* bare_number(const char* line, size_t least_digits, size_t most_digits);

}  // namespace brio::parse
