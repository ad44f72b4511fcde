// brioctl doctor's look at what the open modem says of SIM, network, configuration and clock.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "commands.h"
#include "doctor.h"
#include "holders.h"
#include "log_sink.h"
#include "printable.h"
#include "report.h"
#include "text.h"

namespace brioctl {
namespace {

std::string or_status(uint32_t status) {
  const std::string cause = Session::cause();
  return cause.empty() ? "status " + std::to_string(status) + ", " + library_status_name(status) : cause;
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

}  // namespace

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
  if (starts(network, "+COPS: 2")) {
    checkup.add(Check::kWrong, "registration", "the modem was told to stay off the network (AT+COPS=2)",
                "\"brioctl auto\" lets it register again");
  } else if (ps == kHome || ps == kRoaming) {
    const bool by_hand = starts(network, "+COPS: 1");
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
  const bool overridden = std::filesystem::exists(file);
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

void examine_clock(Checkup& checkup, const Session* open) {
  constexpr std::time_t kTolerated = 300;
  constexpr std::time_t kSane = 1704067200;  // 2024
  const std::time_t now = std::time(nullptr);
  const std::string text = utc(now, "%Y-%m-%d %H:%M UTC");
  const char* set = "Set it: timedatectl set-ntp true, or date -s";
  if (now < kSane) {
    checkup.add(Check::kWrong, "clock", text + " cannot be", set);
    return;
  }
  if (open == nullptr || open->simulated()) {
    checkup.add(Check::kOk, "clock", text);
    return;
  }
  const std::time_t network = modem_time(ask_line(open->lib, "AT+CCLK?", "+CCLK"));
  if (network < 0) {
    checkup.add(Check::kNote, "clock", text + "; the modem has no network time to compare it with");
  } else if (std::abs(now - network) > kTolerated) {
    checkup.add(Check::kWrong, "clock",
                text + ", " + duration(std::abs(now - network)) + (now > network ? " ahead of" : " behind") +
                    " the network's time",
                set);
  } else {
    checkup.add(Check::kOk, "clock", text + ", as the network's");
  }
}

}  // namespace brioctl
