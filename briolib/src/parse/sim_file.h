// SIM elementary files: the answer to "AT+CRSM=176,..." and the contents of the files, and the ICCID of
// "AT+CCID". File numbers and contents are those of 3GPP TS 31.102.
#pragma once

#include <stdint.h>

#include "base/log_text.h"
#include "brio/brio_types.h"
#include "parse/sim_card.h"

namespace brio::parse {

enum class SimFile {
  kOther,
  kUserPlmn,
  kOperatorPlmn,
  kHomePlmn,
  kEpsLocation,
  kPsLocation,
  kForbiddenPlmn,
  kLocation,
  kEquivalentHomePlmn,
  kIccid,
};

// The file that a READ BINARY command names ("AT+CRSM=176,28512,0,0,0" or its parameters alone); kOther for
// null.
SimFile crsm_file(const char* command);

inline constexpr char kReadIccidCommand[] = "AT+CRSM=176,12258,0,0,0";

// The answer to such a command for the log.
inline LogText crsm_log_text(const char* line, const char* command) {
  return masked_line(line, crsm_file(command) == SimFile::kIccid);
}

enum class CrsmOutcome {
  kOk,
  kNoStatusWords,  // sw1 or sw2 missing
  kRefused,        // status words of a failure
  kNoEndQuote,     // response data without its closing quote
};

struct CrsmAnswer {
  const char* sw1;  // null when the line ended before sw2
  const char* sw2;
  const char* data;  // hexadecimal file contents, kOk only
};

// Text after "+CRSM:", cut up in place.
CrsmOutcome parse_crsm(char* payload, CrsmAnswer* answer);

// The next entry of a PLMN list file; false at its end. Moves the cursor by 10 characters, never beyond the
// text's end.
bool next_plmn(const char** cursor, bool with_access_technology, plmn_entry* entry);

// ICCID of EF ICCID's contents: digits swapped in pairs, a filler in the 20th place cut.
void iccid_from_file(const char* data, char (&iccid)[kIccidSize]);

// ICCID of a "+CCID" line: text after the colon. The character in the last place, but at least the 20th, is
// cut unless it is a digit.
void iccid_from_line(const char* rest, char (&iccid)[sizeof(sim_info_data::iccid)]);

}  // namespace brio::parse
