#include "errors.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace brioctl {

std::string with_meaning(const std::string& final_line) {
  const std::string meaning = meaning_of(final_line);
  return meaning.empty() ? final_line : final_line + " (" + meaning + ")";
}

std::string open_problem(int error, const std::string& path) {
  std::error_code ignored;
  const std::string aside = path + kTapped;
  if (error == ENOENT && std::filesystem::exists(std::filesystem::symlink_status(aside, ignored))) {
    return "a tap that was killed left the port as " + aside + ". Put it back (mv " + aside + " " + path +
           "), or start \"brioctl record --tap --in-place\" again, which does so";
  }
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
