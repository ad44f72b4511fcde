// The SIM as the modem prints it: readiness and identities, what follows from an IMSI, and its elementary
// files
// ("AT+CRSM=176,..."), whose numbers and contents are those of 3GPP TS 31.102.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>

#include "base/log_text.h"
#include "brio/brio_types.h"

namespace brio::parse {

struct SimStatus {
  const char* card_text;  // as it is in the line
  const char* lock_text;  // null: the line ended before it
  std::optional<int32_t> card;
  std::optional<int32_t> lock;
};

// Text after "+GTSIMSTATUS:", cut up in place.
SimStatus parse_sim_status(char* payload);

inline constexpr size_t kIccidSize = 21;      // up to 20 digits and NUL
inline constexpr size_t kImsiSize = 16;       // up to 15 digits and NUL
inline constexpr size_t kImsiPrefixSize = 7;  // six digits, which hold MCC and MNC, and NUL

// +CCID: 89014103211118510720
//        1
// Field 1: 19 digits with a filler that is no digit after them, or 20 digits. Text after that is dropped.
// A bare line of 19 or 20 digits counts as well. False (and `iccid` untouched) for any other without ":".
bool parse_iccid(const char* line, char iccid[kIccidSize]);

// +CIMI: 310410123456789
//        1
// Field 1: a number of six digits or more, cut to 15. A bare line of 15 digits counts as well. False (and
// `imsi` untouched) for anything else.
bool parse_imsi(const char* line, char imsi[kImsiSize]);

// MCC and MNC of an IMSI. Only the networks 310410 and 302720 have three MNC digits here, on purpose; every
// other home network is read with two.
void home_plmn(const char* imsi, char mcc[4], char mnc[4]);

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
