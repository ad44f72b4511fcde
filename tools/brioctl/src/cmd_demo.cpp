// brioctl demo: the library's day on a modem, told step by step.
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "log_sink.h"
#include "output.h"

namespace brioctl {
namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void heading(const std::string& text) {
  if (!output::json()) printf("\n== %s\n\n", text.c_str());
}

void print_requests(const char* member, const std::vector<log_sink::Request>& requests) {
  auto& list = output::result()[member] = nlohmann::ordered_json::array();
  for (const auto& request : requests) {
    const char* outcome = request.status == 0 ? "ok" : request.status == 1 ? "timed out" : "refused";
    list.push_back({{"command", request.command}, {"ms", request.milliseconds}, {"outcome", outcome}});
    if (output::json()) continue;
    printf("  %-42s %7.2f ms%s%s\n", request.command.c_str(), request.milliseconds,
           request.status == 0 ? "" : "  ", request.status == 0 ? "" : outcome);
  }
}

// A line of text, and a member of the object.
template <typename T>
void tell(const char* member, const T& value, const std::string& text) {
  output::result()[member] = value;
  if (!output::json()) fputs(text.c_str(), stdout);
}

std::string took(const char* what, double seconds) {
  char text[64];
  snprintf(text, sizeof text, "  %s took %.3f s\n", what, seconds);
  return text;
}

}  // namespace

int run_demo(const Options& options, double seconds) {
  Session session(options);
  tell("library", session.lib.path, "Library: " + session.lib.path + "\n");
  tell("modem", session.modem_name(), "Modem:   " + session.modem_name() + "\n");

  heading("Opening: what the modem was asked");
  auto start = Clock::now();
  session.open_module();
  const double open_seconds = seconds_since(start);
  print_requests("opening", log_sink::take_requests());
  tell("open_seconds", open_seconds, "\n" + took("wabs_open", open_seconds));

  heading("What the host reads");
  auto rows = status_rows(session.lib, options.identities);
  tell("values", rows_json(rows), render_table(rows) + "\n  asked for that:\n");
  print_requests("reading", log_sink::take_requests());

  char title[64];
  snprintf(title, sizeof(title), "Reports as they come, for %.0f s", seconds);
  heading(title);
  log_sink::take_events();
  start = Clock::now();
  auto reports = nlohmann::ordered_json::array();
  while (seconds_since(start) < seconds) {
    if (!pause_for(0.1)) break;
    for (const std::string& event : log_sink::take_events()) {
      if (!output::json()) printf("  %6.1f s  %s\n", seconds_since(start), event.c_str());
      reports.push_back({{"seconds", seconds_since(start)}, {"text", event}});
    }
    output::flush();
  }
  tell("reports", reports, reports.empty() ? "  (none)\n" : "");

  heading("The diagnostic page, masked view");
  const std::string page = read_page(session.lib, false);
  tell("page", page, page);
  session.lib.wabs_exit_611_logging();

  heading("A network scan");
  const bool scanned = !interrupted() && scan_networks(session);

  heading("Closing");
  start = Clock::now();
  session.close();
  const double close_seconds = seconds_since(start);
  tell("close_seconds", close_seconds, took("wabs_close", close_seconds));
  return scanned && all_read(rows) ? 0 : 1;
}

}  // namespace brioctl
