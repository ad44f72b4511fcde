// brioctl doctor's look at the files that wabs.h lists.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "doctor.h"

namespace brioctl {
namespace {

enum class Use { kInput, kState, kCreated };  // read if it is there; read, written and created; only created

struct File {
  const char* path;
  Use use;
  const char* present;  // what it means that the file is there, "" for nothing to tell
};

constexpr File kFiles[] = {
    {"/var/local/wan/briolib_log_config", Use::kInput, "sets the log mask at every open"},
    {"/var/run/mcsdwc.dat", Use::kInput, "every open selects its network by hand"},
    {"/mnt/us/apn", Use::kInput, "decides the APN"},
    {"/var/local/wan/debug/trace_filter.cfg", Use::kInput, "every open of the host module starts a trace"},
    {"/var/local/wan/info", Use::kInput, "decides the WAN type"},
    {"/var/local/wan/mcc", Use::kState, ""},
    {"/var/local/wan/static_info", Use::kState, ""},
    {"/var/run/fatal_reject", Use::kCreated, ""},
};
constexpr off_t kMaxInput = 16 << 20;

std::string user_name(uid_t user) {
  const passwd* entry = getpwuid(user);
  return entry == nullptr ? "user " + std::to_string(user) : entry->pw_name;
}

// "" or why the library cannot use the file, as sentences.
std::string problem_of(const std::string& path, Use use, const struct stat& file) {
  if (S_ISLNK(file.st_mode)) return "is a link, and the library follows none. Put a file in its place";
  if (!S_ISREG(file.st_mode)) return "is no file. Remove it";
  if (file.st_nlink > 1) return "has a second name (hard link), and is refused. Copy it to a file of its own";
  if (use == Use::kInput) {
    if (file.st_size > kMaxInput) return "is longer than 16 MiB, and is refused. Shorten it";
    const bool readable = access(path.c_str(), R_OK) == 0;
    return readable ? "" : "cannot be read: permission denied. Use chmod a+r, or run as its owner";
  }
  if (file.st_uid != geteuid()) {
    return "belongs to " + user_name(file.st_uid) + ", not to " + user_name(geteuid()) +
           ", and is not taken over. Run as that user, or remove it";
  }
  if (access(path.c_str(), W_OK) != 0) return "cannot be written: permission denied. Use chmod u+w";
  return "";
}

// "" or why nothing can be created there.
std::string folder_problem(const std::string& folder) {
  if (access(folder.c_str(), W_OK | X_OK) == 0) return "";
  if (errno == ENOENT) return "cannot be made: there is no folder. Make it: mkdir -p " + folder;
  return "cannot be made in its folder: " + std::string(std::strerror(errno)) +
         ". Run as a user who may write there";
}

}  // namespace

void examine_files(Checkup& checkup, const std::string& root) {
  for (const File& each : kFiles) {
    const std::string path = root + each.path;
    const std::string folder = std::filesystem::path(path).parent_path();
    struct stat file {};
    const bool there = lstat(path.c_str(), &file) == 0;
    if (there && each.use == Use::kCreated) {
      checkup.wrong("file",
                    path +
                        " is there: the network has rejected this subscriber for good. Ask the operator, "
                        "remove the file, and open again");
      continue;
    }
    std::string problem;
    if (there) {
      problem = problem_of(path, each.use, file);
    } else if (errno != ENOENT) {
      problem = "cannot be looked at: " + std::string(std::strerror(errno)) + ". Run as root";
    } else if (each.use != Use::kInput) {
      problem = folder_problem(folder);
    }
    if (!problem.empty()) {
      checkup.wrong("file", (path + ' ').append(problem));
    } else if (there && *each.present != '\0') {
      checkup.add(Check::kNote, "file", path + " " + each.present, "Remove it if that is not meant");
    } else {
      checkup.add(Check::kOk, "file",
                  path + (there                     ? ""
                          : each.use == Use::kInput ? ": none, as usual"
                                                    : ": none yet"));
    }
  }
  const std::string traces = root + "/mnt/us";
  const std::string problem = folder_problem(traces);
  if (problem.empty()) {
    checkup.add(Check::kOk, "file", traces + "/trace_log_*: can be made");
  } else {
    checkup.wrong("file", traces + "/trace_log_* " + problem);
  }
  const std::string counters = root + "/proc/net/dev";
  errno = 0;
  if (std::ifstream(counters).good()) {
    checkup.add(Check::kOk, "file", counters);
  } else if (errno == ENOENT && !root.empty()) {
    checkup.add(Check::kNote, "file", counters + ": none below this root, so no counters of traffic");
  } else {
    checkup.wrong("file", counters + " cannot be read: " + std::strerror(errno) +
                              (errno == ENOENT ? ". Mount /proc" : ". Run as a user who may read it"));
  }
}

}  // namespace brioctl
