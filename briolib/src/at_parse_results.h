// Result parsers behind the prefix map: what they store, log and raise. Text behind the name and its colon is
// never null from the map; arguments are those of at_parse.
#ifndef BRIOLIB_AT_PARSE_RESULTS_H
#define BRIOLIB_AT_PARSE_RESULTS_H

#include "base/text.h"
#include "brio/brio_at.h"
#include "brio/briolib.h"

namespace brio {

void prv_at_parse_gtsimstatus(char* rest, void* argument_a, void* argument_b);
void prv_briolib_get_iccid(char* rest, void* argument_a, void* argument_b);
void prv_at_parse_crsm(char* rest, void* argument_a, void* argument_b);
void prv_at_parse_ctzv(char* rest, void* argument_a, void* argument_b);
void prv_at_parse_ciev(char* rest, void* argument_a, void* argument_b);

// A run of digits as long as an IMSI (15) or an ICCID (19 or 20).
bool holds_long_number(const char* text);

// A copy of a text for the log: its digits are masked when it names the subscriber, that is when `masked`
// says so or it holds a long number. No line of the ports is longer than the copy; a longer text is cut.
class LogText {
 public:
  explicit LogText(const char* text, bool masked = false) {
    copy_text(text_, sizeof(text_), text);
    if (masked || holds_long_number(text_)) briolib_obfuscate_numeral(text_, '*');
  }
  const char* c_str() const { return text_; }

 private:
  char text_[BRIO_LINE_DATA_MAX + 1];
};

}  // namespace brio

#endif
