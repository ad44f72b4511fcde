// Network time reports: +CTZV and indicator 9 of +CIEV.
#ifndef BRIOLIB_PARSE_TIME_REPORT_H
#define BRIOLIB_PARSE_TIME_REPORT_H

#include <stdint.h>

#include "brio/brio_types.h"

namespace brio::parse {

// Fields that were there, in the order in which both reports are read. An empty time zone or daylight-saving
// value is there and leaves its value at all ones; an empty part of date or time is missing.
enum TimeField : uint32_t {
  kTimeYear = 1u << 0,
  kTimeMonth = 1u << 1,
  kTimeDay = 1u << 2,
  kTimeHour = 1u << 3,
  kTimeMinute = 1u << 4,
  kTimeSecond = 1u << 5,
  kTimeZone = 1u << 6,
  kTimeDst = 1u << 7,
};

enum class TimeOutcome {
  kComplete,     // the record may be stored
  kIncomplete,   // the line ended too early
  kTooShort,     // +CTZV: no room for a time zone
  kNoTime,       // +CTZV: a time zone alone
  kNotTime,      // +CIEV: another indicator
  kWrongLength,  // +CIEV: length of `rest` does not fit a time report
};

struct TimeReport {
  TimeOutcome outcome;
  uint32_t fields;    // TimeField bits
  network_time time;  // all ones where nothing was set
  const char* zone;   // texts of the fields for the log; null or empty where the line had none
  const char* dst;
  const char* rest;   // what stood behind the first field when parsing stopped there
  const char* date;   // without its opening quote; valid with kTimeYear
  const char* clock;  // with its closing quote; null when the line ended before it
};

// Text behind "+CTZV:" or "+CIEV:", cut at its commas.
TimeReport parse_ctzv(char* rest);
TimeReport parse_ciev(char* rest);

}  // namespace brio::parse

#endif
