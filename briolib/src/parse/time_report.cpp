#include "parse/time_report.h"

#include <string.h>

#include "base/text.h"

namespace brio::parse {
namespace {

// "26/03/07,09:05:00" with its quotes.
constexpr size_t kQuotedTimeLength = 19;

TimeReport prv_empty_report() {
  TimeReport report = {};
  report.outcome = TimeOutcome::kIncomplete;
  memset(&report.time, 0xFF, sizeof(report.time));
  return report;
}

struct Part {
  TimeField bit;
  void (*set)(network_time* time, int32_t value);
};

constexpr Part kDateParts[] = {
    {kTimeYear, [](network_time* time, int32_t value) { time->year = static_cast<uint16_t>(value); }},
    {kTimeMonth, [](network_time* time, int32_t value) { time->month = static_cast<uint8_t>(value); }},
    {kTimeDay, [](network_time* time, int32_t value) { time->day = static_cast<uint8_t>(value); }},
};

constexpr Part kClockParts[] = {
    {kTimeHour, [](network_time* time, int32_t value) { time->hour = static_cast<uint8_t>(value); }},
    {kTimeMinute, [](network_time* time, int32_t value) { time->minute = static_cast<uint8_t>(value); }},
    {kTimeSecond, [](network_time* time, int32_t value) { time->second = static_cast<uint8_t>(value); }},
};

// False at the first empty part, or when the text ended before its third. The text stays whole for the log; a
// number ends by itself at the separator.
bool prv_take_parts(const char* text, const char* end, char separator, const Part (&parts)[3],
                    TimeReport* report) {
  const char* field = text;
  for (const Part& part : parts) {
    if (field == nullptr) return false;
    const char* number = skip_spaces(field);
    if (number >= end || *number == separator) return false;
    part.set(&report->time, decimal(number));
    report->fields |= part.bit;
    field = strchr(field, separator);
    if (field != nullptr) field++;
  }
  return true;
}

bool prv_take_date(const char* text, TimeReport* report) {
  report->date = text;
  return prv_take_parts(text, text + strlen(text), '/', kDateParts, report);
}

bool prv_take_clock(const char* text, TimeReport* report) {
  report->clock = text;
  size_t length = strlen(text);
  if (length > 0 && text[length - 1] == '"') length--;
  return prv_take_parts(text, text + length, ':', kClockParts, report);
}

}  // namespace

//   +CTZV: -28,"26/03/07,09:05:00"
//          |   |        `- 3 hour:minute:second
//          |   `---------- 2 year/month/day
//          `-------------- 1 time zone, quarter hours
TimeReport parse_ctzv(char* rest) {
  TimeReport report = prv_empty_report();
  if (strlen(rest) < 2) {
    report.outcome = TimeOutcome::kTooShort;
    report.rest = rest;
    return report;
  }
  char* cursor = rest;
  char* zone = skip_spaces(next_field(&cursor, ','));
  report.zone = zone;
  report.fields |= kTimeZone;
  if (*skip_spaces(zone) != '\0') report.time.time_zone = decimal(zone);

  report.rest = cursor != nullptr ? cursor : "";
  if (strlen(report.rest) < kQuotedTimeLength || *cursor != '"') {
    report.outcome = TimeOutcome::kNoTime;
    return report;
  }
  char* date = next_field(&cursor, ',');
  if (!prv_take_date(date + 1, &report)) return report;
  char* clock = next_field(&cursor, ',');
  if (clock == nullptr || !prv_take_clock(clock, &report)) return report;
  report.outcome = TimeOutcome::kComplete;
  return report;
}

//   +CIEV: 9,"26/03/07,09:05:00",-28,0
//          | |        |          |   `- 5 daylight-saving value
//          | |        |          `----- 4 time zone, quarter hours
//          | |        `---------------- 3 hour:minute:second
//          | `------------------------- 2 year/month/day
//          `--------------------------- 1 indicator, 9 is the time
TimeReport parse_ciev(char* rest) {
  TimeReport report = prv_empty_report();
  char* cursor = rest;
  const char* indicator = skip_spaces(next_field(&cursor, ','));
  if (*indicator != '9') {  // only the first character counts
    report.outcome = TimeOutcome::kNotTime;
    return report;
  }
  report.rest = cursor != nullptr ? cursor : "";
  size_t length = strlen(report.rest);
  if (length < 23 || length > 25) {
    report.outcome = TimeOutcome::kWrongLength;
    return report;
  }
  char* date = next_field(&cursor, ',');
  if (*date != '\0') date++;  // the opening quote
  if (!prv_take_date(date, &report)) return report;
  char* clock = next_field(&cursor, ',');
  if (clock == nullptr || !prv_take_clock(clock, &report)) return report;

  char* zone = next_field(&cursor, ',');
  if (zone == nullptr) return report;
  report.zone = zone;
  report.fields |= kTimeZone;
  if (*skip_spaces(zone) != '\0') report.time.time_zone = decimal(zone);

  char* dst = next_field(&cursor, ',');
  if (dst == nullptr) return report;
  report.dst = dst;
  report.fields |= kTimeDst;
  if (*skip_spaces(dst) != '\0') report.time.dst = decimal(dst);
  report.outcome = TimeOutcome::kComplete;
  return report;
}

}  // namespace brio::parse
