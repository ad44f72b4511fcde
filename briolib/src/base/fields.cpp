#include "base/fields.h"

#include <string.h>

#include "base/text.h"

namespace brio {
namespace {

bool prv_blank(const char* field) {
  return field == nullptr || *skip_spaces(field) == '\0';
}

}  // namespace

std::optional<int32_t> number_of(const char* field) {
  if (prv_blank(field)) return std::nullopt;
  return decimal(field);
}

char* FieldReader::next(char separator) {
  char* field = rest_;
  if (field == nullptr) return nullptr;
  char* end = strchr(field, separator);
  rest_ = end != nullptr ? end + 1 : nullptr;
  if (end != nullptr) *end = '\0';
  return field;
}

const char* FieldReader::text() {
  const char* field = next();
  return prv_blank(field) ? nullptr : field;
}

std::optional<int32_t> FieldReader::number() {
  return number_of(next());
}

std::optional<uint32_t> FieldReader::hex() {
  const char* field = text();
  if (field == nullptr) return std::nullopt;
  return hexadecimal(field);
}

}  // namespace brio
