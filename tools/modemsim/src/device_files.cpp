#include "device_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "state.h"

namespace modemsim {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kMeanPacket = 800;  // bytes, for the packet counters

std::string hexadecimal(int value, unsigned mask) {
  return format("%x\n", static_cast<unsigned>(value) & mask);
}

// A group of one's own is trusted, as a umask of 002 means it.
bool others_write(const struct stat& info) {
  return (info.st_mode & S_IWOTH) != 0 || ((info.st_mode & S_IWGRP) != 0 && info.st_gid != getegid());
}

// Why somebody else may put another folder in the place of `path`, as far as it exists, or "".
std::string replaceable(const fs::path& path) {
  struct stat info {};
  // Root under any user name space: it may replace everything anyway.
  const uid_t administrator = stat("/", &info) == 0 ? info.st_uid : 0;
  fs::path place;
  std::string problem;
  for (const fs::path& part : path) {
    place /= part;
    if (!problem.empty() || stat(place.c_str(), &info) != 0 || lstat(place.c_str(), &info) != 0) break;
    const bool link = S_ISLNK(info.st_mode);
    if (info.st_uid != geteuid() && info.st_uid != administrator) {
      problem = place.string() + (link ? " is a link of another user" : " belongs to another user");
    } else if (link) {
      problem = replaceable(place.parent_path() / fs::read_symlink(place));
    } else if (others_write(info) && (info.st_mode & S_ISVTX) == 0) {
      problem = "others may write in " + place.string();
    }
  }
  return problem;
}

}  // namespace

std::string foreign_root(const std::string& root) {
  std::string problem = replaceable(fs::absolute(root));
  struct stat info {};
  if (!problem.empty() || stat(root.c_str(), &info) != 0) return problem;
  if (info.st_uid != geteuid()) return root + " belongs to another user";
  return others_write(info) ? "others may write in " + root : "";
}

std::string make_device_folder(const std::string& root, const std::string& folder) {
  std::error_code failed;
  fs::path place = root;
  fs::create_directories(place, failed);
  for (const fs::path& part : fs::path(folder).relative_path()) {
    place /= part;
    if (!failed) fs::create_directory(place, failed);
    if (failed) return "cannot create " + place.string() + ": " + failed.message();
    if (part == ".." || !fs::is_directory(fs::symlink_status(place, failed))) {
      return place.string() + " is in the way: it is not a folder of the device";
    }
  }
  return "";
}

std::string write_device_file(const std::string& root, const std::string& path, const std::string& contents) {
  std::string problem = make_device_folder(root, fs::path(path).parent_path());
  if (!problem.empty()) return problem;
  const fs::path target = root + "/" + path;
  const fs::path fresh = target.string() + ".new";
  std::error_code failed;
  fs::remove(fresh, failed);
  std::FILE* file = std::fopen(fresh.c_str(), "wxe");
  bool written = file != nullptr && std::fwrite(contents.data(), 1, contents.size(), file) == contents.size();
  if (file != nullptr && std::fclose(file) != 0) written = false;
  if (!written) return "cannot write " + fresh.string() + ": " + std::strerror(errno);
  fs::rename(fresh, target, failed);
  return failed ? "cannot write " + target.string() + ": " + failed.message() : "";
}

std::string remove_device_file(const std::string& root, const std::string& path) {
  std::string problem = make_device_folder(root, fs::path(path).parent_path());
  if (!problem.empty()) return problem;
  std::error_code failed;
  fs::remove(root + "/" + path, failed);
  return failed ? "cannot remove " + root + "/" + path + ": " + failed.message() : "";
}

std::string write_prox(const std::string& root, const Prox& prox, bool create) {
  std::string problem;
  const auto write = [&](const char* entry, const std::string& contents) {
    if (problem.empty()) problem = write_device_file(root, std::string(kProxFolder) + entry, contents);
  };
  if (create) {
    write("prox_ctrl0", "70\n");
    write("sensor_sel", "0\n");
  }
  if (create || prox.diff) write("prox_diff", hexadecimal(prox.diff.value_or(0), 0x1FFF));
  if (create || prox.avg) write("prox_avg", hexadecimal(prox.avg.value_or(2000), 0xFFFF));
  if (create || prox.offset) write("prox_offset", hexadecimal(prox.offset.value_or(1000), 0xFFFF));
  if (create || prox.use) write("prox_use", hexadecimal(prox.use.value_or(5000), 0xFFFF));
  return problem;
}

std::string write_net_counters(const std::string& root, const NetCounters& net, bool connected) {
  std::string text =
      "Inter-|   Receive                                                |  Transmit\n"
      " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo "
      "colls carrier "
      "compressed\n"
      "    lo:       0       0    0    0    0     0          0         0        0       0    0    0    0     "
      "0       0"
      "          0\n";
  if (connected) {
    const auto rx = static_cast<unsigned long long>(net.rx);
    const auto tx = static_cast<unsigned long long>(net.tx);
    text += format(
        " wwan0: %7llu %7llu    0    0    0     0          0         0 %8llu %7llu    0    0    0     0 "
        "      0          0\n",
        rx, rx / kMeanPacket, tx, tx / kMeanPacket);
  }
  return write_device_file(root, "/proc/net/dev", text);
}

}  // namespace modemsim
