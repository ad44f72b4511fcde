#include "parse/sim_status.h"

#include "base/text.h"

namespace brio::parse {

//   +GTSIMSTATUS: 3,0
//                 | `- 2 lock status
//                 `--- 1 card status
SimStatus parse_sim_status(char* rest) {
  SimStatus status = {};
  char* cursor = rest;
  char* field = next_field(&cursor, ',');
  if (field == nullptr) return status;
  status.card_text = field;
  status.card = decimal(field);
  field = next_field(&cursor, ',');
  if (field == nullptr) return status;
  status.lock_text = field;
  status.lock = decimal(field);
  return status;
}

}  // namespace brio::parse
