// The commands of brioctl. Each returns the exit code: 0, or 1 when something was asked for and not obtained.
#ifndef BRIOCTL_COMMANDS_H
#define BRIOCTL_COMMANDS_H

#include <string>
#include <vector>

#include "report.h"
#include "session.h"

namespace brioctl {

constexpr char kTraceFilter[] = "/var/local/wan/debug/trace_filter.cfg";

std::vector<Row> status_rows(const Library& lib, bool identities);
bool all_read(const std::vector<Row>& rows);
// The first line of the answer that begins with the prefix, "" when there is none.
std::string ask_line(const Library& lib, const char* command, const char* prefix);
// A sentence when the modem was told to stay off the network, "" otherwise.
std::string left_deregistered(const Library& lib);
int run_status(const Options& options);
// kScreen: lines where there is no screen.
enum class WatchFormat { kScreen, kLines, kJson, kCsv };
// Every `every` seconds, for `seconds` or, when negative, until interrupted.
int run_watch(const Options& options, double every, double seconds, WatchFormat format);

struct AtOptions {
  std::string command;  // "" for a shell, or commands from a pipe
  int timeout = 20;     // seconds
  bool open = false;    // open the library first and ask through it
};
int run_at(const Options& options, const AtOptions& at);
// The diagnostic page for a terminal.
std::string read_page(const Library& lib, bool full);
int run_page(const Options& options, bool full, bool follow);
int run_trace(const Options& options, const std::string& filter, const std::string& prefix, double seconds);
// `choice`: "", "1", "2" or "auto".
int run_ant(const Options& options, const std::string& choice);

// Scans in an open session and prints the list; false when it failed or was aborted. The modem then selects a
// network by itself, unless one of the list is selected: by its number in it, or as a PLMN.
bool scan_networks(Session& session, const std::string& select = "");
// Tells the modem to select a network by itself.
int run_auto(const Options& options);
int run_scan(const Options& options, const std::string& select);

// Records a session of this host for `seconds` or, when negative, until interrupted.
int run_record(Options options, const std::string& dir, double seconds);
// Records what another host and the modem say to each other. `in_place`: at the ports' own paths.
int run_tap(const Options& options, const std::string& dir, double seconds, bool in_place);
// Writes PREFIX.toml and PREFIX.txt; "" for a prefix after the recording.
int run_import(const std::string& recording, std::string prefix, bool force);

int run_ports(const Options& options);
// What is wrong, and how to fix it.
int run_doctor(const Options& options);
// Packs what the doctor sees, page, status and logs into a new file.
int run_report(Options options, const std::string& file);

int run_demo(const Options& options, double seconds);

}  // namespace brioctl

#endif
