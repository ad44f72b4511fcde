// brioctl doctor: what is wrong between the ports and the network, and how to mend it.
#include <dlfcn.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "doctor.h"
#include "errors.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"

namespace brioctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStates[] = {"ok", "note", "wrong", "not judged"};
constexpr char kIpcService[] = "com.quarto.brio_module";  // the host module's name there

std::string first_line(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

std::string or_status(uint32_t status) {
  const std::string cause = Session::cause();
  return cause.empty() ? "status " + std::to_string(status) + ", " + library_status_name(status) : cause;
}

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

bool examine_sim(Checkup& checkup, const Library& lib, bool identities) {
  uint32_t sim = SIM_NOT_READ;
  log_sink::clear_errors();
  const uint32_t status = lib.brio_get_wn3_sim_status(&sim);
  if (status != BRIO_STATUS_OK) {
    checkup.wrong("SIM", "its status cannot be read: " + or_status(status) +
                             ". Put a SIM in, or switch the modem off and on");
    return false;
  }
  if (sim == NO_SIM) {
    checkup.wrong("SIM", "there is none. Put one in, then switch the modem off and on");
    return false;
  }
  if (sim != SIM_STATUS_OK) {
    const std::string pin = ask_line(lib, "AT+CPIN?", "+CPIN");
    checkup.wrong("SIM",
                  std::string(sim == SIM_NOT_READ ? "it is still busy" : "it is not ready") +
                      (pin.empty() ? "" : ", the modem says " + printable(pin)) +
                      ". Wait a minute; unlock it with brioctl at 'AT+CPIN=\"PIN\"' if a PIN is asked for");
    return false;
  }
  sim_identity identity{};
  const uint32_t read = lib.brio_get_sim_info(&identity);
  if (read != BRIO_STATUS_OK) {
    checkup.wrong("SIM", "it is ready, but IMSI or ICCID cannot be read: " + or_status(read) +
                             ". Take it out and put it in again; try another one");
    return false;
  }
  checkup.add(Check::kOk, "SIM", "ready, IMSI " + masked(identity.imsi, identities));
  return true;
}

// The text between the first or the second pair of quotes, "" where none is.
std::string quoted(const std::string& line, int pair) {
  std::size_t begin = line.find('"');
  for (int quotes = 1; quotes < 2 * pair - 1 && begin != std::string::npos; quotes++) {
    begin = line.find('"', begin + 1);
  }
  const std::size_t end = begin == std::string::npos ? begin : line.find('"', begin + 1);
  return end == std::string::npos ? "" : line.substr(begin + 1, end - begin - 1);
}

// 3GPP TS 24.008 and 24.301: why a network refuses, "" for other numbers.
const char* reject_name(int cause) {
  static constexpr struct {
    int cause;
    const char* name;
  } kNames[] = {{2, "it does not know this SIM"},
                {3, "illegal SIM"},
                {6, "illegal modem: its IMEI is barred"},
                {7, "no packet data for this SIM"},
                {8, "neither voice nor packet data for this SIM"},
                {11, "this SIM may not use this network"},
                {12, "this SIM may not use this area"},
                {13, "no roaming in this area"},
                {14, "no packet data for this SIM in this network"},
                {15, "no suitable cell in this area"},
                {17, "a failure of the network"},
                {22, "the network is congested"}};
  for (const auto& each : kNames) {
    if (each.cause == cause) return each.name;
  }
  return "";
}

// ", cause 11: ..." of the last field of "+CREG: n,3,...,"0","11"", where the modem tells one; else "".
std::string reject_of(const std::string& line) {
  if (std::count(line.begin(), line.end(), ',') < 6) return "";
  const std::size_t digit = line.find_first_of("0123456789", line.rfind(','));
  const int cause = digit == std::string::npos ? 0 : std::atoi(line.c_str() + digit);
  if (cause == 0) return "";
  const std::string name = reject_name(cause);
  return " (cause " + std::to_string(cause) + (name.empty() ? ")" : ": " + name + ")");
}

// The second number of "+CREG: n,stat,..."; -1 for another line.
int registration_of(const std::string& line) {
  int mode = 0, state = -1;
  return std::sscanf(line.c_str(), "%*[^:]: %d,%d", &mode, &state) == 2 ? state : -1;
}

std::string registration_name(int state) {
  static constexpr const char* kNames[] = {"not registered", "home network", "searching",
                                           "denied",         "unknown",      "roaming"};
  return state >= 0 && state < 6 ? kNames[state] : "not known";
}

void examine_registration(Checkup& checkup, const Library& lib) {
  constexpr int kHome = 1, kSearching = 2, kDenied = 3, kRoaming = 5;
  const std::string voice = ask_line(lib, "AT+CREG?", "+CREG"), data = ask_line(lib, "AT+CGREG?", "+CGREG");
  const int cs = registration_of(voice), ps = registration_of(data);
  const std::string network = ask_line(lib, "AT+COPS?", "+COPS");
  const std::string plmn = quoted(network, 1);
  const auto named = [](int state, const std::string& line) {
    return registration_name(state) + (state == kDenied ? reject_of(line) : "");
  };
  const std::string finding = "voice: " + named(cs, voice) + ", data: " + named(ps, data) +
                              (plmn.empty() ? "" : ", network " + printable(plmn));
  if (network.rfind("+COPS: 2", 0) == 0) {
    checkup.add(Check::kWrong, "registration", "the modem was told to stay off the network (AT+COPS=2)",
                "\"brioctl auto\" lets it register again");
  } else if (ps == kHome || ps == kRoaming) {
    const bool by_hand = network.rfind("+COPS: 1", 0) == 0;
    checkup.add(by_hand ? Check::kNote : Check::kOk, "registration",
                finding + (by_hand ? ", selected by hand" : ""),
                by_hand ? "\"brioctl auto\" lets the modem choose" : "");
  } else if (ps == kDenied || cs == kDenied) {
    checkup.add(Check::kWrong, "registration", finding,
                "The network refuses this SIM: ask its operator; roaming may not be allowed");
  } else {
    checkup.add(Check::kWrong, "registration", finding,
                ps == kSearching ? "Look at the antenna and the place; \"brioctl scan\" lists the networks"
                                 : "\"brioctl auto\" lets the modem search; then look at the antenna");
  }
}

void examine_carrier(Checkup& checkup, const Library& lib, bool sim) {
  if (!sim) {
    checkup.add(Check::kNotJudged, "carrier", "its configuration must fit the SIM");
    return;
  }
  uint16_t carrier = 0xFFFF;
  log_sink::clear_errors();
  // Every open does the same: it corrects a configuration that the SIM does not fit.
  const uint32_t status = lib.briolib_check_carrier_confg.function();
  lib.brio_get_carrier_id(&carrier);
  const std::string number = carrier == 0xFFFF ? "not known" : std::to_string(carrier);
  if (status == BRIO_STATUS_OK) {
    checkup.add(Check::kOk, "carrier", "configuration " + number + " fits the SIM");
  } else if (status == BRIO_STATUS_INVALID) {
    checkup.add(Check::kWrong, "carrier", "configuration " + number + ", which is not for the SIM's network",
                "The network is not supported: put another SIM in, or set the number by hand (AT+GTFDCAR)");
  } else {
    checkup.wrong("carrier",
                  "it cannot be read or set: " + or_status(status) + ". Switch the modem off and on");
  }
}

void examine_apn(Checkup& checkup, const Session& session) {
  const std::string line = ask_line(session.lib, "AT+CGDCONT?", "+CGDCONT");
  const std::string apn = quoted(line, 2);  // +CGDCONT: 1,"IP","APN",...
  const std::string file = session.host_path("/mnt/us/apn");
  const bool overridden = fs::exists(file);
  const std::string wanted = overridden ? first_line(file) : "";
  if (apn.empty()) {
    checkup.wrong("APN",
                  (line.empty() ? "it cannot be read: " + or_status(0) : std::string("there is none")) +
                      ". Write it into " + file + ", and open again");
  } else if (!wanted.empty() && wanted.compare(0, apn.size(), apn) != 0) {
    checkup.wrong("APN", printable(apn) + ", but " + file + " says " + printable(wanted) +
                             ". Correct the file: no quotes, semicolons or control characters");
  } else {
    checkup.add(Check::kOk, "APN",
                printable(apn) + (wanted.empty() ? ", of the SIM's carrier" : ", of " + file));
  }
}

// Seconds since 1970 of "+CCLK: "yy/MM/dd,hh:mm:ss+zz""; -1 where none is.
std::time_t modem_time(const std::string& line) {
  std::tm local{};
  int quarters = 0;
  const int fields =
      std::sscanf(line.c_str(), "+CCLK: \"%2d/%2d/%2d,%2d:%2d:%2d%d", &local.tm_year, &local.tm_mon,
                  &local.tm_mday, &local.tm_hour, &local.tm_min, &local.tm_sec, &quarters);
  if (fields < 6 || local.tm_year < 20 || local.tm_year >= 70) return -1;
  local.tm_year += 100;
  local.tm_mon -= 1;
  return timegm(&local) - static_cast<std::time_t>(quarters) * 900;
}

// "260 days", in the unit that fits.
std::string duration(std::time_t seconds) {
  constexpr struct {
    std::time_t seconds;
    const char* name;
  } kUnits[] = {{86400, "days"}, {3600, "hours"}, {60, "minutes"}};
  for (const auto& unit : kUnits) {
    if (seconds >= 2 * unit.seconds) return std::to_string(seconds / unit.seconds) + " " + unit.name;
  }
  return std::to_string(seconds) + " s";
}

void examine_clock(Checkup& checkup, const Session* open) {
  constexpr std::time_t kTolerated = 300;
  constexpr std::time_t kSane = 1704067200;  // 2024
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[40];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc);
  const char* set = "Set it: timedatectl set-ntp true, or date -s";
  if (now < kSane) {
    checkup.add(Check::kWrong, "clock", std::string(text) + " cannot be", set);
    return;
  }
  if (open == nullptr || open->simulated()) {
    checkup.add(Check::kOk, "clock", text);
    return;
  }
  const std::time_t network = modem_time(ask_line(open->lib, "AT+CCLK?", "+CCLK"));
  if (network < 0) {
    checkup.add(Check::kNote, "clock",
                std::string(text) + "; the modem has no network time to compare it with");
  } else if (std::abs(now - network) > kTolerated) {
    checkup.add(Check::kWrong, "clock",
                std::string(text) + ", " + duration(std::abs(now - network)) +
                    (now > network ? " ahead of" : " behind") + " the network's time",
                set);
  } else {
    checkup.add(Check::kOk, "clock", std::string(text) + ", as the network's");
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
                  const std::string& mend) {
  checks_.push_back({state, name, finding, mend});
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
            (check.mend.empty() ? "" : ". " + printable(check.mend) + ".") + "\n";
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
                    {"mend", nullptr}});
    if (!check.mend.empty()) list.back()["mend"] = check.mend;
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
