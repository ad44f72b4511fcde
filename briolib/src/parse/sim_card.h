// The SIM as the modem prints it: readiness and identities; what follows from an IMSI.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>

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

}  // namespace brio::parse
