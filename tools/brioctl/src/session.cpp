#include "session.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "errors.h"
#include "log_sink.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"
#include "modemsim/scenario.h"
#include "outlet.h"
#include "printable.h"
#include "progress.h"
#include "quiet_thread.h"
#include "recorder.h"
#include "relay.h"
#include "report.h"
#include "watch_screen.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

// Requests, written commands and reports: what the demo and the watch read off the log.
constexpr uint32_t kLibraryLog = BRIO_LOG_PORT | BRIO_LOG_REQUEST;
constexpr char kGone[] = "The modem went away.";
constexpr uint32_t kModuleLog = WABS_LOG_EVENT | WABS_LOG_NOTICE | WABS_LOG_WARNING | WABS_LOG_ERROR;

std::string scenario_path(const std::string& wanted) {
  const std::string name = wanted.empty() ? "home-lte" : wanted;
  std::string path = modemsim::find_scenario(name);
  if (!path.empty()) return path;
  throw Failure("There is no scenario '" + name +
                "'. Give a file, or an installed name: demo, home-lte, rough-day.");
}

// Ends a program that waits for the library to open the modem: it sleeps and asks again for seconds, whatever
// happens to its ports, and has nothing to put back yet. A grace for an open that ends by itself.
class OpeningGuard {
 public:
  explicit OpeningGuard(const std::function<void()>& end_at_once) : done_(eventfd(0, EFD_CLOEXEC)) {
    thread_ = quiet_thread([this, end_at_once] {
      constexpr int kGrace = 200;  // ms
      pollfd items[] = {{done_, POLLIN, 0}, {interrupt_event(), POLLIN, 0}};
      while (poll(items, 2, -1) < 0) continue;
      if (items[0].revents == 0 && poll(items, 1, kGrace) == 0) end_at_once();
    });
  }
  ~OpeningGuard() {
    eventfd_write(done_, 1);
    thread_.join();
    close(done_);
  }
  OpeningGuard(const OpeningGuard&) = delete;
  OpeningGuard& operator=(const OpeningGuard&) = delete;

 private:
  int done_;
  std::thread thread_;
};

std::string waiting_for() {
  const std::string command = log_sink::outstanding();
  return command.empty() ? "" : " (waiting for the answer to " + command + ")";
}

}  // namespace

struct Simulation {
  std::string scenario;
  modemsim::DeviceRoot device{"brioctl"};
  modemsim::Modem modem;  // gone before its folder

  Simulation(const std::string& path, double speed) : scenario(path) {
    modemsim::Scenario played = modemsim::load_scenario(path);
    if (!modem.start(device.dir()) || !modem.play(played, speed)) {
      throw Failure("The simulated modem did not start: " + modem.error() + ".");
    }
  }
};

Session::Session(const Options& options) : options_(options), root_(options.root) {
  lib.load(options.library);
  if (options.simulate) {
    try {
      simulation_ = std::make_unique<Simulation>(scenario_path(options.scenario), options.speed);
    } catch (const Failure&) {
      throw;
    } catch (const std::exception& problem) {
      throw Failure(std::string("The simulation cannot be started: ") + problem.what());
    }
    root_ = simulation_->device.dir();
  }
  const bool whole = options.verbose > 1;
  lib.wabs_set_log_mask.function(whole ? 0xFFFFFFFF : kModuleLog);
  lib.briolib_log_set_log_mask.function(whole ? 0xFFFFFFFF & ~(BRIO_LOG_SELECT | BRIO_LOG_AT_DETAIL)
                                              : kLibraryLog);
  recorder_ = std::make_unique<Recorder>(options.identities);
  if (options.verbose > 0) recorder_->show();
  call_listener = [this](bool begins, const std::string& text) { recorder_->journal()->call(begins, text); };
}

Session::~Session() {
  try {
    close();
  } catch (const Failure& failure) {
    fprintf(stderr, "brioctl: %s\n", failure.what());
  }
  call_listener = nullptr;
}

PortPaths device_ports(const Options& options, const std::string& root) {
  const auto path = [&](const std::string& wanted, const char* device_path) {
    return wanted.empty() ? root + device_path : wanted;
  };
  return {path(options.ports.trace, "/dev/ttyACM1"), path(options.ports.query, "/dev/ttyACM2"),
          path(options.ports.urc, "/dev/ttyACM3")};
}

void Session::open_ports(bool urc) {
  relay_.reset();  // of an open that failed
  library_root_.reset();
  claim_.release();
  gone_ = false;
  const PortPaths paths = ports();
  if (!simulated()) {  // whose ptys nobody else knows; one that is about to end may still claim their numbers
    std::vector<NamedPort> used = {{paths.query, "query"}};
    if (urc) used.push_back({paths.urc, "URC"});
    check_ports(used, options_.force);
    if (!claim_.take(paths.query) && !options_.force) throw Failure(another_brioctl(paths));
  }
  if (!options_.at_log.empty() && !at_log_open_) recorder_->write_to(options_.at_log);
  at_log_open_ = true;
  if (!urc) {
    silent_.close();
    if (const std::string problem = silent_.create(-1); !problem.empty()) throw Failure(problem + ".");
  }
  relay_ = std::make_unique<Relay>(paths.query, urc ? paths.urc : silent_.device(), recorder_->journal());
}

PortPaths Session::relayed() const {
  return {ports().trace, relay_->query_device(), relay_->urc_device()};
}

// The library opens the host's side of a relay in the place of the modem's ports.
void Session::place_ports() {
  open_ports();
  const PortPaths paths = relayed();
  library_root_ = std::make_unique<LinkedRoot>(root_, paths);
  relay_->on_stuck([this] { end_at_once(); });
  relay_->arm(1);
  lib.brio_set_root_dir.function(library_root_->dir().c_str());
}

// A signal hangs up, too.
bool Session::modem_gone() const {
  return interrupted() == 0 && (gone_ || (relay_ != nullptr && relay_->gone()));
}

void Session::check_modem() const {
  if (modem_gone()) throw Failure(kGone);
}

void Session::end_at_signals(int signals) {
  relay_->arm(signals);
}

// The library sleeps on, whatever happens to its ports. On the relay's thread.
void Session::end_at_once() {
  std::error_code ignored;
  fs::remove_all(library_root_->dir(), ignored);
  if (!options_.scratch.empty()) fs::remove_all(options_.scratch, ignored);
  if (simulation_ != nullptr) fs::remove_all(fs::path(simulation_->device.dir()).parent_path(), ignored);
  watch::restore_terminal();
  Progress::erase();
  if (!options_.until_signal) terminal().put("brioctl: interrupted.\n");
  fflush(nullptr);
  _exit(options_.until_signal ? 0 : interrupted_status());
}

std::string Session::cause() {
  const log_sink::Request request = log_sink::last_failed();
  if (request.command.empty()) return "";
  char waited[32];
  snprintf(waited, sizeof waited, "%.1f s", request.milliseconds / 1000);
  return request.status == BLPKT_STATUS_TIMEOUT
             ? "The modem did not answer " + request.command + " within " + waited
         : request.refusal.empty()
             ? request.command + " failed"
             : "The modem refused " + request.command + ": " + with_meaning(request.refusal);
}

std::string Session::explain(const std::string& what) const {
  if (interrupted() != 0) return "interrupted.";
  if (modem_gone()) return kGone;
  std::string text = what;
  if (const std::string why = cause(); !why.empty()) text += ".\n" + why;
  const auto words = recorder_->last(6);
  if (!words.empty()) text += ".\nLast lines on the ports:";
  for (const at_log::Line& line : words) {
    text += "\n  " + time_of_day(line.wall_ms) + (line.to_modem ? " --> " : " <-- ") + printable(line.text);
  }
  if (!log_sink::last_error().empty()) text += "\nLast error of the library: " + log_sink::last_error();
  return text + "\nRun the command again with -vv to see the library's whole log.";
}

template <typename Open>
void Session::open_library(const Open& open) {
  place_ports();
  log_sink::clear_errors();
  std::string status;
  {
    const Progress progress("Opening the modem", options_.progress && options_.verbose == 0, waiting_for);
    const OpeningGuard guard([this] { end_at_once(); });
    status = open();
  }
  if (status.empty() && !modem_gone()) return;
  std::string what = "The modem could not be opened on " + ports().query + " (" + status + ")";
  if (log_sink::last_failed().status == BLPKT_STATUS_TIMEOUT) {
    what +=
        ".\nIf a program died while it scanned for networks, the modem may be busy with that for some "
        "minutes: "
        "\"brioctl auto\" aborts it";
  }
  throw NotOpened(explain(what));
}

void Session::open_module() {
  open_library([this] {
    const uint32_t status = lib.wabs_open();
    if (status == WABS_STATUS_OK) open_ = kModule;
    return status == WABS_STATUS_OK ? "" : "status " + std::to_string(status) + ", " + status_name(status);
  });
}

void Session::open_modem() {
  open_library([this] {
    const uint32_t status = lib.brio_open("/dev/ttyACM2");
    if (status == BRIO_STATUS_OK) open_ = kModem;
    return status == BRIO_STATUS_OK
               ? ""
               : "library status " + std::to_string(status) + ", " + library_status_name(status);
  });
}

void Session::close() {
  disconnect();
  recorder_->finish();
}

void Session::disconnect() {
  if (open_ == kModule) lib.wabs_close();
  if (open_ == kModem) lib.brio_close();
  open_ = kClosed;
  if (relay_ != nullptr) {
    gone_ = relay_->gone();
    relay_->arm(0);
  }
  relay_.reset();
  library_root_.reset();
  claim_.release();
  recorder_->journal()->finish();
}

std::string Session::modem_name() const {
  if (simulation_ != nullptr) {
    return "simulated, scenario " + fs::path(simulation_->scenario).filename().string();
  }
  return ports().query;
}

}  // namespace brioctl
