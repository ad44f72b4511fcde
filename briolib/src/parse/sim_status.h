// The answer to "AT+GTSIMSTATUS?".
#ifndef BRIOLIB_PARSE_SIM_STATUS_H
#define BRIOLIB_PARSE_SIM_STATUS_H

#include <stdint.h>

namespace brio::parse {

struct SimStatus {
  const char* card_text;  // as it stands; null: the line ended before the field; blank: keep the value held
  const char* lock_text;
  int32_t card;  // valid when its text is not blank
  int32_t lock;
};

// Text behind "+GTSIMSTATUS:", cut up in place.
SimStatus parse_sim_status(char* rest);

}  // namespace brio::parse

#endif
