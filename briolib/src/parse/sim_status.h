// The answer to "AT+GTSIMSTATUS?".
#pragma once

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

}  // namespace brio::parse
