#include "parse/answer.h"

namespace brio::parse {

// +CGMM: "L816"
//        value
bool answer_text(const char* line, char* text, size_t capacity) {
  if (line == nullptr) return false;
  const char* payload = answer_payload(line);
  if (payload == nullptr) payload = skip_spaces(line);
  if (*payload == '"') payload++;
  payload = skip_spaces(payload);
  copy_text(text, capacity, payload, strcspn(payload, "\","));
  trim(text);
  return true;
}

}  // namespace brio::parse
