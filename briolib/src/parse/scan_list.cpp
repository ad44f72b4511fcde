#include "parse/scan_list.h"

#include <stdio.h>
#include <string.h>

#include "base/text.h"
#include "brio/at_text.h"

namespace brio::parse {
namespace {

constexpr size_t kFieldCount = 5;
constexpr unsigned long long kStatMax = 2;
constexpr unsigned long long kAccessTechnologyMax = 7;
constexpr size_t kMccDigits = 3;
constexpr size_t kNumericMax = 6;
constexpr char kNoName[] = "\"\"";
// Six commas, the empty quoted field, ";" and the NUL.
constexpr size_t kFixedLength = 10;

struct Fields {
  char* texts[kFieldCount];
  size_t count;
};

// End of the malformed text before or inside an operator; null when nothing was found.
char* prv_limit(const ScanOperator& found) {
  return found.cut != nullptr ? found.open : found.close;
}

Fields prv_take_operator(const ScanOperator& found) {
  char* stat = found.open + 1;
  char* stat_end = stat + strcspn(stat, ",");
  char* const ends[] = {stat_end, found.cut, found.numeric, found.technology, found.close};
  Fields fields = {};
  for (char* end : ends) {
    *end = '\0';
    fields.texts[fields.count++] = trim(stat);
    stat = end + 1;
  }
  return fields;
}

// Whether a text after "," can be the beginning of a field: quoted, empty, or without a quote up to its end.
bool prv_field_follows(const char* text) {
  text = skip_spaces(text);
  if (*text == '"') return true;
  return text[strcspn(text, ",)\"")] != '"';
}

// The end of a field of a malformed operator: its "," or ")" or the end of the text. A quote ends a quoted
// one only where the list can go on after it.
char* prv_field_end(char* text) {
  char* start = skip_spaces(text);
  if (*start != '"') return start + strcspn(start, ",)");
  for (char* quote = strchr(start + 1, '"'); quote != nullptr; quote = strchr(quote + 1, '"')) {
    char* after = skip_spaces(quote + 1);
    if (*after == '\0') return after;
    if (*after == ',' && prv_field_follows(after + 1)) return after;
    if (*after == ')' && list_goes_on(after + 1)) return after;
  }
  return start + strlen(start);
}

// Takes the fields of a malformed operator one by one, up to a ")", or to the text's end when
// `closed`. The last field is complete only with it.
Fields prv_take_fields(char** cursor, bool closed) {
  Fields fields = {};
  char* text = *cursor;
  while (*text != '\0') {
    bool last = fields.count == kFieldCount - 1;
    char* end = last ? text + strcspn(text, ")") : prv_field_end(text);
    char terminator = *end;
    if (last && terminator == '\0' && !closed) {
      text = end;
      break;
    }
    *end = '\0';
    fields.texts[fields.count++] = trim(text);
    text = terminator == '\0' ? end : end + 1;
    if (last || terminator == ')') break;
  }
  *cursor = text;
  return fields;
}

// Moves past the next "(" of the list; false at the list's end, which an empty element marks: the modem's
// modes and formats follow after ",,".
bool prv_next_group(char** cursor) {
  unsigned commas = 0;
  for (char* text = *cursor; *text != '\0'; text++) {
    if (*text == '(') {
      *cursor = text + 1;
      return true;
    }
    if (*text == ',') {
      if (++commas == 2) return false;
    } else if (!is_space(*text)) {
      commas = 0;
    }
  }
  return false;
}

ScanStep prv_refuse(ScanFault* fault, ScanError error, const char* token) {
  *fault = {error, token};
  return ScanStep::kError;
}

// An empty name counts as the empty quoted one. The MNC keeps two or three digits, so a numeric operator of
// fewer than five is refused as one of more than six is.
ScanStep prv_read_fields(const Fields& group, ScanEntry* entry, ScanFault* fault) {
  char* const* fields = group.texts;
  if (group.count < 1) return prv_refuse(fault, kScanNoStat, nullptr);
  const std::optional<unsigned long long> stat = digits_only(fields[0]);
  if (!stat) return prv_refuse(fault, kScanBadStat, fields[0]);
  if (*stat > kStatMax) return ScanStep::kForbidden;
  entry->stat = fields[0];

  if (group.count < 2) return prv_refuse(fault, kScanNoLongName, nullptr);
  entry->long_name = *fields[1] != '\0' ? fields[1] : kNoName;
  if (group.count < 3) return prv_refuse(fault, kScanNoShortName, nullptr);
  bool short_only = strcmp(entry->long_name, kNoName) == 0 && *fields[2] != '\0';
  entry->short_name = short_only ? fields[2] : kNoName;

  if (group.count < 4) return prv_refuse(fault, kScanNoNumeric, nullptr);
  remove_blank_space(fields[3]);
  remove_double_quotes(fields[3]);
  size_t digits = strlen(fields[3]);
  if (is_string_digit(fields[3]) == 0 || digits < kScanNumericMin || digits > kNumericMax) {
    return prv_refuse(fault, kScanBadNumeric, fields[3]);
  }
  copy_text(entry->mcc, fields[3], kMccDigits);
  copy_text(entry->mnc, fields[3] + kMccDigits);

  if (group.count < 5) return prv_refuse(fault, kScanNoAccessTechnology, nullptr);
  if (digits_only(fields[4]).value_or(kAccessTechnologyMax + 1) > kAccessTechnologyMax) {
    return prv_refuse(fault, kScanBadAccessTechnology, fields[4]);
  }
  entry->access_technology = fields[4];
  return ScanStep::kEntry;
}

}  // namespace

//   +COPS: (2,"AT&T","ATT","310410",7),(1,"T-Mobile","T-Mo","310260",7),,(0-4),(0-2)
//           | |      |     |        |                                   `- modes and formats, no operators
//           | |      |     |        `- 5 access technology, 0..7
//           | |      |     `---------- 4 numeric operator: MCC and MNC
//           | |      `---------------- 3 short name
//           | `----------------------- 2 long name
//           `------------------------- 1 stat: 0 unknown, 1 available, 2 current, 3 forbidden
//
// Blanks around a field do not count: one of nothing else is empty.
ScanError start_scan(char* line, ScanList* list) {
  *list = {};
  if (line == nullptr) return kScanNoLine;
  char* text = skip_spaces(line);
  text += strspn(text, ":");
  if (*text == '\0') return kScanNothingToSplit;
  list->text = text + strcspn(text, ":");
  return kScanOk;
}

ScanStep next_scan_entry(ScanList* list, ScanEntry* entry, ScanFault* fault) {
  *entry = {};
  *fault = {};
  const ScanOperator& next = list->next;
  char* limit = prv_limit(next);
  if (limit != nullptr && list->text <= limit) *limit = next.cut != nullptr ? '(' : ')';
  if (!prv_next_group(&list->text)) return ScanStep::kEnd;
  char* open = list->text - 1;
  if (!list->no_more && (limit == nullptr || open > limit)) {
    list->next = find_operator(open);
    list->no_more = next.close == nullptr;
    limit = prv_limit(next);
  }

  Fields fields;
  if (next.cut != nullptr && open == next.open) {
    fields = prv_take_operator(next);
    list->text = next.close + 1;
  } else {
    bool closed = limit != nullptr && next.cut == nullptr;
    if (limit != nullptr) *limit = '\0';
    fields = prv_take_fields(&list->text, closed);
    if (closed && list->text == limit) list->text++;
  }
  return prv_read_fields(fields, entry, fault);
}

bool same_network(const ScanEntry& a, const ScanEntry& b) {
  return strcmp(a.mcc, b.mcc) == 0 && strcmp(a.mnc, b.mnc) == 0 &&
         strcmp(a.access_technology, b.access_technology) == 0;
}

bool append_scan_entry(const ScanEntry& entry, char* buffer, size_t size, size_t* used) {
  size_t length = strlen(entry.stat) + strlen(entry.mcc) + strlen(entry.mnc) +
                  strlen(entry.access_technology) + strlen(entry.long_name) + strlen(entry.short_name) +
                  kFixedLength;
  if (*used + length > size) return false;
  snprintf(buffer + *used, length, "%s,%s,%s,%s,\"\",%s,%s;", entry.stat, entry.mcc, entry.mnc,
           entry.access_technology, entry.long_name, entry.short_name);
  *used += length - 1;
  return true;
}

void mark_current_network(char* list, const char* mcc, const char* mnc, const char* rat) {
  char current[12];
  snprintf(current, sizeof(current), "%s,%s,%s,%s", "1", mcc, mnc, rat);
  char* place = strstr(list, current);
  if (place != nullptr) *place = '2';
}

}  // namespace brio::parse
