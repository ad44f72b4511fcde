// The answer to a network scan ("AT+COPS=?", 3GPP TS 27.007) and the list that the host gets of it.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "parse/scan_operator.h"

namespace brio::parse {

inline constexpr size_t kScanEntriesMax = 32;

// Error numbers of the log.
enum ScanError : int {
  kScanOk = 0,
  kScanNoLine = 1,
  kScanNothingToSplit = 3,
  kScanBadAccessTechnology = 5,
  kScanNoAccessTechnology = 6,
  kScanBadNumeric = 7,
  kScanNoNumeric = 8,
  kScanNoLongName = 9,
  kScanNoShortName = 10,
  kScanBadStat = 11,
  kScanNoStat = 12,
  kScanTooMany = 13,
};

// One operator. The texts point into the answer's line; null (MCC and MNC: empty) where not read.
struct ScanEntry {
  const char* stat;  // 0 unknown, 1 available, 2 current
  const char* access_technology;
  char mcc[4];
  char mnc[4];
  const char* long_name;   // with its quotes; at most one of the two names is other than ""
  const char* short_name;  // with its quotes
};

enum class ScanStep {
  kEntry,      // `entry` is whole
  kForbidden,  // an operator that is not to be listed
  kError,      // `entry` holds what was read before `error`
  kEnd,
};

struct ScanFault {
  ScanError error;
  const char* token;  // what was refused; null when it is missing
};

// A list that is being read.
struct ScanList {
  char* text;         // what was not read yet
  ScanOperator next;  // the next operator that has an end; all null before the first
  bool no_more;       // there is none from here to the line's end
};

// Begins with `line` after the text before its colon.
ScanError start_scan(char* line, ScanList* list);
// The next operator of the list, which is cut up in place. Torn and malformed operators are kError and do not
// hide a whole one after them; the formats after the list are none of it. A fault's token and the texts of
// an entry that is kError live until the next call. All calls together take time in proportion to the line.
ScanStep next_scan_entry(ScanList* list, ScanEntry* entry, ScanFault* fault);

// The same MCC, MNC and access technology.
bool same_network(const ScanEntry& a, const ScanEntry& b);

// How much longer than in the answer an operator can be in the list: "(1,,,31001,0)" has neither names nor
// quotes.
inline constexpr size_t kScanEntryGrowth = 7;

// Appends "stat,mcc,mnc,access technology,\"\",long name,short name;" and a NUL at `*used`, which moves to
// that NUL. False, and nothing is written, when that would pass `size`.
bool append_scan_entry(const ScanEntry& entry, char* buffer, size_t size, size_t* used);

// Turns stat 1 of the first "1,mcc,mnc,rat" in `list` into 2.
void mark_current_network(char* list, const char* mcc, const char* mnc, const char* rat);

}  // namespace brio::parse
