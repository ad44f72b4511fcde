#include "parse/sim_status.h"

#include "base/fields.h"

namespace brio::parse {

//   +GTSIMSTATUS: 3,0
//                 | `- 2 lock status
//                 `--- 1 card status
SimStatus parse_sim_status(char* payload) {
  FieldReader fields(payload);
  SimStatus status;
  status.card_text = fields.next();
  status.card = number_of(status.card_text);
  status.lock_text = fields.next();
  status.lock = number_of(status.lock_text);
  return status;
}

}  // namespace brio::parse
