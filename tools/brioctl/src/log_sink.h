// What the library logs. brioctl defines the syslog functions, so that it can show lines (-v), notice events
// and quote the modem's own error text; every line still goes on to syslog. What is shown or
// quoted has its control characters escaped.
#ifndef BRIOCTL_LOG_SINK_H
#define BRIOCTL_LOG_SINK_H

#include <chrono>
#include <string>
#include <vector>

namespace brioctl::log_sink {

struct Request {
  std::string command;
  int status = -1;  // packet status, -1 while it waits
  double milliseconds = 0;
  std::string refusal;  // the modem's final line, "" when there was none
};

// What is printed on standard error: 0 nothing, 1 warnings, errors and events, 2 every line.
void echo(int level);
// Writes every line into a file; "" ends it. False when it cannot be written.
bool write_to(const std::string& path);

// The last error line of the library since clear_errors(), "" when there was none.
std::string last_error();
void clear_errors();
// The device path of the trace file that the library named last.
std::string trace_name();

// IMSI, ICCID and IMEI are masked in every line; this shows them whole.
void show_identities();
// The command that the modem has not answered yet, "" for none.
std::string outstanding();
// The last request since clear_errors() that did not succeed, also when repeated; no command when all did.
Request last_failed();
// Requests seen since the last call.
std::vector<Request> take_requests();
// Reports and events seen since the last call, one readable line each.
std::vector<std::string> take_events();

}  // namespace brioctl::log_sink

#endif
