// brioctl page, trace and ant.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "commands.h"
#include "errors.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"

namespace brioctl {
namespace {

// Of the three causes of status 3 the one that is.
std::string no_trace_port_or_file(const std::string& port, const std::string& folder) {
  if (access(port.c_str(), R_OK | W_OK) != 0) return port + ": " + open_problem(errno, port);
  if (access(folder.c_str(), W_OK | X_OK) != 0) {
    return "the trace file cannot be created in " + folder + ": " + std::strerror(errno);
  }
  return "another program has locked " + port;
}

// Throws Failure where a link leads out of the root, or there is no folder.
void check_trace_folder(const Session& session, const std::filesystem::path& folder) {
  std::error_code failed;
  const std::filesystem::path there = std::filesystem::canonical(folder, failed);
  if (failed) {
    throw Failure("There is no folder " + folder.string() + " for the trace file: " + failed.message() +
                  ". Make it, or name another one with --prefix.");
  }
  const std::string root = std::filesystem::canonical(session.host_path("/"), failed).string();
  if (root != "/" && there.string().rfind(root + "/", 0) != 0) {
    throw Failure(folder.string() + " is a link to " + there.string() + ", which is not below " + root + ".");
  }
}

const char* trace_problem(uint32_t status) {
  switch (status) {
    case 1:
      return "the modem library is not open";
    case 4:
      return "the filter file holds no command";
    case 6:
      return "a line of the filter file is neither AT+XSYSTRACE= nor AT+TRACE=";
    case 7:
      return "there is no filter file";
    default:
      return "the modem refused a filter command";
  }
}

}  // namespace

std::string read_page(const Library& lib, bool full) {
  std::vector<char> buffer(WABS_PAGE_BUFFER_SIZE);
  lib.wabs_get_log_string(buffer.data(), WABS_PAGE_BUFFER_SIZE, full ? 1 : 0);
  buffer.back() = '\0';
  return printable(buffer.data(), '\n');
}

int run_page(const Options& options, bool full, bool follow) {
  Session session(options);
  session.open_module();
  do {
    // Without a host that asks for the bars there is no signal to show.
    uint32_t bars = 0;
    session.lib.wabs_get_bars(&bars);
    std::string page = read_page(session.lib, full);
    session.check_modem();
    if (output::json()) {
      output::result()["page"] = page;
      if (follow) output::line();
    } else {
      if (follow && isatty(STDOUT_FILENO) != 0) printf("\033[H\033[J");
      fputs(page.c_str(), stdout);
      output::flush();
    }
  } while (follow && pause_for(3));
  session.lib.wabs_exit_611_logging();
  session.close();
  return 0;
}

int run_trace(const Options& options, const std::string& filter, const std::string& prefix, double seconds) {
  Session session(options);
  const std::filesystem::path folder = std::filesystem::path(session.host_path(prefix)).parent_path();
  // A simulated device has no provisioned filter: switch everything on.
  if (session.simulated() && filter == kTraceFilter && !std::filesystem::exists(session.host_path(filter))) {
    std::filesystem::create_directories(folder);
    std::ofstream(session.host_path(filter)) << "AT+XSYSTRACE=1\nAT+TRACE=1\n";
  }
  check_trace_folder(session, folder);
  if (!session.simulated()) check_ports({{session.ports().trace, "trace"}}, options.force);
  session.open_modem();
  uint32_t status = session.lib.brio_trace_tst_log(filter.c_str(), prefix.c_str());
  if (status != 0) {
    session.close();
    throw Failure("The trace did not start (status " + std::to_string(status) + "): " +
                  (status == BRIO_STATUS_FATAL ? no_trace_port_or_file(session.ports().trace, folder)
                                               : trace_problem(status)) +
                  ".\nThe filter file is " + session.host_path(filter) +
                  "; one command a line, for example AT+XSYSTRACE=1.");
  }
  // Also where the output cannot be written.
  struct Capture {
    ~Capture() { lib.brio_trace_tst_stop(); }
    Library& lib;
  } capture{session.lib};
  if (!output::json()) printf("Trace running; Ctrl-C ends it.\n");
  output::flush();
  double waited = 0;
  const std::string path = session.host_path(log_sink::trace_name());
  const auto size = [&path] {
    std::error_code failed;
    const auto bytes = std::filesystem::file_size(path, failed);
    return failed ? -1 : static_cast<long long>(bytes);
  };
  // The library goes on without what it could not write, and says so once.
  const auto torn = [] { return log_sink::last_error().find("brio_writeline:") != std::string::npos; };
  while ((seconds < 0 || waited < seconds) && !torn()) {
    if (!pause_for(1) || session.modem_gone()) break;
    waited += 1;
    if (output::json()) {
      output::result() = {{"seconds", waited}, {"bytes", size()}};
      output::line();
    } else {
      printf("  %4.0f s  %lld bytes\n", waited, size());
      output::flush();
    }
  }
  session.lib.brio_trace_tst_stop();
  const bool gone = session.modem_gone(), full = torn();
  session.close();
  if ((gone || full) && size() >= 0) {
    output::note(path + ": " + std::to_string(size()) + " bytes until then.");
  }
  if (gone) throw Failure(session.explain(""));
  if (full) throw Failure("The trace could not be written. Is the disk full?");
  if (size() < 0) throw Failure("No trace file is there; look at the log with -v.");
  if (output::json()) {
    output::result() = {{"file", path}, {"bytes", size()}};
    return 0;
  }
  printf("%s: %lld bytes%s\n", printable(path).c_str(), size(),
         session.simulated() ? " (gone with the simulation; modemsim and --root keep them)" : "");
  return 0;
}

int run_ant(const Options& options, const std::string& choice) {
  Session session(options);
  session.open_modem();
  uint32_t status = 0;
  if (!choice.empty()) {
    uint32_t number = choice == "auto" ? 3 : choice == "1" ? 1 : 2;
    status = session.lib.brio_set_lte_ant(number);
    if (status != 0) {
      throw Failure(session.explain("The antenna could not be set (status " + std::to_string(status) + ")"));
    }
    if (!output::json()) {
      printf("Antenna: %s\n", choice == "auto" ? "automatic" : ("locked to " + choice).c_str());
    }
  }
  bas_status record = {0xFFFF, 0xFFFF, 255};
  status = session.lib.brio_get_bas_status(&record);
  session.close();
  if (status != 0) {
    throw Failure(
        session.explain("The antenna status could not be read (status " + std::to_string(status) + ")"));
  }
  const int main_value = static_cast<int16_t>(record.value_a),
            diversity = static_cast<int16_t>(record.value_b);
  if (output::json()) {
    output::result() = {{"antenna", nullptr}, {"main", main_value}, {"diversity", diversity}};
    if (record.antenna < 2) output::result()["antenna"] = record.antenna + 1;
    return 0;
  }
  // Chosen from 1, reported from 0.
  const std::string in_use = record.antenna < 2 ? std::to_string(record.antenna + 1) : "unknown";
  printf("Antenna in use: %s\nMain: %d\nDiversity: %d\n", in_use.c_str(), main_value, diversity);
  return 0;
}

}  // namespace brioctl
