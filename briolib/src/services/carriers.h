// Carrier configurations of the modem, the SIM home networks that belong to them, and which of them back the
// transmit power off near a body.
#pragma once

#include <stdint.h>
#include <string.h>

namespace brio {

struct Carrier {
  const char* imsi_prefix;  // sought anywhere in the IMSI's first six characters
  const char* name;
  uint16_t carrier_id;
  bool backs_off;  // starts with the body-SAR back-off, which then follows the proximity sensor
};

// Searched in this order.
inline constexpr Carrier kCarriers[] = {
    {"310410", "ATT", 201, false}, {"302720", "ROGERS", 201, false}, {"44010", "DOCOMO", 216, true},
    {"23415", "VOD", 202, true},   {"20404", "VOD", 202, true},
};
inline constexpr uint16_t kCarrierUnknown = 0xFFFF;

// First row whose IMSI prefix occurs anywhere in `prefix`, or null.
inline const Carrier* carrier_of_sim(const char* prefix) {
  for (const Carrier& carrier : kCarriers) {
    if (strstr(prefix, carrier.imsi_prefix) != nullptr) return &carrier;
  }
  return nullptr;
}

inline bool carrier_accepts_sim(uint16_t carrier_id, const char* prefix) {
  for (const Carrier& carrier : kCarriers) {
    if (carrier.carrier_id == carrier_id && strstr(prefix, carrier.imsi_prefix) != nullptr) return true;
  }
  return false;
}

inline bool carrier_backs_off(uint16_t carrier_id) {
  for (const Carrier& carrier : kCarriers) {
    if (carrier.carrier_id == carrier_id) return carrier.backs_off;
  }
  return false;
}

}  // namespace brio
