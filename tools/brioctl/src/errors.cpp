#include "errors.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace brioctl {

std::string with_meaning(const std::string& final_line) {
  const std::string meaning = meaning_of(final_line);
  return meaning.empty() ? final_line : final_line + " (" + meaning + ")";
}

namespace {

// Who may read and write the device.
std::string who_may(const std::string& path) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) return "Run as root";
  const group* set = getgrgid(file.st_gid);
  if ((file.st_mode & 060) == 060 && file.st_gid != 0 && set != nullptr) {
    return std::string("Join the group ") + set->gr_name + " (adduser USER " + set->gr_name +
           ", then log in again), or run as root";
  }
  const passwd* owner = getpwuid(file.st_uid);
  return "Only its owner may use it: run as " +
         (owner == nullptr ? "user " + std::to_string(file.st_uid) : owner->pw_name) +
         ", or give a group the right to read and write it (a udev rule)";
}

}  // namespace

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
      return "permission denied. " + who_may(path);
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
