// Error codes of modems in words.
#ifndef TOOLS_AT_ERRORS_H
#define TOOLS_AT_ERRORS_H

#include <string>

namespace at_log {

// 3GPP TS 27.007, 9.2; "" for a code that is not there.
std::string meaning_of_cme(int code);
// Of a final line, "+CME ERROR: 10" or "+CMS ERROR: 310"; "" when it is none.
std::string meaning_of(const std::string& final_line);

}  // namespace at_log

#endif
