#include "parse/time_report.h"

#include <string.h>

#include "base/fields.h"
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

// The numbers of a date or a time up to the first empty one; how many they are. The text stays whole for the
// log: a number ends by itself at the separator.
int prv_take_parts(const char* text, const char* end, char separator, int32_t (&parts)[3]) {
  int count = 0;
  while (text != nullptr && count < 3) {
    text = skip_spaces(text);
    if (text >= end || *text == separator) break;
    parts[count++] = decimal(text);
    text = strchr(text, separator);
    if (text != nullptr) text++;
  }
  return count;
}

bool prv_take_date(const char* text, TimeReport* report) {
  report->date = text;
  int32_t parts[] = {-1, -1, -1};
  report->parts = prv_take_parts(text, text + strlen(text), '/', parts);
  report->time.year = static_cast<uint16_t>(parts[0]);
  report->time.month = static_cast<uint8_t>(parts[1]);
  report->time.day = static_cast<uint8_t>(parts[2]);
  return report->parts == 3;
}

bool prv_take_clock(const char* text, TimeReport* report) {
  report->clock = text;
  if (text == nullptr) return false;
  size_t length = strlen(text);
  if (length > 0 && text[length - 1] == '"') length--;
  int32_t parts[] = {-1, -1, -1};
  report->parts += prv_take_parts(text, text + length, ':', parts);
  report->time.hour = static_cast<uint8_t>(parts[0]);
  report->time.minute = static_cast<uint8_t>(parts[1]);
  report->time.second = static_cast<uint8_t>(parts[2]);
  return report->parts == 6;
}

}  // namespace

//   +CTZV: -28,"26/03/07,09:05:00"
//          |   |        `- 3 hour:minute:second
//          |   `---------- 2 year/month/day
//          `-------------- 1 time zone, quarter hours
TimeReport parse_ctzv(char* text) {
  TimeReport report = prv_empty_report();
  if (strlen(text) < 2) {
    report.outcome = TimeOutcome::kTooShort;
    report.rest = text;
    return report;
  }
  FieldReader fields(text);
  report.zone = skip_spaces(fields.next());
  report.time.time_zone = number_of(report.zone).value_or(-1);

  report.rest = fields.rest() != nullptr ? fields.rest() : "";
  if (strlen(report.rest) < kQuotedTimeLength || *report.rest != '"') {
    report.outcome = TimeOutcome::kNoTime;
    return report;
  }
  if (!prv_take_date(fields.next() + 1, &report)) return report;
  if (!prv_take_clock(fields.next(), &report)) return report;
  report.outcome = TimeOutcome::kComplete;
  return report;
}

//   +CIEV: 9,"26/03/07,09:05:00",-28,0
//          | |        |          |   `- 5 daylight-saving value
//          | |        |          `----- 4 time zone, quarter hours
//          | |        `---------------- 3 hour:minute:second
//          | `------------------------- 2 year/month/day
//          `--------------------------- 1 indicator, 9 is the time
TimeReport parse_ciev(char* text) {
  TimeReport report = prv_empty_report();
  FieldReader fields(text);
  if (*skip_spaces(fields.next()) != '9') {  // only the first character counts
    report.outcome = TimeOutcome::kNotTime;
    return report;
  }
  report.rest = fields.rest() != nullptr ? fields.rest() : "";
  size_t length = strlen(report.rest);
  if (length < 23 || length > 25) {
    report.outcome = TimeOutcome::kWrongLength;
    return report;
  }
  const char* date = fields.next();
  if (*date != '\0') date++;  // the opening quote
  if (!prv_take_date(date, &report)) return report;
  if (!prv_take_clock(fields.next(), &report)) return report;

  report.zone = fields.next();
  report.time.time_zone = number_of(report.zone).value_or(-1);
  report.dst = fields.next();
  report.time.dst = number_of(report.dst).value_or(-1);
  if (report.dst != nullptr) report.outcome = TimeOutcome::kComplete;
  return report;
}

}  // namespace brio::parse
