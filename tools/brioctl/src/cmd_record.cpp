// brioctl record: keeps what the modem and its host say to each other, in a folder that can be taken home.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "errors.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "recorder.h"
#include "relay.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

void make_folder(const std::string& dir, bool force) {
  std::error_code failed, ignored;
  fs::create_directories(dir, failed);
  if (!fs::is_directory(dir, ignored)) {
    throw Failure(dir + " cannot be made: " + (failed ? failed.message() : std::strerror(ENOTDIR)) + ".");
  }
  Recorder::check_place(dir + "/at.log", force);
}

// A link to the relay where the host looks for a port. The port itself steps aside meanwhile, as PATH.tapped.
class Replaced {
 public:
  Replaced(const std::string& path, const std::string& device)
      : path_(path), aside_(aside(path)), device_(marked(device)) {
    std::error_code failed;
    if (fs::exists(fs::symlink_status(aside_, failed))) {
      throw Failure(aside_ +
                    " is there: another tap runs, or the modem was changed while one did. Remove it.");
    }
    // The host may be another user's.
    struct stat port {};
    if (stat(path_.c_str(), &port) == 0 && chown(device.c_str(), port.st_uid, port.st_gid) == 0) {
      chmod(device.c_str(), port.st_mode & 0777);
    }
    fs::rename(path_, aside_, failed);
    if (!failed) {
      claim_.take_tapped(aside_);
      fs::create_symlink(device_, path_, failed);
      if (failed) back();
    }
    if (failed) throw Failure(path_ + " cannot be replaced: " + failed.message() + ".");
  }
  ~Replaced() { back(); }
  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;

  // A tap that was killed left its link in the port's place, or the modem has come back with a port there.
  static void fix(const std::string& path) {
    std::error_code failed;
    if (!fs::exists(fs::symlink_status(aside(path), failed))) return;
    if (fs::exists(fs::symlink_status(path, failed)) && !is_tap(path)) {
      if (fs::exists(path, failed)) fs::remove(aside(path), failed);
      return;
    }
    if (is_tap(path) && !tap_was_killed(path)) throw Failure("Another tap runs on " + path + ".");
    put_back(path);
  }

 private:
  static std::string aside(const std::string& path) { return path + kTapped; }
  static std::string marked(const std::string& device) {
    return kTapLink + device.substr(std::strlen("/dev/"));
  }
  static bool is_tap(const std::string& path) {
    std::error_code failed;
    return fs::read_symlink(path, failed).string().rfind(kTapLink, 0) == 0;
  }

  // The kernel leaves a node that was renamed when the modem goes: it is put back only while it is that of
  // the port.
  static void put_back(const std::string& path) {
    std::error_code failed;
    struct stat port {};
    std::ifstream number("/sys/class/tty/" + fs::path(path).filename().string() + "/dev");
    unsigned major_number = 0, minor_number = 0;
    char colon = 0;
    const bool node = lstat(aside(path).c_str(), &port) == 0 && S_ISCHR(port.st_mode);
    const bool there = static_cast<bool>(number >> major_number >> colon >> minor_number);
    const bool stale = node && !(there && port.st_rdev == makedev(major_number, minor_number));
    if (!stale) {
      fs::rename(aside(path), path, failed);
      return;
    }
    fs::remove(path, failed);
    fs::remove(aside(path), failed);
    if (there && mknod(path.c_str(), port.st_mode, makedev(major_number, minor_number)) == 0) {
      [[maybe_unused]] const int ignored = chown(path.c_str(), port.st_uid, port.st_gid);
    }
  }

  void back() {
    std::error_code failed;
    if (fs::read_symlink(path_, failed) == device_) {
      put_back(path_);
    } else {
      fs::remove(aside_, failed);  // the modem came back with a port of its own
    }
  }

  std::string path_, aside_, device_;
  Claim claim_;
};

void tell_size(const Recorder& recorder) {
  if (isatty(STDERR_FILENO) != 0) fprintf(stderr, "\r%zu lines ", recorder.lines());
}

void tell_end(const std::string& dir, const Recorder& recorder) {
  if (isatty(STDERR_FILENO) != 0) fprintf(stderr, "\r\033[K");
  output::result() = {{"folder", dir}, {"lines", recorder.lines()}};
  if (recorder.lines() == 0 || output::json()) return;
  printf("%zu lines in %s/at.log. \"brioctl import %s\" makes a scenario and a test of them.\n",
         recorder.lines(), printable(dir).c_str(), printable(dir).c_str());
}

}  // namespace

int run_record(Options options, const std::string& dir, double seconds) {
  if (!options.at_log.empty()) throw Failure("A recording has its AT log in its folder; leave --at-log out.");
  make_folder(dir, options.force);
  options.at_log = dir + "/at.log";
  Session session(options);
  if (!log_sink::write_to(dir + "/library.log")) throw Failure(dir + "/library.log cannot be written.");
  if (!output::json()) {
    printf("Recording %s into %s; Ctrl-C ends it.\n", session.modem_name().c_str(), printable(dir).c_str());
    output::flush();
  }
  const Recorder& recorder = session.recorder();
  std::string problem;
  try {
    session.open_module();
    // What a WAN manager asks again and again, at its pace.
    constexpr double kPoll = 30;
    double waited = 0, next_poll = 0;
    while (!recorder.failed() && (seconds < 0 || waited < seconds)) {
      if (session.modem_gone()) throw Failure("The modem hung up.");
      if (waited >= next_poll) {
        status_rows(session.lib, options.identities);
        next_poll = waited + kPoll;
      }
      tell_size(recorder);
      if (!pause_for(0.5)) break;
      waited += 0.5;
    }
  } catch (const Failure& failure) {
    problem = failure.what();
  }
  session.close();
  if (!log_sink::write_to("")) throw Failure(dir + "/library.log could not be written whole.");
  tell_end(dir, recorder);
  if (!problem.empty()) throw Failure(problem);
  return 0;
}

int run_tap(const Options& options, const std::string& dir, double seconds, bool in_place) {
  if (!options.at_log.empty()) throw Failure("A recording has its AT log in its folder; leave --at-log out.");
  Session session(options);
  const PortPaths ports = session.ports();
  for (const std::string& path : {ports.query, ports.urc}) Replaced::fix(path);
  Claim claim;
  if (!session.simulated()) {
    check_ports({{ports.query, "query"}, {ports.urc, "URC"}}, options.force);
    if (!claim.take(ports.query) && !options.force) throw Failure(another_brioctl(ports));
  }
  make_folder(dir, options.force);
  Recorder recorder(options.identities);
  recorder.write_to(dir + "/at.log");
  if (options.verbose > 0) recorder.show();
  bool hung_up = false;
  {
    Relay relay(ports.query, ports.urc, recorder.journal());
    std::unique_ptr<Replaced> query, urc;
    std::unique_ptr<LinkedRoot> linked;
    if (in_place) {
      query = std::make_unique<Replaced>(ports.query, relay.query_device());
      urc = std::make_unique<Replaced>(ports.urc, relay.urc_device());
    } else {
      linked = std::make_unique<LinkedRoot>(session.host_path(""),
                                            PortPaths{ports.trace, relay.query_device(), relay.urc_device()});
    }
    const std::string host_query = in_place ? ports.query : relay.query_device();
    const std::string host_urc = in_place ? ports.urc : relay.urc_device();
    if (output::json()) {
      output::result() = {{"query_port", host_query}, {"urc_port", host_urc}};
      if (linked) output::result()["root"] = linked->dir();
      output::line();
    } else {
      printf("Recording into %s. Let the host use\n  query port %s\n  URC port   %s\n",
             printable(dir).c_str(), host_query.c_str(), host_urc.c_str());
      if (linked) printf("or, by brio_set_root_dir, the root directory %s.\n", linked->dir().c_str());
      printf("Ctrl-C ends it.\n");
      output::flush();
    }
    double waited = 0;
    while (!relay.gone() && !recorder.failed() && (seconds < 0 || waited < seconds)) {
      tell_size(recorder);
      if (!pause_for(0.5)) break;
      waited += 0.5;
    }
    hung_up = relay.gone();
  }
  recorder.finish();
  tell_end(dir, recorder);
  if (hung_up) throw Failure("The modem hung up.");
  return 0;
}

}  // namespace brioctl
