// brioctl scan: a network scan with progress, aborted in both halves by Ctrl-C.
#include <poll.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "at_client.h"
#include "commands.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "progress.h"
#include "recorder.h"
#include "text.h"

namespace brioctl {
namespace {

struct Entry {
  std::string stat, plmn, rat, name;
};

// One entry of the list begins here: stat, mcc, mnc, rat and the empty field.
constexpr auto kAtStart = std::regex_constants::match_continuous;
const std::regex kEntryStart("([0-9]+),([0-9]{3}),([0-9]{2,3}),([0-9]+),\"\",");

std::string unquoted(const std::string& name) {
  bool quoted = name.size() >= 2 && name.front() == '"' && name.back() == '"';
  return quoted ? name.substr(1, name.size() - 2) : name;
}

// The other of two names of which one is the empty quoted string.
std::string name_of(const std::string& names) {
  if (names.rfind("\"\",", 0) == 0) return unquoted(names.substr(3));
  size_t comma = names.rfind(",\"\"");
  return unquoted(names.substr(0, comma));
}

// Splits the list "stat,mcc,mnc,rat,"",long name,short name;...". Names may hold commas, semicolons and
// quotes: an entry ends at the ";" after which another one begins or the list ends.
std::vector<Entry> parse_list(const std::string& list) {
  std::vector<Entry> entries;
  std::smatch start;
  for (auto at = list.begin(); std::regex_search(at, list.end(), start, kEntryStart, kAtStart);) {
    auto names = start[0].second;
    auto end = std::find(names, list.end(), ';');
    while (end != list.end() && end + 1 != list.end() &&
           !std::regex_search(end + 1, list.end(), kEntryStart, kAtStart)) {
      end = std::find(end + 1, list.end(), ';');
    }
    entries.push_back({start[1], start[2].str() + "-" + start[3].str(), start[4], name_of({names, end})});
    at = end == list.end() ? end : end + 1;
  }
  return entries;
}

std::string digits_of(const std::string& plmn) {
  std::string digits = plmn;
  digits.erase(std::remove(digits.begin(), digits.end(), '-'), digits.end());
  return digits;
}

const char* stat_name(const std::string& stat) {
  return stat == "2" ? "current" : stat == "1" ? "available" : "unknown";
}

const char* rat_name(const std::string& rat) {
  static const char* const names[] = {"GSM",   "GSM compact", "UTRAN", "EDGE",
                                      "HSDPA", "HSUPA",       "HSPA",  "E-UTRAN"};
  return rat.size() == 1 && rat[0] >= '0' && rat[0] <= '7' ? names[rat[0] - '0'] : "?";
}

nlohmann::ordered_json entry_json(const Entry& entry) {
  return {{"status", stat_name(entry.stat)},
          {"network", entry.plmn},
          {"technology", rat_name(entry.rat)},
          {"name", entry.name}};
}

void print_list(const std::vector<Entry>& entries) {
  auto& list = output::result()["networks"] = nlohmann::ordered_json::array();
  for (const Entry& entry : entries) list.push_back(entry_json(entry));
  if (output::json()) return;
  printf("%3s  %-10s  %-8s  %-11s  %s\n", "No.", "Status", "Network", "Technology", "Name");
  int number = 0;
  for (const Entry& entry : entries) {
    printf("%3d  %-10s  %-8s  %-11s  %s\n", ++number, stat_name(entry.stat), entry.plmn.c_str(),
           rat_name(entry.rat), printable(entry.name).c_str());
  }
}

// The entry of a number in the list or of a PLMN; null when there is none.
const Entry* wanted_entry(const std::vector<Entry>& entries, const std::string& select) {
  const std::string wanted = digits_of(select);
  if (wanted.size() < 5) {
    const std::size_t number = std::stoul(wanted);
    return number >= 1 && number <= entries.size() ? &entries[number - 1] : nullptr;
  }
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const Entry& entry) { return digits_of(entry.plmn) == wanted; });
  return found == entries.end() ? nullptr : &*found;
}

// Selects the network by hand. Throws Failure with the modem's answer.
void select_network(Session& session, const Entry& entry) {
  constexpr int kSelectTimeout = 180;  // the modem answers when it has registered, or has given up
  const std::string command = "AT+COPS=1,2,\"" + digits_of(entry.plmn) + "\"," + entry.rat;
  log_sink::clear_errors();
  uint32_t status = 0;
  {
    const Progress progress("Registering with " + entry.plmn, session.options().verbose == 0);
    status = session.lib.blpkt_atcmd_request_with_callback_timeout(command.c_str(), NO_RESULT, nullptr,
                                                                   nullptr, nullptr, 0, kSelectTimeout);
  }
  if (status != BLPKT_STATUS_SUCCESS) {
    throw Failure(session.explain("Network " + entry.plmn + " was not selected"));
  }
}

// Why a scan failed to which the modem answered; "" for another reason. The library leaves out forbidden
// networks, and takes an empty list for a failure.
std::string nothing_found(const Session& session) {
  constexpr uint32_t kUnusable = BRIO_STATUS_INVALID;  // what the library's reader of the list returns
  const log_sink::Request request = log_sink::last_failed();
  if (request.command != "AT+COPS=?" || request.status != static_cast<int>(kUnusable)) return "";
  std::string list;
  for (const at_log::Line& line : session.recorder().last(20)) {
    if (!line.to_modem && starts(line.text, "+COPS:")) list = line.text;
  }
  if (list.find("(3,") != std::string::npos) {
    return "No network found that takes this SIM: all in the list are forbidden (3).\nThe modem's list: " +
           printable(list);
  }
  const bool named = list.find("(\"") != std::string::npos || list.find(",\"") != std::string::npos;
  if (!named) return "No network found.";
  return "The modem's list of networks is not understood: " + printable(list);
}

// Lets the modem return to its network; false, with a note, when it does not.
bool select_automatically(const Library& lib) {
  const bool automatic = lib.wabs_set_auto_mode() == WABS_STATUS_OK;
  if (automatic) {
    output::result()["selection"] = "automatic";
  } else {
    output::note("Automatic selection could not be restored; \"brioctl auto\" tries again.");
  }
  return automatic;
}

// Of a program that died. The modem answers nothing else while it scans.
void abort_scan(Session& session) {
  constexpr double kPatience = 5;  // seconds
  session.open_ports();
  AtClient client(session.relayed().query, session.relayed().urc);
  client.on_line = [](const std::string&) {};
  client.on_report = [](bool, const std::string&) {};
  client.on_late = [](const std::string&) {};
  client.send("^");
  while (client.state() == AtClient::State::kWaiting && client.waited() < kPatience) {
    pollfd items[] = {{client.query_fd(), POLLIN, 0}, {interrupt_event(), POLLIN, 0}};
    const int left = static_cast<int>((kPatience - client.waited()) * 1000) + 1;
    if (poll(items, 2, left) > 0 && (interrupted() > 0 || !client.take(false))) break;
  }
  session.disconnect();
  if (interrupted() > 0) throw Failure("interrupted.");
}

}  // namespace

bool scan_networks(Session& session, const std::string& select) {
  const Library& lib = session.lib;
  session.end_at_signals(2);  // the first one aborts, and the modem returns to its network
  lib.wabs_get_current_network();
  std::vector<char> buffer(WABS_SCAN_BUFFER_SIZE, '\0');
  std::atomic<uint32_t> status{0};
  std::atomic<bool> done{false};
  std::thread scan([&] {
    status = lib.wabs_do_manual_nw_scan(buffer.data(), static_cast<uint32_t>(buffer.size()));
    done = true;
  });
  bool terminal = isatty(STDERR_FILENO) != 0;
  bool aborted = false;
  for (int tenths = 0; !done; tenths++) {
    if (interrupted() > 0 && !aborted) {
      aborted = true;
      fprintf(stderr, "%sAborting the scan ... (Ctrl-C again: end at once, off the network)\n",
              terminal ? "\r" : "");
      lib.wabs_abort_manual_nw_scan();
    }
    if (terminal && !aborted && tenths % 10 == 0) {
      fprintf(stderr, "\rScanning for networks, this takes up to 300 s: %d s ", tenths / 10);
      fflush(stderr);
    }
    usleep(100000);
  }
  scan.join();
  if (terminal) fprintf(stderr, "\r\033[K");
  // The released request left the modem searching; and a scan, whatever its end, left it de-registered.
  if (aborted) lib.wabs_send_abort_cmd();
  const std::vector<Entry> entries = parse_list(buffer.data());
  const Entry* chosen = status == 0 && !aborted && !select.empty() ? wanted_entry(entries, select) : nullptr;
  std::string problem;
  if (status != 0 && !aborted) {
    // Before the next command, whose lines would be the last ones.
    problem = nothing_found(session);
    if (problem.empty()) {
      problem = session.explain("The scan failed: status " + std::to_string(status) + " (" +
                                status_name(status) + ")");
    }
  } else if (chosen != nullptr) {
    try {
      session.end_at_signals(1);
      select_network(session, *chosen);
    } catch (const Failure& failure) {
      problem = failure.what();
    }
  } else if (!select.empty() && !aborted) {
    problem = "There is no network " + select + " in the scan.";
  }
  const bool selected = chosen != nullptr && problem.empty();
  if (session.modem_gone()) throw Failure(session.explain(""));
  const bool restored = selected || select_automatically(lib);
  session.end_at_signals(1);
  if (aborted) {
    output::note(restored ? "Scan aborted; automatic selection is on again." : "Scan aborted.");
    return false;
  }
  if (status == 0) {
    print_list(entries);
  } else {
    output::result()["networks"] = nlohmann::ordered_json::array();
  }
  if (!problem.empty()) {
    throw Failure(problem + (select.empty() || !restored ? "" : "\nAutomatic selection is on again."));
  }
  if (selected) {
    output::result()["selection"] = "manual";
    output::result()["selected"] = entry_json(*chosen);
    if (!output::json()) {
      printf("\nSelected %s (%s), %s. \"brioctl auto\" lets the modem choose again.\n", chosen->plmn.c_str(),
             printable(chosen->name).c_str(), rat_name(chosen->rat));
    }
  }
  return restored;
}

int run_auto(const Options& options) {
  Session session(options);
  try {
    session.open_module();
  } catch (const NotOpened&) {
    if (interrupted() > 0 || session.modem_gone() || log_sink::last_failed().status != BLPKT_STATUS_TIMEOUT) {
      throw;
    }
    output::note("The modem does not answer; aborting a scan that may run.");
    session.disconnect();
    abort_scan(session);
    session.open_module();
  }
  const uint32_t status = session.lib.wabs_set_auto_mode();
  if (status != 0) throw Failure(session.explain("Automatic selection could not be restored"));
  session.close();
  output::result()["selection"] = "automatic";
  if (!output::json()) printf("Automatic selection is on.\n");
  return 0;
}

int run_scan(const Options& options, const std::string& select) {
  Session session(options);
  session.open_module();
  bool complete = scan_networks(session, select);
  session.close();
  return complete ? 0 : 1;
}

}  // namespace brioctl
