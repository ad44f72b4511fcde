// brioctl: the command-line host of the modem module.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>

#include "command_line.h"
#include "commands.h"
#include "log_sink.h"
#include "output.h"
#include "printable.h"
#include "recorder.h"
#include "watch_model.h"

using namespace brioctl;

namespace {

std::string trace_prefix(const std::string& prefix) {
  const std::filesystem::path folder = std::filesystem::path(prefix).parent_path();
  return !prefix.empty() && prefix[0] == '/' && prefix.find("..") == std::string::npos && folder != "/" &&
                 *++folder.begin() != "dev"
             ? ""
             : "it must begin a path of the device in a folder of its own, for example /mnt/us/trace_log";
}

// "" or that two ports are one.
std::string ports_clash(const Options& options) {
  const PortPaths ports = device_ports(options, options.root);
  std::error_code absent;
  const bool one = ports.query == ports.urc || std::filesystem::equivalent(ports.query, ports.urc, absent);
  return one ? ports.query + " cannot be the query and the URC port" : "";
}

// After the verb's own --help.
constexpr std::pair<const char*, const char*> kExamples[] = {
    {"demo",
     "  brioctl demo --seconds 10          follow reports for ten seconds\n"
     "  brioctl --root ~/desk demo         on another modem"},
    {"status",
     "  brioctl status                     the device's modem\n"
     "  brioctl --sim --json status        a simulated one, for a script"},
    {"watch",
     "  brioctl watch                      a screen, until Ctrl-C\n"
     "  brioctl watch --every 10 --csv >signal.csv"},
    {"at",
     "  brioctl at ATI                     one command\n"
     "  brioctl at                         a shell\n"
     "  printf 'AT+CSQ\\nAT+COPS?\\n' | brioctl at\n"
     "  brioctl --query-port /dev/ttyUSB2 at AT+CSQ"},
    {"ports", "  brioctl ports"},
    {"auto", "  brioctl auto                       after a scan that died, or a network chosen by hand"},
    {"scan",
     "  brioctl scan                       list the networks\n"
     "  brioctl scan --select 310260       and use this one, until \"brioctl auto\""},
    {"page",
     "  brioctl page --full                with identities\n"
     "  brioctl page --follow              again and again"},
    {"trace", "  brioctl trace --seconds 60         one minute, below /mnt/us"},
    {"ant",
     "  brioctl ant                        which antenna is in use\n"
     "  brioctl ant auto                   let the modem choose"},
    {"record",
     "  brioctl record case                this host, until Ctrl-C\n"
     "  brioctl record --tap case          another host"},
    {"import", "  brioctl import case                case.toml and case.txt"},
    {"doctor", "  brioctl doctor --json              for a script"},
    {"report", "  brioctl report case.tar.gz"}};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Drives a modem through libbrio_module.so.1 as the WAN manager does.\n"
      "Without --sim or --root the device's own ports are used; --sim starts a simulated modem.",
      "brioctl"};
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "Examples:\n"
      "  brioctl demo                       the whole tour on a simulated modem\n"
      "  brioctl --sim status               one table of what the host reads\n"
      "  brioctl --root ~/desk at ATI       a modem whose ttys are linked below ~/desk/dev\n"
      "  brioctl -v status                  the same on the device, with what passes the ports\n\n"
      "Exit status:\n"
      "  0      done; every value was read; doctor: nothing is wrong\n"
      "  1      the modem, the library or the system refused; a value could not be read; the output could "
      "not be\n"
      "         written; doctor: something is wrong\n"
      "  2      wrong arguments\n"
      "  128+N  signal N ended it (130: Ctrl-C), where that is not the verb's regular end");

  Options options;
  app.add_option("--library", options.library,
                 "Library to load instead of the one that belongs to this program")
      ->type_name("FILE");
  auto* root = app.add_option("--root", options.root, "Directory prepended to every device path")
                   ->type_name("DIR")
                   ->check(command_line::not_empty);
  auto* sim = app.add_flag("--sim", options.simulate, "Use a simulated modem")->excludes(root);
  auto* scenario =
      app.add_option("--scenario", options.scenario,
                     "Scenario of the simulated modem, a file or an installed name; implies --sim")
          ->type_name("SCENARIO")
          ->check(command_line::not_empty)
          ->excludes(root);
  app.add_option("--speed", options.speed, "Play the scenario this many times as fast")
      ->check(command_line::above_zero);
  app.add_flag("-v,--verbose", options.verbose,
               "Show commands, answers and reports, warnings and errors on standard error; twice: the "
               "library's whole log");
  app.add_flag("--identities", options.identities,
               "Show IMSI, ICCID and IMEI whole, in logs and recordings, too");
  app.add_option("--at-log", options.at_log, "Write each line of the query and URC port into this file")
      ->type_name("FILE")
      ->check(command_line::not_empty);
  app.add_flag(
      "--force", options.force,
      "Go on when another program drives the modem; replace files (--at-log, record, import, report)");
  const std::tuple<const char*, std::string*, const char*> port_options[] = {
      {"--query-port", &options.ports.query, "Use this tty instead of /dev/ttyACM2"},
      {"--urc-port", &options.ports.urc, "Use this tty instead of /dev/ttyACM3"},
      {"--trace-port", &options.ports.trace, "Use this tty instead of /dev/ttyACM1"}};
  for (const auto& [name, place, what] : port_options) {
    app.add_option(name, *place, what)->type_name("TTY")->excludes(sim)->excludes(scenario);
  }
  auto* json = app.add_flag("--json", options.json, "Print objects for scripts, one a line");
  double demo_seconds = 4;
  auto* demo =
      app.add_subcommand("demo", "Open a simulated modem, show what it says and reports, scan, close");
  demo->add_option("--seconds", demo_seconds, "How long to follow reports")
      ->check(command_line::above_zero)
      ->capture_default_str();

  auto* status = app.add_subcommand("status", "One table of everything that the host reads");

  double every = 1, watch_seconds = -1;
  WatchFormat format = WatchFormat::kScreen;
  auto* watch = app.add_subcommand(
      "watch", "Follow network, signal and reports until Ctrl-C: a screen at a terminal, else lines");
  watch
      ->add_option("--every", every,
                   "Seconds between questions for the signal; at 1 that takes " + watch::cost(1) +
                       ", at 10 " + watch::cost(10) + ", and some more when the network changes")
      ->check(command_line::between(0.1, 3600))
      ->capture_default_str();
  auto* lines = watch->add_flag_callback(
      "--lines", [&] { format = WatchFormat::kLines; }, "Lines with their time, at a terminal too");
  watch
      ->add_flag_callback(
          "--csv", [&] { format = WatchFormat::kCsv; }, "CSV with a heading (RFC 4180)")
      ->excludes(lines->excludes(json))
      ->excludes(json);
  watch->add_option("--seconds", watch_seconds, "End after this time")->check(command_line::above_zero);

  AtOptions at_options;
  auto* at =
      app.add_subcommand("at", "Send AT commands and nothing else: COMMAND, those from a pipe, or a shell");
  auto* at_command = at->add_option("command", at_options.command, "For example \"AT+COPS?\"")
                         ->check(command_line::not_empty);
  at->add_option("--timeout", at_options.timeout, "Seconds to wait for each answer")
      ->check(CLI::Range(1, 600))
      ->capture_default_str();
  at->add_flag("--open", at_options.open, "Open the modem through the library first, and ask through it")
      ->needs(at_command);

  auto* ports = app.add_subcommand("ports", "List serial ports that may be a modem's, and who has them");
  auto* automatic = app.add_subcommand("auto", "Let the modem select a network by itself again");

  std::string select;
  auto* scan = app.add_subcommand(
      "scan", "Scan for networks (up to 300 s; Ctrl-C aborts), then select automatically again");
  scan->add_option("--select", select, "Select this one of them instead, until \"brioctl auto\"")
      ->type_name("NUMBER|PLMN")
      ->check(command_line::number_or_plmn);

  bool full = false, follow = false;
  auto* page = app.add_subcommand("page", "Print the 611 diagnostic page");
  page->add_flag("--full", full, "The full view, with identities, instead of the masked one");
  page->add_flag("--follow", follow, "Refresh every three seconds until Ctrl-C");

  std::string filter = kTraceFilter, prefix = "/mnt/us/trace_log";
  double trace_seconds = -1;
  auto* trace = app.add_subcommand("trace", "Capture the modem's trace into a file");
  trace->add_option("--filter", filter, "Filter file, a device path")->capture_default_str();
  trace->add_option("--prefix", prefix, "Start of the trace file's path, a device path")
      ->check(trace_prefix)
      ->capture_default_str();
  trace->add_option("--seconds", trace_seconds, "End after this time instead of at Ctrl-C")
      ->check(command_line::above_zero);

  std::string choice;
  auto* ant = app.add_subcommand("ant", "Show the LTE antennas, or choose one");
  ant->add_option("choice", choice, "1, 2 or auto")->check(CLI::IsMember({"1", "2", "auto"}));

  std::string folder;
  double record_seconds = -1;
  bool tap = false, in_place = false;
  auto* record = app.add_subcommand(
      "record", "Open the modem and keep what is said on its ports in a folder, until Ctrl-C");
  record->add_option("folder", folder, "Where: at.log and library.log")
      ->required()
      ->check(command_line::not_empty);
  record->add_option("--seconds", record_seconds, "End after this time")->check(command_line::above_zero);
  auto* tapping =
      record->add_flag("--tap", tap, "Record another host: pass what it and the modem say to each other");
  record
      ->add_flag("--in-place", in_place,
                 "The tap takes the place of the modem's ports, for a host that knows no others")
      ->needs(tapping);

  std::string recording, beside;
  auto* import = app.add_subcommand("import", "Make a scenario and a briolab session of a recording");
  import->add_option("recording", recording, "An AT log, or the folder of a recording")->required();
  import->add_option("--to", beside, "Write PREFIX.toml and PREFIX.txt (default: beside the recording)")
      ->type_name("PREFIX");

  auto* doctor = app.add_subcommand(
      "doctor",
      "Examine ports, modem, SIM, network, clock, sensor, IPC and files: what is wrong, how to fix it");
  std::string report_file;
  auto* report =
      app.add_subcommand("report", "Pack checks, page, status and logs into one file, identities masked");
  report->add_option("file", report_file, "Where, for example case.tar.gz")
      ->required()
      ->check(command_line::not_empty);

  for (const auto& [verb, examples] : kExamples) {
    app.get_subcommand(verb)->footer(std::string("Examples:\n") + examples);
  }
  int ended = 0;
  if (!command_line::parse(app, argc, argv, &ended)) return ended;
  if (!options.scenario.empty()) options.simulate = true;
  if (const std::string clash = options.simulate ? "" : ports_clash(options); !clash.empty()) {
    fprintf(stderr, "%s\n", printable(clash).c_str());
    return command_line::kUsage;
  }
  install_signals();
  log_sink::echo(options.verbose);
  if (options.identities) log_sink::show_identities();
  output::begin(app.get_subcommands().front()->get_name(), options.json);

  const auto run = [&] {
    if (!options.at_log.empty()) Recorder::check_place(options.at_log, options.force);
    if (*demo) {
      if (options.root.empty()) options.simulate = true;
      if (options.scenario.empty()) options.scenario = "demo";
      // A minute of the scenario in the few seconds of the tour.
      if (app.count("--speed") == 0) options.speed = 10;
      return run_demo(options, demo_seconds);
    }
    if (*status) return run_status(options);
    options.until_signal = watch->parsed();
    options.progress = !*watch;  // it may have the screen
    if (*watch && options.json) format = WatchFormat::kJson;
    if (*watch) return run_watch(options, every, watch_seconds, format);
    if (*at) return run_at(options, at_options);
    if (*page) return run_page(options, full, follow);
    if (*trace) return run_trace(options, filter, prefix, trace_seconds);
    if (*record) {
      return tap ? run_tap(options, folder, record_seconds, in_place)
                 : run_record(options, folder, record_seconds);
    }
    if (*import) return run_import(recording, beside, options.force);
    if (*ant) return run_ant(options, choice);
    if (*ports) return run_ports(options);
    if (*doctor) return run_doctor(options);
    if (*report) return run_report(options, report_file);
    if (*automatic) return run_auto(options);
    return run_scan(options, select);
  };
  int result = 1;
  std::string error;
  try {
    result = run();
  } catch (const std::exception& problem) {  // a Failure, or what the file system refused
    error = problem.what();
    fflush(stdout);
    fprintf(stderr, "brioctl: %s\n", printable(error, '\n').c_str());
  }
  // Where a signal is the regular end it is no failure.
  const bool until_signal = *watch || *trace || *record || *demo || follow;
  if (interrupted() > 0 && (result != 0 || !until_signal)) result = interrupted_status();
  return output::end(result, error);
}
