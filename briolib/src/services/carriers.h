// Carrier configurations of the modem and the SIM home networks that belong to them. The check at open
// (brio_misc) and the selection (brio_factory_test) read this one table.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace brio {

struct Carrier {
  const char* imsi_prefix;  // sought anywhere in the IMSI's first six characters
  uint16_t carrier_id;
  const char* name;
};

// Searched in this order.
inline constexpr Carrier kCarriers[] = {
    {"310410", 201, "ATT"}, {"302720", 201, "ROGERS"}, {"44010", 216, "DOCOMO"},
    {"23415", 202, "VOD"},  {"20404", 202, "VOD"},
};

// First row whose IMSI prefix stands in `prefix`, or null.
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

}  // namespace brio
