#include "base/masked.h"

#include <string.h>

namespace brio {

bool holds_long_number(const char* text) {
  constexpr unsigned kIdentityDigits = 15;
  unsigned run = 0;
  for (; *text != '\0'; text++) {
    run = is_digit(*text) ? run + 1 : 0;
    if (run == kIdentityDigits) return true;
  }
  return false;
}

LogText::LogText(const char* text, bool masked, unsigned plain_fields) {
  copy_text(text_, sizeof(text_), text != nullptr ? text : "");
  char* cursor = text_;
  for (; plain_fields > 0; plain_fields--) {
    cursor += strcspn(cursor, ",");
    if (*cursor == ',') cursor++;
  }
  if (masked || holds_long_number(text_)) briolib_obfuscate_numeral(cursor, '*');
  if (holds_long_number(text_)) briolib_obfuscate_numeral(text_, '*');
}

}  // namespace brio
