// brioctl record: keeps what the modem and its host say to each other, in a folder that can be taken home.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "commands.h"
#include "log_sink.h"
#include "printable.h"
#include "recorder.h"
#include "relay.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

void make_folder(const std::string& dir) {
  std::error_code failed;
  fs::create_directories(dir, failed);
  if (!fs::is_directory(dir)) throw Failure(dir + " cannot be made: " + failed.message() + ".");
  if (fs::exists(dir + "/at.log")) {
    throw Failure(dir + " holds a recording already; name another folder, or remove " + dir + "/at.log.");
  }
}

// A link to the relay where the host looks for a port. The port itself steps aside meanwhile.
class Replaced {
 public:
  Replaced(const std::string& path, const std::string& device)
      : path_(path), aside_(path + ".tapped"), device_(device) {
    std::error_code failed;
    fs::rename(path_, aside_, failed);
    if (!failed) {
      fs::create_symlink(device_, path_, failed);
      if (failed) back();
    }
    if (failed) throw Failure(path_ + " cannot be replaced: " + failed.message() + ".");
  }
  ~Replaced() { back(); }
  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;

  // A tap that was killed left its link; the port is beside it.
  static void mend(const std::string& path) {
    std::error_code failed;
    const fs::path aside = path + ".tapped";
    if (fs::exists(fs::symlink_status(aside)) && fs::is_symlink(fs::symlink_status(path)) &&
        !fs::exists(path)) {
      fs::rename(aside, path, failed);
    }
  }

 private:
  void back() {
    std::error_code failed;
    const bool ours = fs::read_symlink(path_, failed) == device_;
    // A modem that was pulled out took its port along, and another may be there by now.
    if (ours) fs::rename(aside_, path_, failed);
    if (ours && failed) fs::remove(path_, failed);
  }

  std::string path_, aside_, device_;
};

void tell_size(const Recorder& recorder) {
  if (isatty(STDERR_FILENO) != 0) fprintf(stderr, "\r%zu lines ", recorder.lines());
}

void tell_end(const std::string& dir, const Recorder& recorder) {
  if (isatty(STDERR_FILENO) != 0) fprintf(stderr, "\r\033[K");
  printf("%zu lines in %s/at.log. \"brioctl import %s\" makes a scenario and a test of them.\n",
         recorder.lines(), printable(dir).c_str(), printable(dir).c_str());
}

}  // namespace

int run_record(Options options, const std::string& dir, double seconds) {
  make_folder(dir);
  options.at_log = dir + "/at.log";
  Session session(options);
  if (!log_sink::write_to(dir + "/library.log")) throw Failure(dir + "/library.log cannot be written.");
  printf("Recording %s into %s; Ctrl-C ends it.\n", session.modem_name().c_str(), printable(dir).c_str());
  fflush(stdout);
  const Recorder& recorder = session.recorder();
  int result = 0;
  try {
    session.open_module();
    // What a WAN manager asks again and again, at its pace.
    constexpr double kPoll = 30;
    double waited = 0, next_poll = 0;
    while (seconds < 0 || waited < seconds) {
      if (waited >= next_poll) {
        status_rows(session.lib, options.identities);
        next_poll = waited + kPoll;
      }
      tell_size(recorder);
      if (!pause_for(0.5)) break;
      waited += 0.5;
    }
  } catch (const Failure& failure) {
    fprintf(stderr, "brioctl: %s\n", printable(failure.what(), '\n').c_str());
    result = 1;
  }
  session.close();
  if (!log_sink::write_to("")) throw Failure(dir + "/library.log could not be written whole.");
  tell_end(dir, recorder);
  return result;
}

int run_tap(const Options& options, const std::string& dir, double seconds, bool in_place) {
  make_folder(dir);
  Session session(options);
  Recorder recorder(options.identities);
  recorder.write_to(dir + "/at.log");
  if (options.verbose > 0) recorder.show();
  PortPaths ports = session.ports();
  for (const std::string& path : {ports.query, ports.urc}) Replaced::mend(path);
  int result = 0;
  {
    Relay relay(ports.query, ports.urc, recorder.journal());
    std::unique_ptr<Replaced> query, urc;
    std::unique_ptr<LinkedRoot> linked;
    if (in_place) {
      query = std::make_unique<Replaced>(ports.query, relay.query_device());
      urc = std::make_unique<Replaced>(ports.urc, relay.urc_device());
      printf("Recording into %s what passes through %s and %s. Start the host now.\n", printable(dir).c_str(),
             ports.query.c_str(), ports.urc.c_str());
    } else {
      linked = std::make_unique<LinkedRoot>(session.host_path(""),
                                            PortPaths{ports.trace, relay.query_device(), relay.urc_device()});
      printf(
          "Recording into %s. Let the host use\n  query port %s\n  URC port   %s\nor, by brio_set_root_dir, "
          "the root directory %s.\n",
          printable(dir).c_str(), relay.query_device().c_str(), relay.urc_device().c_str(),
          linked->dir().c_str());
    }
    printf("Ctrl-C ends it.\n");
    fflush(stdout);
    double waited = 0;
    while (!relay.gone() && (seconds < 0 || waited < seconds)) {
      tell_size(recorder);
      if (!pause_for(0.5)) break;
      waited += 0.5;
    }
    if (relay.gone()) {
      fprintf(stderr, "brioctl: the modem hung up.\n");
      result = 1;
    }
  }
  recorder.finish();
  tell_end(dir, recorder);
  return result;
}

}  // namespace brioctl
