// brioctl scan: a network scan with progress, aborted in both halves by Ctrl-C.
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <regex>
#include <thread>

#include "commands.h"
#include "printable.h"

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

const char* stat_name(const std::string& stat) {
  return stat == "2" ? "current" : stat == "1" ? "available" : "unknown";
}

const char* rat_name(const std::string& rat) {
  static const char* const names[] = {"GSM",   "GSM compact", "UTRAN", "EDGE",
                                      "HSDPA", "HSUPA",       "HSPA",  "E-UTRAN"};
  return rat.size() == 1 && rat[0] >= '0' && rat[0] <= '7' ? names[rat[0] - '0'] : "?";
}

}  // namespace

bool scan_networks(Session& session) {
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
  uint32_t automatic = lib.wabs_set_auto_mode();
  session.end_at_signals(1);
  if (automatic != 0) {
    fprintf(stderr, "Automatic selection could not be restored; \"brioctl auto\" tries again.\n");
  }
  if (aborted) {
    printf("Scan aborted%s.\n", automatic == 0 ? "; automatic selection is on again" : "");
    return false;
  }
  if (status != 0) {
    printf("%s\n", session
                       .explain("The scan failed: status " + std::to_string(status) + " (" +
                                status_name(status) + ")")
                       .c_str());
    return false;
  }
  printf("%-10s  %-8s  %-11s  %s\n", "Status", "Network", "Technology", "Name");
  for (const Entry& entry : parse_list(buffer.data())) {
    printf("%-10s  %-8s  %-11s  %s\n", stat_name(entry.stat), entry.plmn.c_str(), rat_name(entry.rat),
           printable(entry.name).c_str());
  }
  return automatic == 0;
}

int run_auto(const Options& options) {
  Session session(options);
  session.open_module();
  const uint32_t status = session.lib.wabs_set_auto_mode();
  if (status != 0) throw Failure(session.explain("Automatic selection could not be restored"));
  session.close();
  printf("Automatic selection is on.\n");
  return 0;
}

int run_scan(const Options& options) {
  Session session(options);
  session.open_module();
  bool complete = scan_networks(session);
  session.close();
  return complete ? 0 : 1;
}

}  // namespace brioctl
