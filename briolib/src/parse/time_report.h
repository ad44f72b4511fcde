// Network time reports: +CTZV and indicator 9 of +CIEV.
#pragma once

#include <stdint.h>

#include "brio/brio_types.h"

namespace brio::parse {

enum class TimeOutcome {
  kComplete,     // the record may be stored
  kIncomplete,   // the line ended too early
  kTooShort,     // +CTZV: no room for a time zone
  kNoTime,       // +CTZV: a time zone alone
  kNotTime,      // +CIEV: another indicator
  kWrongLength,  // +CIEV: length of `rest` does not fit a time report
};

// The texts are those of the fields, in the line, for the log; null where the line ended before them.
struct TimeReport {
  TimeOutcome outcome;
  network_time time;  // all ones where nothing was set
  int parts;  // how many of year, month, day, hour, minute and second were there; an empty one ends them
  const char* zone;   // may be blank
  const char* dst;    // may be blank
  const char* date;   // without its opening quote
  const char* clock;  // with its closing quote
  const char* rest;   // what stood after the first field
};

// Text after "+CTZV:" or "+CIEV:", cut at its commas.
TimeReport parse_ctzv(char* text);
TimeReport parse_ciev(char* text);

}  // namespace brio::parse
