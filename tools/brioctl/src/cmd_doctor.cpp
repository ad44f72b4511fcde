// brioctl doctor: what is wrong between the ports and the network, and how to fix it.
#include <dlfcn.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "doctor.h"
#include "errors.h"
#include "holders.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStates[] = {"ok", "note", "wrong", "not judged"};
constexpr char kIpcService[] = "com.quarto.brio_module";  // the host module's name there

// "root:dialout 0660", which access rights are about.
std::string rights(const struct stat& file) {
  const passwd* owner = getpwuid(file.st_uid);
  const group* set = getgrgid(file.st_gid);
  char mode[16];
  snprintf(mode, sizeof mode, " %04o", file.st_mode & 07777);
  return (owner == nullptr ? std::to_string(file.st_uid) : owner->pw_name) + (":" + std::string()) +
         (set == nullptr ? std::to_string(file.st_gid) : set->gr_name) + mode;
}

// Whether the port can be used.
bool examine_port(Checkup& checkup, const NamedPort& port) {
  const std::string name = port.name + " port";
  struct stat file {};
  const bool killed = tap_was_killed(port.path);
  if (killed || stat(port.path.c_str(), &file) != 0) {
    checkup.wrong(name, port.path + ": " + open_problem(killed ? ENOENT : errno, port.path));
    return false;
  }
  const std::string shown = port.path + " (" + rights(file) + ")";
  if (!S_ISCHR(file.st_mode)) {
    checkup.wrong(name, shown + " is no serial port. Remove it, and plug the modem in again");
    return false;
  }
  if (access(port.path.c_str(), R_OK | W_OK) != 0) {
    checkup.wrong(name, shown + ": " + open_problem(errno, port.path));
    return false;
  }
  checkup.add(Check::kOk, name, shown);
  return true;
}

// Whether no other program has a port.
bool examine_holders(Checkup& checkup, const PortPaths& ports) {
  const std::vector<Holder> found = holders({ports.query, ports.urc, ports.trace});
  for (const Holder& holder : found) {
    const bool manager = holder.name == "ModemManager";
    checkup.add(Check::kWrong, "holders",
                holder.name + " (pid " + std::to_string(holder.pid) + ") has " + holder.port,
                manager ? "systemctl stop ModemManager; a udev rule keeps it away for good"
                        : "End it, or go on with --force: the two then take each other's answers");
  }
  const bool all_seen = geteuid() == 0;
  if (found.empty()) {
    checkup.add(Check::kOk, "holders",
                all_seen ? "no other program has a port" : "no other program of this user has a port");
  }
  return found.empty();
}

void examine_library(Checkup& checkup, const Session* session, const std::string& problem) {
  if (session == nullptr) {
    checkup.wrong("library", problem);
  } else {
    checkup.add(Check::kOk, "library", session->lib.path);
  }
}

void examine_sensor(Checkup& checkup, const std::string& root) {
  const std::string folder = root + "/sys/devices/virtual/proximity/proximity0/";
  if (!fs::exists(folder + "prox_diff")) {
    checkup.add(Check::kNote, "sensor", "there is none, so no power back-off near a body",
                "On a device its driver is missing: dmesg tells");
    return;
  }
  for (const char* name : {"prox_diff", "prox_avg", "prox_offset", "prox_use"}) {
    const std::string reading = first_line(folder + name);
    if (reading.empty() || reading.find_first_not_of("0123456789abcdefABCDEFx \t") != std::string::npos) {
      checkup.wrong("sensor", folder + name + " holds no number. Run as root; look at the driver in dmesg");
      return;
    }
  }
  const std::string control = folder + "prox_ctrl0";
  if (access(control.c_str(), R_OK | W_OK) != 0) {
    checkup.wrong("sensor", control + ": " + std::strerror(errno) + ". Run as root");
    return;
  }
  checkup.add(Check::kOk, "sensor", "reads " + first_line(folder + "prox_diff"));
}

void examine_ipc(Checkup& checkup, bool in_use) {
  const auto open = reinterpret_cast<void* (*)(const char*)>(dlsym(RTLD_DEFAULT, "NipcOpen"));
  const auto close = reinterpret_cast<uint32_t (*)(void*)>(dlsym(RTLD_DEFAULT, "NipcClose"));
  Dl_info place{};
  if (open == nullptr || close == nullptr || dladdr(reinterpret_cast<void*>(open), &place) == 0) {
    checkup.wrong("IPC", "libnipc.so.1 cannot be loaded. Install it where the loader looks (ldconfig -p)");
    return;
  }
  const bool stand_in = dlsym(RTLD_DEFAULT, "NipcStandinSetProperty") != nullptr;
  const std::string library = place.dli_fname + std::string(stand_in ? " (a stand-in for a desk)" : "");
  if (in_use) {
    checkup.add(Check::kNotJudged, "IPC", library + ": another host may be connected");
    return;
  }
  void* connection = open(kIpcService);
  if (connection == nullptr) {
    checkup.wrong("IPC",
                  library + ": the service takes no connection. Start it, or run as the WAN manager's user");
    return;
  }
  close(connection);
  checkup.add(Check::kOk, "IPC", library);
}

constexpr char kGone[] = "the modem went away. Plug it in again; look at its cable and supply";

// What the open modem says. A check during which it went away says so and nothing else.
void examine_modem(Checkup& checkup, Session& session, bool* ready) {
  const Library& lib = session.lib;
  const std::pair<const char*, std::function<void(Checkup&)>> kSteps[] = {
      {"SIM", [&](Checkup& part) { *ready = examine_sim(part, lib, session.options().identities); }},
      {"registration", [&](Checkup& part) { examine_registration(part, lib); }},
      {"carrier", [&](Checkup& part) { examine_carrier(part, lib, *ready); }},
      {"APN", [&](Checkup& part) { examine_apn(part, session); }},
      {"clock", [&](Checkup& part) { examine_clock(part, &session); }}};
  for (const auto& [name, step] : kSteps) {
    if (session.modem_gone()) {
      checkup.add(Check::kNotJudged, name, "the modem is not there");
      continue;
    }
    Checkup part;
    step(part);
    if (session.modem_gone()) {
      *ready = false;
      checkup.wrong(name, kGone);
    } else {
      checkup.add(part);
    }
  }
}

void examine_host_module(Checkup& checkup, Session& session,
                         const std::function<void(Session&)>& with_module) {
  try {
    session.open_module();
    checkup.add(Check::kOk, "host module", "it opens as the WAN manager opens it");
    if (with_module) with_module(session);
  } catch (const Failure& failure) {
    if (interrupted() > 0) throw;
    const std::string cause = session.modem_gone() ? "" : Session::cause();
    checkup.wrong("host module", session.modem_gone() ? kGone
                                 : cause.empty()      ? failure.what()
                                                      : cause + ". -v shows what the modem says");
  }
  session.disconnect();
}

std::string after_opening(double seconds) {
  char text[32];
  snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

}  // namespace

void Checkup::add(Check::State state, const std::string& name, const std::string& finding,
                  const std::string& fix) {
  checks_.push_back({state, name, finding, fix});
}

void Checkup::add(const Checkup& part) {
  checks_.insert(checks_.end(), part.checks_.begin(), part.checks_.end());
}

void Checkup::wrong(const std::string& name, const std::string& sentences) {
  std::string text = sentences;
  std::replace(text.begin(), text.end(), '\n', ' ');
  if (!text.empty() && text.back() == '.') text.pop_back();
  const std::size_t end = text.find(". ");
  add(Check::kWrong, name, text.substr(0, end), end == std::string::npos ? "" : text.substr(end + 2));
}

int Checkup::wrongs() const {
  return static_cast<int>(std::count_if(checks_.begin(), checks_.end(),
                                        [](const Check& check) { return check.state == Check::kWrong; }));
}

std::string Checkup::text() const {
  std::string text;
  for (const Check& check : checks_) {
    char columns[64];
    snprintf(columns, sizeof columns, "%-10s  %-12s  ", kStates[check.state], check.name.c_str());
    text += columns + printable(check.finding) +
            (check.fix.empty() ? "" : ". " + printable(check.fix) + ".") + "\n";
  }
  const int count = wrongs();
  return text + (count == 0   ? "\nNothing is wrong.\n"
                 : count == 1 ? "\nOne thing is wrong.\n"
                              : "\n" + std::to_string(count) + " things are wrong.\n");
}

nlohmann::ordered_json Checkup::json() const {
  auto list = nlohmann::ordered_json::array();
  for (const Check& check : checks_) {
    list.push_back({{"check", check.name},
                    {"state", kStates[check.state]},
                    {"finding", check.finding},
                    {"fix", nullptr}});
    if (!check.fix.empty()) list.back()["fix"] = check.fix;
  }
  return list;
}

Checkup examine(const Options& options, const std::function<void(Session&)>& with_module) {
  Checkup checkup;
  std::unique_ptr<Session> session;
  std::string problem;
  try {
    session = std::make_unique<Session>(options);
  } catch (const Failure& failure) {
    problem = failure.what();
  }
  examine_library(checkup, session.get(), problem);
  const std::string root = session ? session->host_path("") : options.root;
  const PortPaths ports = device_ports(options, root);
  bool usable = examine_port(checkup, {ports.query, "query"});
  usable = examine_port(checkup, {ports.urc, "URC"}) && usable;
  examine_port(checkup, {ports.trace, "trace"});
  const bool alone = examine_holders(checkup, ports);

  bool open = false, ready = false;
  const char* hindrance = session == nullptr         ? "without the library"
                          : !usable                  ? "a port is missing, or may not be used"
                          : !alone && !options.force ? "another program has a port"
                                                     : nullptr;
  if (hindrance == nullptr) {
    const auto start = std::chrono::steady_clock::now();
    try {
      session->open_modem();
      open = true;
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      checkup.add(Check::kOk, "opening", "the modem answers; it took " + after_opening(took.count()));
    } catch (const Failure& failure) {
      if (interrupted() > 0) throw;
      const std::string cause = Session::cause();
      checkup.wrong("opening",
                    (session->modem_gone() ? kGone
                     : cause.empty()       ? failure.what()
                                           : cause + ". Switch the modem off and on; -v shows what it says"));
    }
  } else {
    checkup.add(Check::kNotJudged, "opening", hindrance);
  }
  if (open) {
    examine_modem(checkup, *session, &ready);
    session->disconnect();
  } else {
    for (const char* name : {"SIM", "registration", "carrier", "APN"}) {
      checkup.add(Check::kNotJudged, name, "the modem is not open");
    }
    examine_clock(checkup, nullptr);
  }
  if (ready) {
    examine_host_module(checkup, *session, with_module);
  } else {
    checkup.add(Check::kNotJudged, "host module",
                !open                   ? "the modem is not open"
                : session->modem_gone() ? "the modem is not there"
                                        : "it does not open without a SIM");
  }
  if (interrupted() > 0) throw Failure("interrupted.");
  examine_sensor(checkup, root);
  if (session != nullptr) examine_ipc(checkup, !alone);
  examine_files(checkup, root);
  if (session != nullptr) session->close();
  return checkup;
}

int run_doctor(const Options& options) {
  const Checkup checkup = examine(options);
  output::result()["checks"] = checkup.json();
  output::result()["wrong"] = checkup.wrongs();
  if (!output::json()) fputs(checkup.text().c_str(), stdout);
  return checkup.wrongs() == 0 ? 0 : 1;
}

}  // namespace brioctl
