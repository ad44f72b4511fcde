// What error codes of a modem mean.
#ifndef BRIOCTL_ERRORS_H
#define BRIOCTL_ERRORS_H

#include <string>

namespace brioctl {

// "SIM not inserted" for "+CME ERROR: 10" (3GPP TS 27.007) and "+CMS ERROR: 310" (3GPP TS 27.005); "" for
// another line and for a code without a meaning.
std::string meaning_of(const std::string& final_line);
// The line with its meaning in brackets, where it has one.
std::string with_meaning(const std::string& final_line);

// "permission denied: ..." with what to do about it, for an open of a device that failed.
std::string open_problem(int error);

}  // namespace brioctl

#endif
