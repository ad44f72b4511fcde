#include "errors.h"

#include <cerrno>
#include <cstring>

namespace brioctl {

std::string with_meaning(const std::string& final_line) {
  const std::string meaning = meaning_of(final_line);
  return meaning.empty() ? final_line : final_line + " (" + meaning + ")";
}

std::string open_problem(int error) {
  switch (error) {
    case ENOENT:
      return "there is no such port. Is the modem plugged in and switched on? \"brioctl ports\" lists what "
             "is there";
    case EACCES:
    case EPERM:
      return "permission denied. Join the group dialout (adduser USER dialout, then log in again), or run as "
             "root";
    case EBUSY:
      return "another program has it for itself (EBUSY)";
    case ENXIO:
    case ENODEV:
    case EIO:
      return std::string("the device does not answer: ") + std::strerror(error) +
             ". Unplug the modem and plug it in again";
    default:
      return std::strerror(error);
  }
}

}  // namespace brioctl
