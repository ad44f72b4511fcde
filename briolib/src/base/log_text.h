// What a log line may print of a modem's text: IMSI and ICCID are logged with their digits masked, everywhere
// but in the raw line traces.
//   BLIB_D(BRIO_LOG_DEBUG, "ICCID %s\n", masked_identity(iccid).c_str());
#pragma once

#include "brio/at_text.h"

namespace brio {

// A copy for the log. No line of the ports is longer; a longer text is cut.
class LogText {
 public:
  explicit LogText(const char* text);  // null is empty
  const char* c_str() const { return text_; }
  char* text() { return text_; }
  const char* end() const;  // its NUL

 private:
  char text_[BRIO_LINE_DATA_MAX + 1];
};

// A line, judged by its own name: "+CCID" and "+CIMI" name the subscriber, other results do not. Without a
// name (a bare answer, the free text of an error) a word that is nothing but an IMSI or ICCID is masked: an
// answer that comes late may arrive where any other is awaited. `iccid_file_read`: a "+CRSM" line answers the
// reading of the ICCID's file.
LogText masked_line(const char* line, bool iccid_file_read = false);

// An IMSI or ICCID, or a line that is known to hold one.
LogText masked_identity(const char* text);

// A part of a "+CRSM" line. Of the ICCID's file all but the status words is masked. Late, it is taken for
// another file: there the contents are masked when they can only be an ICCID.
LogText masked_sim_file(const char* text, bool is_iccid);

}  // namespace brio
