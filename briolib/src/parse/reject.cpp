#include "parse/reject.h"

#include "base/text.h"

namespace brio::parse {

// +GTOTAREJECT: 1,5,7,310,410
//               0 not examined  1 procedure  2 cause  3 mcc  4 mnc
RejectReport parse_reject(char* payload) {
  RejectReport report = {};
  char* cursor = payload;
  for (int place = 0; place <= 4; place++) {
    const char* token = next_field(&cursor, ',');
    if (token == nullptr) break;
    const char* field = skip_spaces(token);
    if (*field == '\0') continue;
    int32_t value = decimal(field);
    switch (place) {
      case 1:
        report.procedure = static_cast<uint8_t>(value);
        report.fields |= kRejectProcedure;
        break;
      case 2:
        report.cause = static_cast<uint8_t>(value);
        report.fields |= kRejectCause;
        break;
      case 3:
        report.mcc = static_cast<uint16_t>(value);
        report.fields |= kRejectMcc;
        break;
      case 4:
        report.mnc = static_cast<uint16_t>(value);
        report.fields |= kRejectMnc;
        break;
      default:
        break;
    }
  }
  return report;
}

bool is_fatal_reject(uint8_t procedure, uint8_t cause) {
  constexpr uint8_t kCs = 1;
  constexpr uint8_t kPs = 3;
  constexpr uint8_t kEmm = 5;
  if (procedure != kCs && procedure != kPs && procedure != kEmm) return false;
  switch (cause) {
    case 2:  // IMSI unknown in HLR or HSS
    case 3:  // illegal MS or UE
    case 6:  // illegal ME
    case 7:  // GPRS or EPS services not allowed
    case 8:  // GPRS and non-GPRS, or EPS and non-EPS services not allowed
      return true;
    default:
      return false;
  }
}

}  // namespace brio::parse
