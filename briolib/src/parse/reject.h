// Network reject reports "+GTOTAREJECT". Pure: text in, values out.
#pragma once

#include <stdint.h>

#include <optional>

namespace brio::parse {

struct RejectReport {
  std::optional<uint8_t> procedure;  // 1 CS, 3 PS, 4 SM, 5 EMM, 6 ESM
  std::optional<uint8_t> cause;      // 3GPP TS 24.008 or TS 24.301
  std::optional<uint16_t> mcc;       // decimal numbers: an MNC written 05 is 5
  std::optional<uint16_t> mnc;
};

// Cuts up the text after "+GTOTAREJECT:".
RejectReport parse_reject(char* payload);

// Whether the cause bars the subscription or the device for good.
bool is_fatal_reject(uint8_t procedure, uint8_t cause);

}  // namespace brio::parse
