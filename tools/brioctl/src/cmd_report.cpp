// brioctl report: what somebody elsewhere needs to see of a modem that fails, in one file.
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "doctor.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "recorder.h"
#include "text.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

constexpr char kName[] = "brioctl-report";  // the folder in the archive

// What is collected.
struct Scratch : TemporaryFolder {
  Scratch() { fs::create_directory(fs::path(dir()) / kName); }

  std::string path(const std::string& name) const { return dir() + "/" + kName + "/" + name; }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream file(path(name));
    file << text;
    file.close();
    if (!file) throw Failure(path(name) + " cannot be written: is the disk full?");
  }
};

// A file under another name until it is whole; removed if it never is.
class Pending {
 public:
  explicit Pending(std::string path) : path_(std::move(path)), name_(path_ + ".XXXXXX") {
    fd_ = mkostemp(name_.data(), O_CLOEXEC);
    if (fd_ < 0) throw Failure(path_ + " cannot be made: " + std::strerror(errno) + ".");
  }
  ~Pending() {
    if (fd_ >= 0) close(fd_);
    if (!name_.empty()) unlink(name_.c_str());
  }
  Pending(const Pending&) = delete;
  Pending& operator=(const Pending&) = delete;

  int fd() const { return fd_; }
  // Throws Failure. Without `replace` another file of the name stays as it is.
  void keep(bool replace) {
    const bool written = fsync(fd_) == 0;
    const unsigned how = replace ? 0 : RENAME_NOREPLACE;
    if (!written || renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path_.c_str(), how) != 0) {
      throw Failure(path_ + " cannot be written: " + std::strerror(errno) + ".");
    }
    name_.clear();
  }

 private:
  std::string path_, name_;
  int fd_ = -1;
};

// tar writes to a descriptor: the name of the report is no argument of it.
void pack(const std::string& dir, int fd) {
  std::string words[] = {"tar", "-C", dir, "-c", "-z", "-f", "-", kName};
  char* arguments[std::size(words) + 1] = {};
  for (std::size_t i = 0; i < std::size(words); i++) arguments[i] = words[i].data();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fd, STDOUT_FILENO);
  pid_t child = 0;
  const int failed = posix_spawnp(&child, "tar", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) {
    throw Failure(std::string("tar cannot be run: ") + std::strerror(failed) + ". Install tar and gzip.");
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (interrupted() > 0) throw Failure("interrupted.");
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw Failure(
        "tar could not pack the report; its message is above. Are tar and gzip there, is the disk full?");
  }
}

std::string versions() {
  std::string text = "brioctl   " BRIO_VERSION;
  std::ifstream release("/etc/os-release");
  for (std::string line; std::getline(release, line);) {
    if (starts(line, "PRETTY_NAME=")) text += "\nsystem    " + line.substr(12);
  }
  utsname kernel{};
  uname(&kernel);
  text += std::string("\nkernel    ") + kernel.sysname + " " + kernel.release + " " + kernel.machine;
  return text + "\nmade      " + utc(std::time(nullptr), "%Y-%m-%dT%H:%M:%SZ") + "\n";
}

}  // namespace

int run_report(Options options, const std::string& file) {
  if (!options.at_log.empty()) throw Failure("A report holds its own AT log; leave --at-log out.");
  const fs::file_status old = fs::symlink_status(file);
  if (fs::exists(old) && !options.force) throw Failure(file + " exists; --force replaces it.");
  if (fs::exists(old) && !fs::is_regular_file(old)) throw Failure(file + " is no file, and is not replaced.");
  { const Pending probe(file); }  // a place that cannot be written is told at once
  const Scratch scratch;
  options.scratch = scratch.dir();
  options.at_log = scratch.path("at.log");
  scratch.write("at.log", "# Nothing passed the ports.\n");
  if (!log_sink::write_to(scratch.path("library.log"))) throw Failure("The library's log cannot be written.");
  bool opened = false;
  const Checkup checkup = examine(options, [&](Session& session) {
    opened = true;
    const std::vector<Row> rows = status_rows(session.lib, options.identities);
    scratch.write("status.txt", render_table(rows));
    scratch.write("page.txt", read_page(session.lib, options.identities));
    session.lib.wabs_exit_611_logging();
  });
  if (!log_sink::write_to("")) throw Failure("The library's log could not be written whole.");
  constexpr char kMissing[] = "The host module could not be opened; doctor.txt says why.\n";
  for (const char* missing : {"page.txt", "status.txt"}) {
    if (!opened) scratch.write(missing, kMissing);
  }
  scratch.write("doctor.txt", checkup.text());
  // Of the library, too, which is the first check.
  scratch.write("versions.txt", versions() + "library   " + checkup.checks().front().finding + "\n");
  Pending report(file);
  pack(scratch.dir(), report.fd());
  report.keep(options.force);
  output::result() = {{"file", file}, {"wrong", checkup.wrongs()}, {"identities", options.identities}};
  if (!output::json()) {
    printf("%s: %schecks, AT log, library log, versions; IMSI, ICCID and IMEI are %s.\n%s%s",
           printable(file).c_str(), opened ? "page, status, " : "", options.identities ? "whole" : "masked",
           opened ? "" : "Page and status are missing: the host module could not be opened.\n",
           checkup.text().c_str());
  }
  return 0;
}

}  // namespace brioctl
