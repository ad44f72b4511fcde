// brioctl demo: the library's day on a modem, told step by step.
#include <chrono>
#include <cstdio>

#include "commands.h"
#include "log_sink.h"

namespace brioctl {
namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void heading(const std::string& text) {
  printf("\n== %s\n\n", text.c_str());
}

void print_requests(const std::vector<log_sink::Request>& requests) {
  for (const auto& request : requests) {
    const char* outcome = request.status == 0 ? "" : request.status == 1 ? "  timed out" : "  refused";
    printf("  %-42s %7.2f ms%s\n", request.command.c_str(), request.milliseconds, outcome);
  }
}

}  // namespace

int run_demo(const Options& options, double seconds) {
  Session session(options);
  printf("Library: %s\nModem:   %s\n", session.lib.path.c_str(), session.modem_name().c_str());

  heading("Opening: what the modem was asked");
  auto start = Clock::now();
  session.open_module();
  double open_seconds = seconds_since(start);
  print_requests(log_sink::take_requests());
  printf("\n  wabs_open took %.3f s\n", open_seconds);

  heading("What the host reads");
  auto rows = status_rows(session.lib, options.identities);
  fputs(render_table(rows).c_str(), stdout);
  printf("\n  asked for that:\n");
  print_requests(log_sink::take_requests());

  char title[64];
  snprintf(title, sizeof(title), "Reports as they come, for %.0f s", seconds);
  heading(title);
  log_sink::take_events();
  start = Clock::now();
  size_t shown = 0;
  while (seconds_since(start) < seconds) {
    if (!pause_for(0.1)) break;
    for (const std::string& event : log_sink::take_events()) {
      printf("  %6.1f s  %s\n", seconds_since(start), event.c_str());
      shown++;
    }
    fflush(stdout);
  }
  if (shown == 0) printf("  (none)\n");

  heading("The diagnostic page, masked view");
  fputs(read_page(session.lib, false).c_str(), stdout);
  session.lib.wabs_exit_611_logging();

  heading("A network scan");
  bool scanned = !interrupted() && scan_networks(session);

  heading("Closing");
  log_sink::take_requests();
  start = Clock::now();
  session.close();
  printf("  wabs_close took %.3f s\n", seconds_since(start));
  for (const Row& row : rows) {
    if (row.status != 0) return 1;
  }
  return scanned ? 0 : 1;
}

}  // namespace brioctl
