// Network reject reports "+GTOTAREJECT". Pure: text in, values out.
#ifndef BRIOLIB_PARSE_REJECT_H
#define BRIOLIB_PARSE_REJECT_H

#include <stdint.h>

namespace brio::parse {

enum RejectField : uint32_t {
  kRejectProcedure = 1u << 0,
  kRejectCause = 1u << 1,
  kRejectMcc = 1u << 2,
  kRejectMnc = 1u << 3,
};

struct RejectReport {
  uint32_t fields;    // RejectField bits
  uint8_t procedure;  // 1 CS, 3 PS, 4 SM, 5 EMM, 6 ESM
  uint8_t cause;      // 3GPP TS 24.008 or TS 24.301
  uint16_t mcc;       // decimal numbers: an MNC written 05 is 5
  uint16_t mnc;
};

// Cuts up the text behind "+GTOTAREJECT:".
RejectReport parse_reject(char* payload);

// Whether the cause bars the subscription or the device for good.
bool is_fatal_reject(uint8_t procedure, uint8_t cause);

}  // namespace brio::parse

#endif
