// Carrier configurations of the modem and the SIM home networks that belong to them. The check at open
// (brio_misc) and the selection (brio_factory_test) read this one table.
#ifndef BRIOLIB_CARRIERS_H
#define BRIOLIB_CARRIERS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace brio {

struct Carrier {
  const char* imsi_prefix;  // sought anywhere in the IMSI's first six characters
  uint16_t carrier_id;
  const char* log_text;  // format with source tag and line number
  const char* command;   // selects the carrier ID
};

// Searched in this order.
inline constexpr Carrier kCarriers[] = {
    {"310410", 201, "I blib:%s:%d:factory_test:carrier is ATT:\n", "at+gtfdcar=201"},
    {"302720", 201, "I blib:%s:%d:factory_test:carrier is ROGERS:\n", "at+gtfdcar=201"},
    {"44010", 216, "I blib:%s:%d:factory_test:carrier is DOCOMO:\n", "at+gtfdcar=216"},
    {"23415", 202, "I blib:%s:%d:factory_test:carrier is VOD:\n", "at+gtfdcar=202"},
    {"20404", 202, "I blib:%s:%d:factory_test:carrier is VOD:\n", "at+gtfdcar=202"},
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

// Each command ends in its row's carrier ID, and no prefix appears twice.
constexpr bool carriers_consistent() {
  for (const Carrier& carrier : kCarriers) {
    unsigned number = 0;
    for (const char* c = carrier.command; *c != '\0'; c++) {
      number = *c >= '0' && *c <= '9' ? number * 10 + static_cast<unsigned>(*c - '0') : 0;
    }
    if (number != carrier.carrier_id) return false;
    for (const Carrier& other : kCarriers) {
      if (&other == &carrier) continue;
      const char* a = carrier.imsi_prefix;
      const char* b = other.imsi_prefix;
      while (*a != '\0' && *a == *b) {
        a++;
        b++;
      }
      if (*a == *b) return false;
    }
  }
  return true;
}
static_assert(carriers_consistent(), "carrier table");

}  // namespace brio

#endif
