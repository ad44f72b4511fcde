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

// 310410123456789
const char* bare_number(const char* line, size_t least_digits, size_t most_digits) {
  if (line == nullptr) return nullptr;
  const char* number = skip_spaces(line);
  const size_t digits = strspn(number, "0123456789");
  const bool whole = *skip_spaces(number + digits) == '\0';
  return whole && digits >= least_digits && digits <= most_digits ? number : nullptr;
}

}  // namespace brio::parse
