#include "base/masked.h"

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

}  // namespace brio
