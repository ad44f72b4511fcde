// What error codes of a modem mean.
#ifndef BRIOCTL_ERRORS_H
#define BRIOCTL_ERRORS_H

#include <string>

#include "at_errors.h"

namespace brioctl {

using at_log::meaning_of;
// The line with its meaning in brackets, where it has one.
std::string with_meaning(const std::string& final_line);

// "permission denied. ..." with what to do about it, for an open of the device at `path` that failed.
std::string open_problem(int error, const std::string& path);
// What a tap in the place of a port adds to its path, for the port itself; and how its own link begins, as
// nobody else would write one.
constexpr char kTapped[] = ".tapped";
constexpr char kTapLink[] = "/dev/./";

}  // namespace brioctl

#endif
