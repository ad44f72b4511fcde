#include "parse/reject.h"

#include "base/fields.h"

namespace brio::parse {

// +GTOTAREJECT: 1,5,7,310,410
//               0 not examined  1 procedure  2 cause  3 mcc  4 mnc
RejectReport parse_reject(char* payload) {
  FieldReader fields(payload);
  fields.next();
  RejectReport report;
  report.procedure = fields.byte();
  report.cause = fields.byte();
  report.mcc = fields.word();
  report.mnc = fields.word();
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
