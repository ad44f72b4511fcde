#include "session.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "log_sink.h"
#include "modemsim/device_root.h"
#include "modemsim/modem.h"
#include "modemsim/scenario.h"
#include "recorder.h"
#include "relay.h"
#include "report.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

// Requests, written commands and reports: what the demo and the watch read off the log.
constexpr uint32_t kLibraryLog = BRIO_LOG_PORT | BRIO_LOG_REQUEST;
constexpr uint32_t kModuleLog = WABS_LOG_EVENT | WABS_LOG_NOTICE | WABS_LOG_WARNING | WABS_LOG_ERROR;

std::string scenario_path(const std::string& wanted) {
  const std::string name = wanted.empty() ? "home-lte" : wanted;
  std::string path = modemsim::find_scenario(name);
  if (!path.empty()) return path;
  throw Failure("There is no scenario '" + name +
                "'. Give a file, or an installed name: demo, home-lte, rough-day.");
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

std::string explain(const std::string& what) {
  std::string text = what;
  if (!log_sink::modem_error().empty()) text += "; the modem said: " + log_sink::modem_error();
  if (!log_sink::first_error().empty()) text += "\nFirst error of the library: " + log_sink::first_error();
  return text + "\nRun the command again with -v to see its whole log.";
}

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
  if (options.at_log.empty() && options.verbose == 0) return;
  recorder_ = std::make_unique<Recorder>(options.identities);
  if (!options.at_log.empty()) recorder_->write_to(options.at_log);
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

PortPaths Session::ports() const {
  const auto path = [this](const std::string& wanted, const char* device_path) {
    return wanted.empty() ? host_path(device_path) : wanted;
  };
  return {path(options_.ports.trace, "/dev/ttyACM1"), path(options_.ports.query, "/dev/ttyACM2"),
          path(options_.ports.urc, "/dev/ttyACM3")};
}

// The library opens the device's own ports, others in their place, or a relay.
void Session::place_ports() {
  PortPaths paths = ports();
  if (recorder_ != nullptr) {
    relay_ = std::make_unique<Relay>(paths.query, paths.urc, recorder_->journal());
    paths.query = relay_->query_device();
    paths.urc = relay_->urc_device();
  }
  const PortPaths& wanted = options_.ports;
  const bool elsewhere = relay_ != nullptr || !(wanted.trace + wanted.query + wanted.urc).empty();
  if (elsewhere) library_root_ = std::make_unique<LinkedRoot>(root_, paths);
  lib.brio_set_root_dir.function((elsewhere ? library_root_->dir() : root_).c_str());
}

void Session::open_module() {
  place_ports();
  log_sink::clear_errors();
  uint32_t status = lib.wabs_open();
  if (status != 0) {
    throw Failure(explain("The modem could not be opened on " + ports().query + " (status " +
                          std::to_string(status) + ", " + status_name(status) +
                          ").\nCheck that it and ttyACM3 exist and that no other program drives the modem"));
  }
  open_ = kModule;
}

void Session::open_modem() {
  place_ports();
  log_sink::clear_errors();
  uint32_t status = lib.brio_open("/dev/ttyACM2");
  if (status != 0) {
    throw Failure(explain("The modem could not be opened on " + ports().query + " (library status " +
                          std::to_string(status) +
                          ").\nCheck that it and ttyACM3 exist and that no other program drives the modem"));
  }
  open_ = kModem;
}

void Session::close() {
  if (open_ == kModule) lib.wabs_close();
  if (open_ == kModem) lib.brio_close();
  open_ = kClosed;
  relay_.reset();
  library_root_.reset();
  if (recorder_ != nullptr) recorder_->finish();
}

std::string Session::modem_name() const {
  if (simulation_ != nullptr) {
    return "simulated, scenario " + fs::path(simulation_->scenario).filename().string();
  }
  return ports().query;
}

}  // namespace brioctl
