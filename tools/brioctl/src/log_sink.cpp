#include "log_sink.h"

#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

#include <cstring>
#include <mutex>

#include "outlet.h"
#include "printable.h"
#include "recorder.h"

namespace brioctl::log_sink {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kKept = 1000;  // requests and events that nobody takes

std::mutex s_mutex;  // guards everything below
int s_echo = 0;
bool s_identities = false;
at_log::Mask s_mask('*');
FILE* s_file = nullptr;
std::string s_last_error;
std::string s_modem_error;
std::string s_trace_name;
std::vector<Request> s_requests;
Request s_failed;
Clock::time_point s_request_start;
std::vector<std::string> s_events;

// The text after `mark`, up to `end` (searched from the right) or the end; "" when `mark` is absent.
std::string between(const std::string& text, const char* mark, const char* end = "") {
  size_t from = text.find(mark);
  if (from == std::string::npos) return "";
  from += std::strlen(mark);
  size_t to = text.rfind(end);
  return to == std::string::npos || to < from ? text.substr(from) : text.substr(from, to - from);
}

void note_request(const std::string& line) {
  std::string command = between(line, "atcmd request:");
  if (!command.empty()) {
    s_requests.push_back({command, -1, 0, ""});
    if (s_requests.size() > kKept) s_requests.erase(s_requests.begin());
    s_modem_error.clear();
    s_request_start = Clock::now();
    return;
  }
  size_t exit = line.find("<<<<<Exit sending [");
  size_t status = line.rfind("] ret[");
  if (exit != std::string::npos && status != std::string::npos && !s_requests.empty()) {
    s_requests.back().status = atoi(line.c_str() + status + 6);
    s_requests.back().milliseconds =
        std::chrono::duration<double, std::milli>(Clock::now() - s_request_start).count();
    s_requests.back().refusal = s_modem_error;
    if (s_requests.back().status != 0) {
      s_failed = s_requests.back();
    } else if (s_requests.back().command == s_failed.command) {
      s_failed = {};
    }
  }
}

void note_event(const std::string& line) {
  std::string report = between(line, "I blib:URC::");
  if (!report.empty()) {
    // The answers to these queries take the same road.
    for (const char* answer : {"+GTSIMSTATUS:", "+CRSM:"}) {
      if (report.compare(0, std::strlen(answer), answer) == 0) return;
    }
    s_events.push_back("report  " + report);
    return;
  }
  for (const char* mark : {"bars changed", "pdp_activation_allowed changed", "serving plmn changed",
                           "TIME ZONE FROM EVENT", "mccchanged"}) {
    size_t from = line.find(mark);
    if (line.compare(2, 5, "brio:") == 0 && from != std::string::npos) {
      size_t suffix = line.rfind(" (");
      s_events.push_back("event   " +
                         line.substr(from, suffix == std::string::npos ? suffix : suffix - from));
      return;
    }
  }
}

void take(int priority, const char* format, va_list arguments) {
  char text[4096];
  vsnprintf(text, sizeof(text), format, arguments);
  std::string line(text);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  line = printable(line);
  std::lock_guard<std::mutex> lock(s_mutex);
  // Before masking: the time in a file's name may look like an identity.
  const std::string trace = between(line, "brio_trace_tst_log:name=\"", "\":start to catch");
  if (!trace.empty()) s_trace_name = trace;
  if (!s_identities) {
    at_log::Line hidden;
    hidden.port = at_log::Port::kHost;
    hidden.text.swap(line);
    s_mask.hide(hidden);
    line.swap(hidden.text);
  }
  const std::size_t events = s_events.size();
  note_request(line);
  note_event(line);
  const bool telling = LOG_PRI(priority) <= LOG_WARNING || s_events.size() > events;
  if (s_events.size() > kKept) s_events.erase(s_events.begin());
  const std::string time = time_of_day(wall_clock_ms());
  if (s_echo > (telling ? 0 : 1)) terminal().put(time + " log       " + line + "\n");
  if (s_file != nullptr) fprintf(s_file, "%s %s\n", time.c_str(), line.c_str());
  if (LOG_PRI(priority) == LOG_ERR) s_last_error = line;
  std::string refused = between(line, "AT_err_string:", ":");
  if (!refused.empty()) s_modem_error = refused;
}

}  // namespace

void echo(int level) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_echo = level;
}

bool write_to(const std::string& path) {
  std::lock_guard<std::mutex> lock(s_mutex);
  bool good = s_file == nullptr || ferror(s_file) == 0;
  if (s_file != nullptr) good = fclose(s_file) == 0 && good;
  s_file = nullptr;
  if (path.empty()) return good;
  s_file = fopen(path.c_str(), "we");
  return s_file != nullptr;
}

void show_identities() {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_identities = true;
}

std::string outstanding() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_requests.empty() || s_requests.back().status >= 0 ? "" : s_requests.back().command;
}

std::string last_error() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_last_error;
}

void clear_errors() {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_last_error.clear();
  s_modem_error.clear();
  s_failed = {};
}

Request last_failed() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_failed;
}

std::string trace_name() {
  std::lock_guard<std::mutex> lock(s_mutex);
  return s_trace_name;
}

std::vector<Request> take_requests() {
  std::lock_guard<std::mutex> lock(s_mutex);
  std::vector<Request> requests;
  requests.swap(s_requests);
  return requests;
}

std::vector<std::string> take_events() {
  std::lock_guard<std::mutex> lock(s_mutex);
  std::vector<std::string> events;
  events.swap(s_events);
  return events;
}

}  // namespace brioctl::log_sink

extern "C" {

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  brioctl::log_sink::take(priority, format, arguments);
  vsyslog(priority, format, again);
  va_end(again);
  va_end(arguments);
}

// What a fortified library calls.
__attribute__((visibility("default"))) void __syslog_chk(int priority, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  brioctl::log_sink::take(priority, format, arguments);
  vsyslog(priority, format, again);
  va_end(again);
  va_end(arguments);
}

}  // extern "C"
