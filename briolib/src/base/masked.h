// What a log line may print of a text that identifies the subscriber (IMSI, ICCID): a copy with its digits
// masked.
//   BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:ICCID %s\n", BLIB_HERE, MaskedDigits(iccid).text());
#ifndef BRIOLIB_BASE_MASKED_H
#define BRIOLIB_BASE_MASKED_H

#include "base/text.h"
#include "brio/briolib.h"

namespace brio {

class MaskedDigits {
 public:
  // Cut to what fits; a null text is empty.
  explicit MaskedDigits(const char* text) {
    copy_text(text_, sizeof(text_), text != nullptr ? text : "");
    briolib_obfuscate_numeral(text_, '*');
  }
  const char* text() const { return text_; }

 private:
  char text_[256];
};

}  // namespace brio

#endif
