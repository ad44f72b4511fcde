// What a log line may print of a modem's text. IMSI and ICCID are logged with their digits masked, everywhere
// but in the raw line traces.
//   BLIB_D(BRIO_LOG_DEBUG, "D blib:%s:%d:ICCID %s\n", BLIB_HERE, LogText(iccid, true).c_str());
#ifndef BRIOLIB_BASE_MASKED_H
#define BRIOLIB_BASE_MASKED_H

#include "base/text.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"

namespace brio {

// A run of digits as long as an IMSI (15) or an ICCID (19 or 20).
bool holds_long_number(const char* text);

// Fields of a "+CRSM" line in front of the file's contents: the status words.
constexpr unsigned kCrsmStatusFields = 2;

// A copy of a text for the log: its digits are masked when it names the subscriber, that is when `masked`
// says so or it holds a long number: an answer that comes late may stand where any other was awaited. The
// first `plain_fields` fields stay as they are unless the number stands there. No line of the ports is longer
// than the copy; a longer text is cut. A null text is empty.
class LogText {
 public:
  explicit LogText(const char* text, bool masked = false, unsigned plain_fields = 0);
  const char* c_str() const { return text_; }

 private:
  char text_[BRIO_LINE_DATA_MAX + 1];
};

}  // namespace brio

#endif
